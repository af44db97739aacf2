#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <facetbox/util/Export.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/TriangleMesh.h>

namespace util {

struct TriangleMeshArrays;  ///< the arrays of a triangle mesh, internal

/// Turns the faces of polygon meshes into triangles. A face has an outer contour and any number of hole contours. They
/// may be concave or cross themselves and each other: a point is inside when the contours go around it an odd number of
/// times.
///
/// The tessellator makes one exception: a single contour of at most 100 corners is cut into a fan from its first corner
/// if all triangles of the fan have the same orientation, even if the contour goes around twice.
///
/// Problems with a single face are printed to standard error ("Tessellation Error: ..."). A triangulator serves one
/// thread at a time and stays usable after an exception.
class FACETBOX_EXPORT Triangulator {
 public:
  /// Makes the triangle meshes; internal.
  class FACETBOX_LOCAL TriangleMeshFactory;

  /// @throws std::bad_alloc where the tessellator cannot be created
  Triangulator();
  ~Triangulator();
  Triangulator(const Triangulator&) = delete;
  Triangulator& operator=(const Triangulator&) = delete;

  /// Triangulates the faces of a mesh, in their order. Holes stay open: a hole face yields no triangles of its own.
  /// Neither does a face with fewer than three corners. A face is skipped, with one printed error, if a corner of it or
  /// of its holes has a NaN coordinate. Coordinates beyond 1e150 in size, infinite ones included, are tessellated as if
  /// they were 1e150, with one printed error per such corner.
  ///
  /// @param vertexCoordinates  three doubles per vertex of the mesh: its own coordinates or transformed ones. The
  ///                           triangle mesh takes them over. If they are the mesh's own, triangles are wound by the
  ///                           face's stored normal, otherwise by the normal that follows from the coordinates.
  /// @param option  1: list the polygons' edges (TriangleMesh::edgePairs); 2: append each line of the mesh as a
  /// triangle
  ///                (first, second, second corner); anything else: neither
  /// @return never null; the caller owns the result
  /// @throws std::invalid_argument where `vertexCoordinates` does not hold three values per vertex
  /// @throws std::runtime_error "illegal hole index." where the hole group of a face has no end or names a face that
  /// does not
  ///         exist
  /// @throws std::runtime_error "Triangulator: not enough space for combined vertices!" where one face needs more than
  ///         512 additional vertices because contours cross or touch
  /// O(vertices), plus O(e w) per face, where e counts corners and crossings and w is the largest number of edges that
  /// a line across the face meets. The error about too many vertices comes only after all crossings of the face, at
  /// most its corners squared, have been computed.
  TriangleMesh* triangulate(const Mesh& mesh, std::vector<double> vertexCoordinates, int option);

  // Internal from here on.

  /// The same with further values per vertex; additional vertices get weighted sums of them. The arrays' indices and
  /// edge pairs are ignored.
  /// @throws std::invalid_argument also where a further array is present but does not have one entry per vertex
  FACETBOX_LOCAL TriangleMesh* triangulate(const Mesh& mesh, TriangleMeshArrays&& arrays, int option,
                                           const TriangleMeshFactory& factory);

  /// Returns the triangles as faces of a polygon mesh, with the normals of their source faces; no holes, material runs
  /// or texture coordinates.
  /// @param sourceFaces  receives the source face of each triangle; may be null
  FACETBOX_LOCAL std::unique_ptr<Mesh> triangulateToFaces(const Mesh& mesh, std::vector<std::uint32_t>* sourceFaces);

 private:
  struct FACETBOX_LOCAL State;
  std::unique_ptr<State> mState;
};

}  // namespace util
