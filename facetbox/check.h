#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include <facetbox/Cancelled.h>
#include <facetbox/PolyMesh.h>
#include <facetbox/util/Export.h>

namespace facetbox {

/// What check() looks for. Lengths are in the mesh's unit; a negative one and NaN count as 0. The defaults follow the
/// mesh: D is the diagonal of Defects::boxMin and boxMax.
struct CheckOptions {
  double zeroEdgeLength = 0;              ///< edges are zero up to this; 0: only where both ends are at one place
  std::optional<double> zeroFaceArea;     ///< faces are zero up to this; default: 1e-12 D^2
  std::optional<double> tCornerDistance;  ///< of a T-corner from the edge, at most; default: 1e-6 D
  bool tCorners = true;            ///< the one list that takes long in a soup of edges that reach all across the mesh
  bool selfIntersections = false;  ///< the one list that costs much more than the others in any mesh
  /// Of T-corners, and of intersecting pairs: their number is not bounded by the size of the mesh. Where there are
  /// more, that many are listed, the same ones each time.
  std::size_t mostListed = 1'000'000;
  /// Told how much is done, from 0 to 1. Called on the thread of the call, at most some fifty times a second.
  std::function<void(double fraction)> progress = {};
  /// Asked on the thread of the call: true ends it with Cancelled. Up to a million corners, no more than 0.1 s pass
  /// between two questions, but for a single face that takes longer to triangulate; beyond, as much longer as it takes
  /// to sort more.
  std::function<bool()> isCancelled = {};
};

/// What is wrong with a mesh, and where. Numbers of faces and vertices are those of the mesh; lists are ascending.
///
/// Left out are faces below three corners and the holes of such faces: they count nowhere else.
///
/// A face with holes is one surface. The rims of its holes are edges of it and run opposite to its own outline,
/// whatever the winding of the hole faces; hole areas are taken off, and hole faces count as no surface of their own. A
/// hole is taken at its word here, also where `droppedHoles` says that it is none.
struct Defects {
  using Pair = std::array<std::uint32_t, 2>;
  struct Corner {
    std::uint32_t face, corner;  ///< counted within the face
    friend bool operator==(const Corner&, const Corner&) = default;
  };
  struct TCorner {
    Pair edge;  ///< lower vertex first
    std::uint32_t vertex;
    friend bool operator==(const TCorner&, const TCorner&) = default;
  };

  /// Vertices at the place of a lower one, exactly: the lowest vertex of the place and the other one. So the vertices
  /// of one place follow each other, and the list is never longer than there are vertices.
  std::vector<Pair> sameVertices;
  std::vector<std::uint32_t> unusedVertices;  ///< no face names them, or only faces that are left out
  std::vector<std::uint32_t> leftOutFaces;

  std::vector<Corner> zeroEdges;               ///< where the edge begins
  std::vector<std::uint32_t> zeroFaces;        ///< by the area within the face's own outline, holes or not
  std::vector<std::uint32_t> repeatedCorners;  ///< faces that name a vertex twice
  /// Faces with the same corners in the same cyclic order or in the reversed one: the lowest and another one. Hole
  /// faces are not compared: a hole may be filled.
  std::vector<Pair> doubleFaces;

  // Edges, as pairs of vertices with the lower one first. A use is a face that has the edge, or one more time that it
  // does. Edges from a vertex to itself are none.
  std::vector<Pair> openEdges;           ///< one use
  std::vector<Pair> overusedEdges;       ///< more than two
  std::vector<Pair> sameDirectionEdges;  ///< two uses, both in one direction
  /// Vertices that lie inside an open edge: at most CheckOptions::tCornerDistance from it, and farther than this from
  /// both ends, along the edge. Only vertices that are used.
  std::vector<TCorner> tCorners;
  bool areTCornersComplete = true;  ///< false: there are more than CheckOptions::mostListed

  std::vector<DroppedHole> droppedHoles;  ///< holes that clean() would drop before its first step, and why

  /// Per face the number of its component, or kNone where the face is left out. Faces that have an edge in common are
  /// of one component, a hole is of that of its outer face. Components are numbered by their lowest faces.
  std::vector<std::uint32_t> components;
  std::uint32_t componentCount = 0;

  bool isClosed = false;    ///< there are faces, and all edges are used twice
  bool isOriented = false;  ///< no edge of two uses has both in one direction

  /// Of all faces; of a face, the length of its area vector, which is the area where the face is flat.
  double area = 0;
  /// Positive where faces are counterclockwise seen from outside. The volume of a mesh that is closed and oriented;
  /// without this, a sum of pyramids over boxMin. A face that is not flat counts as a fan from its first corner.
  double volume = 0;
  /// Of all vertices that are used; 0 where there are none.
  std::array<double, 3> boxMin{}, boxMax{};

  /// Pairs of faces, lower face first, that meet elsewhere than in what they share; only on demand. See check().
  std::vector<Pair> selfIntersections;
  bool areSelfIntersectionsComplete = true;  ///< false: there are more than CheckOptions::mostListed
};

/// Finds what is wrong with a mesh.
///
/// Independent of place and unit: a mesh that is scaled by a power of two, or moved without rounding, has the same
/// lists, and area, volume and box are scaled or moved exactly (but for the rounding of points at which an outline
/// crosses itself, which may touch the intersections of such a face). The same bits with each compiler and processor.
///
/// Self-intersections are decided exactly, without a tolerance. Faces count as the triangles that triangulate() cuts
/// them into; a triangle without area is the segment or the point that its corners span, other faces without area are
/// nothing. Two triangles of different faces meet elsewhere than in what they share if their intersection has an area,
/// or is more than the hull of the corners that they share by number. (A corner of one triangle that lies in the other
/// counts as shared if both faces name it.) So neighbors do not intersect unless one is folded onto the other; to touch
/// at a vertex or an edge that only has the same place is to meet; double faces intersect. A face is listed as a pair
/// with itself where it cannot be cut without making a point, or not at all for too many crossings: where its outline
/// crosses or touches itself or a hole's between corners. Points that are made there are rounded.
///
/// @throws InvalidMesh where validate() finds a fatal problem
/// @throws Cancelled   when options.isCancelled says so
/// Exceptions of the callbacks pass through.
/// O(n log n) in corners, and what a search along each open edge passes: little in most meshes, some multiple of the
/// cube root of the corners for each in a soup of long edges. Self-intersections take besides the time of triangulate()
/// and the pairs of triangles whose boxes meet. About 100 bytes a corner while it works, about 160 a triangle for
/// self-intersections.
FACETBOX_EXPORT Defects check(const MeshView& mesh, const CheckOptions& options = {});

/// What tells at a glance whether a mesh is still what it was. Each is what Defects says of it.
struct Measures {
  std::size_t openEdges = 0;
  bool isClosed = false, isOriented = false;
  double area = 0;
  double volume = 0;  ///< of a mesh that is closed and oriented; else it depends on the box
  friend bool operator==(const Measures&, const Measures&) = default;
};

/// Measures a mesh, without looking for anything else.
/// @throws InvalidMesh where validate() finds a fatal problem
/// O(vertices + corners) and sorting around single vertices.
FACETBOX_EXPORT Measures measure(const MeshView& mesh);

}  // namespace facetbox
