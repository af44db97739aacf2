#pragma once

#include <cstddef>
#include <cstdint>

#include <facetbox/mesh/PrimitiveList.h>
#include <facetbox/util/Mesh.h>

namespace util {

/// The steps that bring a mesh back into order after an operation has cleared or edited records.

/// Discards what is derived from the mesh. To be called after every change.
void clearConnectivityCache(Mesh& mesh);

/// Removes vertex indices that repeat their predecessor, cyclically; a record left with fewer than three is cleared.
///
/// A run of equal indices becomes one corner with the texture-coordinate indices of its first, but the normal index and
/// the outgoing-edge index of its last: those describe the edge that leaves the corner.
/// @return whether the record was changed. O(corners).
bool removeRepeatedIndices(PrimitiveList& faces, std::size_t face);

/// Removes repeated indices from every face, then clears the holes that are no longer strictly inside their outer
/// face or whose outer face is gone, then compacts.
/// @return whether any face was changed. O(corners), and for the hole test about O(n log n) in the corners of a group.
bool sanitizeFaces(Mesh& mesh);

/// Drops the cleared records of the active list. The others keep their order; hole groups and material runs follow.
/// A run start at or beyond the old record count stays as it is. O(records + corners).
void compactPrimitives(Mesh& mesh);

/// Drops the vertices that no face, line or point uses; the others keep their order.
/// @return number of vertices dropped. O(vertices + corners).
std::size_t removeUnusedVertices(Mesh& mesh);

/// The end of most operations: drops the cleared records and the vertices that no record uses any more, and discards
/// what is derived from the mesh. O(records + corners + vertices).
void compactMesh(Mesh& mesh);

/// Recomputes the stored normal of every face. O(corners).
void recomputeFaceNormals(Mesh& mesh);

}  // namespace util
