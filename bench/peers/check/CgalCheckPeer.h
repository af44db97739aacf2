#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include <facetbox/PolyMesh.h>

/// A triangle mesh as CGAL's, with the kernel whose predicates are exact.
class CgalTriangleMesh {
 public:
  /// @throws std::runtime_error where CGAL refuses a face: its meshes are manifolds
  explicit CgalTriangleMesh(const facetbox::MeshView& mesh);
  ~CgalTriangleMesh();

  /// Polygon_mesh_processing::self_intersections, sequential.
  std::vector<std::pair<std::uint32_t, std::uint32_t>> selfIntersections() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> mImpl;
};
