#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <facetbox/io/HashIndex.h>

namespace facetbox {

/// Numbers positions as they come up: the same position, the same number. -0 is 0.
class JoinedPositions {
 public:
  /// @param points  x, y, z per number; a new position is put at its end. Empty, and nobody else's meanwhile
  explicit JoinedPositions(std::vector<double>& points) : mPoints(points), mSlots(kFirstSize, kNone) {}

  std::uint32_t operator()(double x, double y, double z) {
    const std::array<double, 3> position = {x + 0.0, y + 0.0, z + 0.0};  // adding 0 turns -0 into 0
    std::uint32_t& slot = find(position);
    if (slot != kNone) return slot;
    const auto number = slot = static_cast<std::uint32_t>(mPoints.size() / 3);
    mPoints.insert(mPoints.end(), position.begin(), position.end());
    if (2 * (std::size_t{number} + 1) > mSlots.size()) grow();
    return number;
  }

 private:
  static constexpr std::size_t kFirstSize = 16;  // slots: a power of two

  // Where the position stands, or would.
  std::uint32_t& find(const std::array<double, 3>& position) {
    std::size_t at = hash(position) & (mSlots.size() - 1);
    for (;; at = (at + 1) & (mSlots.size() - 1)) {
      if (mSlots[at] == kNone) return mSlots[at];
      const double* const known = &mPoints[3 * std::size_t{mSlots[at]}];
      if (known[0] == position[0] && known[1] == position[1] && known[2] == position[2]) return mSlots[at];
    }
  }

  std::size_t hash(const std::array<double, 3>& position) const {
    std::uint64_t mixed = mSeed.start();
    for (const double value : position) mixed = mSeed.mix(mixed, std::bit_cast<std::uint64_t>(value));
    return static_cast<std::size_t>(mixed ^ mixed >> 32);
  }

  void grow() {
    mSlots.assign(mSlots.size() * 2, kNone);
    for (std::uint32_t number = 0; number < mPoints.size() / 3; ++number) {
      const double* const p = &mPoints[3 * std::size_t{number}];
      find({p[0], p[1], p[2]}) = number;
    }
  }

  const HashSeed& mSeed = HashSeed::ofProcess();
  std::vector<double>& mPoints;
  std::vector<std::uint32_t> mSlots;  // at most half full
};

}  // namespace facetbox
