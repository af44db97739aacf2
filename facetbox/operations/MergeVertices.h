#pragma once

#include <cstdint>

#include <facetbox/util/Mesh.h>

namespace util {

enum class NormalUpdate { recompute, skip };

/// Welds vertices that lie within `tolerance` of each other.
///
/// Groups: the vertex of lowest index that is in no group yet is a seed and takes every later vertex in no group whose
/// distance to the seed, and to it alone, is at most the tolerance (compared squared, inclusive; the sign is ignored).
/// By a NaN tolerance nothing is near to anything: there are no groups, and no vertex is looked up.
/// The members are replaced by the lowest of the group. Before that, vertices leave their groups where welding would
/// do harm:
/// - a face of more than three corners is not pinched into loops by welding corners that do not follow each other
///   (separate pairs of one group are not taken apart: such a face ends up visiting a vertex twice);
/// - the corners of a hole are not welded to those of its outer face or of an earlier hole of it;
/// - above the large tolerance of the mesh's limits no face ends up visiting a vertex twice or turned over.
///
/// Repeated corners, faces and holes that collapse, and unused vertices go; all face normals are recomputed, also when
/// nothing is merged (unless a caller that has no use for them leaves them as they are). A mesh without faces stays as
/// it is.
///
/// @return number of vertices merged away
/// @throws RuntimeErrorST where a mesh of 1000 vertices or more has a vertex that is not within the tolerance of
///         itself: NaN or infinite coordinates. The mesh is untouched then.
/// O(vertices + corners) expected, O(n log n) in the corners of faces that would be pinched.
std::uint64_t mergeVertices(Mesh& mesh, double tolerance, NormalUpdate normals = NormalUpdate::recompute);

struct Welding {
  std::uint64_t mergedCount = 0;
  bool isComplete = true;  ///< nothing had to be kept apart: no two vertices that can be reached are left
};

/// The same, again and again until nothing more is welded: vertices that had to stay apart may find others then. Does
/// not recompute normals at the end; the guards go by those that are stored.
Welding mergeVerticesRepeatedly(Mesh& mesh, double tolerance);

/// Welds the ends of edges shorter than `threshold`, and of chains of them whose vertices lie within the threshold of
/// the lowest one, in all faces alike: the mesh does not open. The rest as mergeVerticesRepeatedly().
Welding mergeEdgesZero(Mesh& mesh, double threshold);

}  // namespace util
