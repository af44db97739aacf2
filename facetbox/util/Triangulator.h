#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <facetbox/util/Export.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/TriangleMesh.h>

namespace util {

struct TriangleMeshArrays;  ///< what a triangle mesh is made from

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
