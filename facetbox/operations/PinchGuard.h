#pragma once

#include <facetbox/mesh/PrimitiveList.h>
#include <facetbox/operations/VertexGroups.h>

namespace util {

/// Keeps welding from pinching faces of more than three corners into loops: takes vertices out of their groups until no
/// such face would be.
///
/// The rule is one of repeated passes over the faces, until a pass changes nothing. In a pass each face in turn, and
/// for it each group that has more than one, but not nearly all (all or all but one) of its corners: a corner stands
/// alone when neither of its neighbors in the face is in the group. Going around the face from the first corner that
/// is not in the group, the first one that stands alone leaves the group, and so do all of the group behind it.
///
/// O(n log n) in the corners of the faces concerned, however many passes that would be; nothing but a look at each face
/// where none is.
void guardAgainstPinches(const PrimitiveList& faces, VertexGroups& groups, Monitor* monitor = nullptr);

}  // namespace util
