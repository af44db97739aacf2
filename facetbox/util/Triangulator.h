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
class TriangleHierarchy;
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

  /// Builds the hierarchy over the triangles that ray and view-volume tests descend. Once, by the thread that made the
  /// mesh, before others see it; without it those tests are plain loops with the same answers.
  FACETBOX_LOCAL void buildHierarchy();
  /// Null until built.
  FACETBOX_LOCAL const TriangleHierarchy* hierarchy() const noexcept { return mHierarchy.get(); }

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
  std::unique_ptr<TriangleHierarchy> mHierarchy;
  std::shared_ptr<const EdgeList> mEdges;
};

/// Turns the faces of polygon meshes into triangles: an outer contour with any number of hole contours, in space,
/// concave and self-crossing ones included (a point is inside when contours go around it an odd number of times).
///
/// One exception, which is the tessellator's: a single contour of at most 100 corners whose triangles from its first
/// corner to each of its other edges all have one orientation becomes these triangles, also where it goes around twice.
///
/// What went wrong with a single face is printed to standard error ("Tessellation Error: ..."). An object serves one
/// thread at a time and stays usable after an exception.
class FACETBOX_EXPORT Triangulator {
 public:
  /// Makes the triangle meshes; for the library itself.
  class FACETBOX_LOCAL TriangleMeshFactory;

  /// @throws std::bad_alloc where the tessellator cannot be made
  Triangulator();
  ~Triangulator();
  Triangulator(const Triangulator&) = delete;
  Triangulator& operator=(const Triangulator&) = delete;

  /// The triangles of a mesh's faces, in the order of the faces. Holes stay open; a face that is a hole of another
  /// gives no triangles of its own, nor does one of fewer than three corners. A face one of whose corners, or whose
  /// holes' corners, has a coordinate that is not a number is left out, with one error printed. Larger coordinates than
  /// 1e150, infinite ones included, are taken as 1e150 by the tessellation, with an error printed for each such corner.
  ///
  /// @param vertexCoordinates  three doubles per vertex of the mesh: its own coordinates or transformed ones. They
  ///                           become the triangle mesh's. Where they are the mesh's own, triangles are wound as the
  ///                           face's stored normal says, else around the normal that the coordinates give.
  /// @param option  1: with the polygons' edges (TriangleMesh::edgePairs); 2: each line of the mesh becomes a triangle
  ///                (first, second, second corner) behind the others; anything else: neither
  /// @return never null; the caller owns it
  /// @throws std::invalid_argument where `vertexCoordinates` are not three per vertex
  /// @throws std::runtime_error "illegal hole index." where a face's hole group has no end or names no face of the mesh
  /// @throws std::runtime_error "Triangulator: not enough space for combined vertices!" where one face needs more than
  ///         512 vertices of its own, because contours cross or touch
  /// O(vertices), and per face O(e w) for e corners and crossings and w edges that a line across it meets at most. All
  /// crossings of a face, up to its corners squared, are worked through before the error of too many is thrown.
  TriangleMesh* triangulate(const Mesh& mesh, std::vector<double> vertexCoordinates, int option);

  // From here on for the library itself.

  /// The same with further values per vertex, which added vertices get as weighted sums. The arrays' indices and pairs
  /// are ignored.
  /// @throws std::invalid_argument also where a present further array has not one entry per vertex
  FACETBOX_LOCAL TriangleMesh* triangulate(const Mesh& mesh, TriangleMeshArrays&& arrays, int option,
                                           const TriangleMeshFactory& factory);

  /// The triangles as faces of a polygon mesh, with the normals of the faces that they are part of; no holes, runs or
  /// texture coordinates.
  /// @param sourceFaces  receives per triangle the face that it is part of; may be null
  FACETBOX_LOCAL std::unique_ptr<Mesh> triangulateToFaces(const Mesh& mesh, std::vector<std::uint32_t>* sourceFaces);

 private:
  struct FACETBOX_LOCAL State;
  std::unique_ptr<State> mState;
};

}  // namespace util
