#pragma once

#include <compare>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/FaceComparison.h>

namespace util {

/// A face that goes because it repeats another: the vertex at which the definition compares the two first, the face
/// that stays and the one that goes (the same where a face repeats itself).
struct DoubleFace {
  std::uint32_t vertex, kept, cleared;
  /// The order in which the definition comes to them.
  friend auto operator<=>(const DoubleFace&, const DoubleFace&) = default;
};

/// The faces that removeFacesDouble() removes as doubles, in no particular order.
std::vector<DoubleFace> findDoubleFaces(const MeshStorage& mesh, const DoubleFaceRule& rule);

/// Whether some of `faces` may have doubles: false where there are none for certain. Only without hole groups, and by
/// a rule that compares no face with itself. O(vertices + corners): gives up, with true, where very many faces have one
/// lowest vertex.
bool mayHaveDoubles(const MeshStorage& mesh, std::span<const std::uint32_t> faces);

}  // namespace util
