#pragma once

#include <cstdint>
#include <vector>

#include <facetbox/util/Triangulator.h>

namespace util {

/// The arrays of a triangle mesh, as TriangleMesh describes them. The second coordinates and the coordinate sets may
/// be absent (empty).
struct TriangleMeshArrays {
  std::vector<double> vertexCoordinates;
  std::vector<double> secondCoordinates;
  std::vector<TriangleMesh::CoordinateSet> coordinateSets;
  std::vector<std::uint32_t> indices;
  std::vector<std::uint32_t> edgePairs;
};

/// Makes a triangle mesh of a triangulator's result.
class Triangulator::TriangleMeshFactory {
 public:
  virtual ~TriangleMeshFactory() = default;
  /// The caller owns the mesh, the mesh the arrays.
  virtual TriangleMesh* create(TriangleMeshArrays&& arrays) const;
};

}  // namespace util
