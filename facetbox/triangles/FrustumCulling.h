#pragma once

#include <cstddef>

#include <facetbox/math/Box.h>
#include <facetbox/util/TriangleMesh.h>

namespace util {

// Frustum culling: objects against the view volume, which is the cube from (-1, -1, -1) to (1, 1, 1) in clip space. `c`
// always leads the whole way there, view projection times the object's own matrix: 16 doubles, column-major. A vertex
// (x, y, z) goes to
//   ((c0 x + c4 y + c8 z + c12) / w, (c1 x + ...) / w, (c2 x + ...) / w)   with   w = |c3 x + c7 y + c11 z + c15|.
// It is the absolute value on purpose: points behind the eye are mirrored into view instead of rejected.

/// Whether a triangle of the mesh, its corners projected, overlaps the cube. A vertex whose w is not above 1e-25 goes
/// to (0, 0, 0). No triangles: no. O(vertices + triangles).
bool overlapsClipCubePlain(const TriangleMesh& mesh, const double c[16]);

/// Whether all vertices of the mesh, those of no triangle included, project into the closed cube. A vertex whose w is
/// not above 1e-25 stays where the vertex before it went, the first at (0, 0, 0). No vertices: yes. O(vertices).
bool liesInClipCubePlain(const TriangleMesh& mesh, const double c[16]);

/// Meshes of up to so many vertices get the plain tests: to project them all is faster than to bound any.
inline constexpr std::size_t kFewVertices = 16;

/// The same answers, where the mesh has a hierarchy by deciding whole subtrees that lie inside or outside.
/// O(log triangles) for most meshes and volumes, never much more than the plain loops.
bool overlapsClipCube(const TriangleMesh& mesh, const double c[16]);
bool liesInClipCube(const TriangleMesh& mesh, const double c[16]);

enum class ClipSide { inside, outside, unsure };

/// What can be told from a box around an object, in its own coordinates, without looking at it.
///
/// inside:  every vertex within projects into the cube, so that every triangle overlaps it
/// outside: every vertex within projects beyond the same face of the cube, so that no triangle overlaps it
///
/// A box that is empty or not finite leaves one unsure. O(1).
ClipSide sideOfClipCube(const Box& box, const double c[16]);

}  // namespace util
