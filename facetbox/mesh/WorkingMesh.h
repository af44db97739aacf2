#pragma once

#include <algorithm>
#include <memory>

#include <facetbox/PolyMesh.h>
#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/MeshHistory.h>
#include <facetbox/util/Mesh.h>

namespace util {

/// Where a mesh stands while it is worked on, so that results do not depend on its place and unit.
///
/// From each coordinate the origin is taken, which is not zero only on axes where that is exact: where all used
/// coordinates lie between one number and twice that number. Elsewhere the mesh is at least half as large as it is far
/// out, and nothing is to be gained. The rest is multiplied by a power of two, which is exact as well unless a
/// coordinate is 1e-300 of the mesh's size: the longest side of the box is at least 1 and below 2 then, and no used
/// coordinate beyond 4.
struct MeshFrame {
  Vec3 origin{0, 0, 0};
  double scale = 1;
  /// Of the box around the vertices that faces use; in the frame.
  double diagonal = 0;
  /// Whether a face of three corners and more has a corner that repeats the one before it, cyclically: not of the
  /// frame, but found on the way.
  bool hasRepeats = false;

  /// Vertices that no face uses may lie anywhere: those that are very far out come nearer, so that nothing overflows.
  Vec3 toFrame(const Vec3& p) const {
    constexpr double kFarOut = 1e100;
    const Vec3 q = scale * (p - origin);
    return {std::clamp(q.x, -kFarOut, kFarOut), std::clamp(q.y, -kFarOut, kFarOut), std::clamp(q.z, -kFarOut, kFarOut)};
  }
  /// The inverse, up to rounding where the point is none of the mesh.
  Vec3 fromFrame(const Vec3& p) const { return p / scale + origin; }
};

/// The frame of a mesh by the vertices of its faces of three corners and more. The mesh must be valid.
/// O(vertices + corners).
MeshFrame frameOf(const facetbox::MeshView& mesh, Monitor* monitor = nullptr);

/// The vertices of a mesh in its frame. `monitor` may be null.
void readVertices(const facetbox::MeshView& mesh, const MeshFrame& frame, Monitor* monitor, Buffer<Vec3>& vertices);

/// A valid mesh in its frame, ready for the operations but for the normals of its faces: recomputeFaceNormals(). Faces
/// of fewer than three corners are left out (and then the vertices that no face uses), labels become material runs,
/// hole groups stand as given.
/// @param history  follows the mesh from now on, unless null; made for its vertices and faces
/// @param monitor  is asked from now on, unless null
std::unique_ptr<Mesh> makeWorkingMesh(const facetbox::MeshView& mesh, const MeshFrame& frame, MeshHistory* history,
                                      Monitor* monitor = nullptr);

/// The result for a working mesh that `history` has followed: its vertices are the input's, bit for bit, and so are the
/// texture coordinates, all of them.
facetbox::PolyMesh toPolyMesh(const Mesh& mesh, const facetbox::MeshView& input, const MeshHistory& history);

}  // namespace util
