#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/mesh/MeshStorage.h>

namespace util {

/// A face that is about to go, and the unit that it goes with: a face and its holes, say.
struct GoingFace {
  std::uint32_t face, unit;
};

/// Finds the units that have to stay so that the mesh does not open. Units of which all faces may stay, and that have
/// edges in common, stay or go as one; they stay where more edges would be used exactly once without them than with
/// them.
///
/// A needle between larger faces stays so: its long side is an edge of one of them, its short ones of others. So does a
/// wall that welding has made flat: one of its sides alone would have a border.
/// @param going    each face once
/// @param mayStay  per unit; the others go anyway
/// @return per unit whether it stays
/// O(corners), and O(n log n) in the corners of the faces that go.
std::vector<bool> findUnitsToKeep(const MeshStorage& mesh, std::span<const GoingFace> going,
                                  const std::vector<bool>& mayStay);

}  // namespace util
