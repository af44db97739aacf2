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
struct TriangleMeshArrays;  ///< the arrays of a triangle mesh, internal

/// A mesh of triangles, made by a Triangulator. The caller of the triangulator owns it and releases it with `delete`.
///
/// Several threads may read it at once.
class FACETBOX_EXPORT TriangleMesh : public MeshBase {
 public:
  /// Two values per vertex, for example a pair of texture coordinates.
  using CoordinateSet = std::vector<std::array<double, 2>>;

  ~TriangleMesh() override;
  TriangleMesh(const TriangleMesh&) = delete;
  TriangleMesh& operator=(const TriangleMesh&) = delete;

  /// x, y, z per vertex: vertex v at [3v], [3v + 1], [3v + 2]. First the polygon mesh's vertices, in order, then those
  /// that the tessellation added.
  std::span<const double> vertexCoordinates() const noexcept { return mVertexCoordinates; }
  /// Three vertex indices per triangle: the corners of triangle t are at [3t], [3t + 1], [3t + 2], in the winding of
  /// its source face.
  std::span<const std::uint32_t> indices() const noexcept { return mIndices; }
  /// The polygons' edges as pairs (smaller, larger) of vertex indices, ascending, each once. Empty unless the
  /// triangulator was asked for them.
  std::span<const std::uint32_t> edgePairs() const noexcept { return mEdgePairs; }

  // Internal from here on.

  /// Three further values per vertex, in the layout of the coordinates, and pairs per vertex. Both are empty if the
  /// public call of Triangulator made the mesh.
  FACETBOX_LOCAL std::span<const double> secondCoordinates() const noexcept { return mSecondCoordinates; }
  FACETBOX_LOCAL std::span<const CoordinateSet> coordinateSets() const noexcept { return mCoordinateSets; }

  /// Builds the bounding volume hierarchy (BVH) of the triangles, which ray and view-volume tests traverse. Without it
  /// these tests loop over all triangles, with the same answers. Call it once, from the thread that made the mesh,
  /// before other threads see the mesh.
  FACETBOX_LOCAL void buildHierarchy();
  /// Null until built.
  FACETBOX_LOCAL const TriangleBvh* hierarchy() const noexcept { return mHierarchy.get(); }

  /// Lists the edges of the triangles, or shares the list of a mesh with the same triangles. Call it at the same time
  /// as buildHierarchy().
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
