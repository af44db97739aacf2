#pragma once

#include <cstdint>
#include <span>

#include <facetbox/mesh/HoleTable.h>
#include <facetbox/mesh/MeshStorage.h>

namespace util {

/// Clears a face and all of its holes. The hole table stays as it is: compactPrimitives() lets it follow.
/// @param groups  what groupsByOuter() returned
void clearFaceAndHoles(MeshStorage& mesh, std::uint32_t face, std::span<const HoleTable::Group> groups);

/// Clears the holes whose outer face is cleared and those that do not lie strictly inside their outer face.
/// @return whether there were any. About O(n log n) in the corners of a group.
bool clearMisplacedHoles(MeshStorage& mesh);

}  // namespace util
