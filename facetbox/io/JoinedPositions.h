#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <facetbox/io/HashIndex.h>

namespace facetbox {

/// Numbers positions as they come up: the same position, the same number. -0 is 0.
class JoinedPositions {
 public:
  /// @param points  x, y, z per number; a new position is put at its end. Empty, and nobody else's meanwhile
  explicit JoinedPositions(std::vector<double>& points) : mPoints(points) {}

  std::uint32_t operator()(double x, double y, double z) {
    const std::array<double, 3> position = {x + 0.0, y + 0.0, z + 0.0};  // adding 0 turns -0 into 0
    const auto words = std::bit_cast<std::array<std::uint64_t, 3>>(position);
    const auto next = static_cast<std::uint32_t>(mPoints.size() / 3);
    const std::uint32_t number = mIndex.findOrAdd(hashOf(words.data(), words.size()), next, [&](std::uint32_t known) {
      return std::equal(position.begin(), position.end(), &mPoints[3 * std::size_t{known}]);
    });
    if (number == next) mPoints.insert(mPoints.end(), position.begin(), position.end());
    return number;
  }

 private:
  std::vector<double>& mPoints;
  HashIndex mIndex;
};

}  // namespace facetbox
