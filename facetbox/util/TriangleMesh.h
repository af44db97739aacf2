#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include <facetbox/util/Export.h>
#include <facetbox/util/Mesh.h>

namespace util {

class EdgeList;
class TriangleBvh;
class Triangulator;
struct TriangleMeshArrays;  ///< what a triangle mesh is made from

/// A mesh of triangles, made by a Triangulator. Owned by who asked for it, released with `delete`.
///
/// Safe to read from several threads.
class FACETBOX_EXPORT TriangleMesh : public MeshBase {
 public:
  /// Two values per vertex, for example a pair of texture coordinates.
  using CoordinateSet = std::vector<std::array<double, 2>>;

  ~TriangleMesh() override;
  TriangleMesh(const TriangleMesh&) = delete;
  TriangleMesh& operator=(const TriangleMesh&) = delete;

  /// x, y, z per vertex: vertex v at [3v], [3v + 1], [3v + 2]. The polygon mesh's vertices, in its order, then those
  /// that the tessellation had to add.
  std::span<const double> vertexCoordinates() const noexcept { return mVertexCoordinates; }
  /// Three vertex numbers per triangle: triangle t has its corners at [3t], [3t + 1], [3t + 2], in the winding of the
  /// face that it is part of.
  std::span<const std::uint32_t> indices() const noexcept { return mIndices; }
  /// The polygons' edges as pairs (smaller, larger) of vertex numbers, ascending, each once; empty unless the
  /// triangulator was asked for them.
  std::span<const std::uint32_t> edgePairs() const noexcept { return mEdgePairs; }

  // From here on for the library itself.

  /// Three further values per vertex, in the layout of the coordinates, and pairs per vertex. Both empty in a mesh
  /// that Triangulator's public call made.
  FACETBOX_LOCAL std::span<const double> secondCoordinates() const noexcept { return mSecondCoordinates; }
  FACETBOX_LOCAL std::span<const CoordinateSet> coordinateSets() const noexcept { return mCoordinateSets; }

  /// Builds the hierarchy over the triangles that ray and view-volume tests traverse. Once, by the thread that made the
  /// mesh, before others see it; without it those tests are plain loops with the same answers.
  FACETBOX_LOCAL void buildHierarchy();
  /// Null until built.
  FACETBOX_LOCAL const TriangleBvh* hierarchy() const noexcept { return mHierarchy.get(); }

  /// Lists the triangles' edges, or shares the list of a mesh of the same triangles; when, as the hierarchy is built.
  FACETBOX_LOCAL void buildEdges();
  FACETBOX_LOCAL void shareEdgesOf(const TriangleMesh& other) { mEdges = other.mEdges; }
  /// Null until built.
  FACETBOX_LOCAL const EdgeList* edges() const noexcept { return mEdges.get(); }

 private:
  friend class Triangulator;  // its TriangleMeshFactory makes all meshes
  FACETBOX_LOCAL explicit TriangleMesh(TriangleMeshArrays&& arrays) noexcept;

  std::vector<double> mVertexCoordinates;
  std::vector<double> mSecondCoordinates;
  std::vector<CoordinateSet> mCoordinateSets;
  std::vector<std::uint32_t> mIndices;
  std::vector<std::uint32_t> mEdgePairs;
  std::unique_ptr<TriangleBvh> mHierarchy;
  std::shared_ptr<const EdgeList> mEdges;
};

}  // namespace util
