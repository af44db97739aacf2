#pragma once

#include <cstdint>

#include <facetbox/util/Mesh.h>

namespace util {

struct HoleAssignmentCounts {
  std::uint64_t mDroppedEntries = 0;  ///< entries of the hole list that validation took out
  std::uint64_t mClearedHoles = 0;    ///< hole faces that were deleted
  std::uint64_t mLargeGroups = 0;     ///< groups searched by octrees whose faces all have one dominant axis
};

/// Checks the hole list against the geometry: what it still says afterwards is true.
///
/// The list is validated (HoleTable::validate). Then, group by group and hole by hole in list order, a hole face is
/// deleted when it does not lie strictly inside its outer face or has a corner closer to one of the outer face's
/// corners than the gap of the mesh's limits, or when it overlaps or touches an earlier hole of its group that was
/// kept. Faces are seen along the dominant axes of their stored normals; see HolePlacement for the tests. A hole of
/// several outer faces has to pass for each of them. The holes of a face that was itself deleted as a hole of an
/// earlier group are deleted.
///
/// Large groups are searched by octrees, with the same result: where the mesh has at least 101 vertices or the list
/// at least 21 entries, groups of at least 21 holes or an outer face of at least 101 corners.
///
/// When a hole was deleted, the mesh is compacted and loses the vertices that no face uses.
/// About O(n log n) in the number of corners of a group, linear in the number of groups. What is left to be compared
/// wherever boxes meet are holes with different dominant axes; a hole of very many corners then costs each of those
/// that its box meets a look at all of its corners.
HoleAssignmentCounts assignHoles(Mesh& mesh);

}  // namespace util
