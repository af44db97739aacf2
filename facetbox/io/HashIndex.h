#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace facetbox {

/// Finds equal ones among numbered things that lie elsewhere: numbers and hashes in one flat table, linear probing.
class HashIndex {
 public:
  /// The number of the thing that is equal, or else `number`, which is entered.
  /// @param isEqual  asked with numbers that have been entered, whose hash is the same
  template <typename IsEqual>
  std::uint32_t findOrAdd(std::uint32_t hash, std::uint32_t number, const IsEqual& isEqual) {
    if (isFull(mUsed + 1)) grow(2 * (mUsed + 8));
    std::size_t at = hash & mMask;
    for (; mSlots[at].number != kFree; at = (at + 1) & mMask)
      if (mSlots[at].hash == hash && isEqual(mSlots[at].number)) return mSlots[at].number;
    mSlots[at] = {hash, number};
    ++mUsed;
    return number;
  }

  /// Room for that many, so that no entry moves.
  void reserve(std::size_t count) {
    if (isFull(count)) grow(count);
  }

 private:
  static constexpr std::uint32_t kFree = 0xFFFFFFFFu;
  struct Slot {
    std::uint32_t hash = 0, number = kFree;
  };

  // One slot in five is free at least.
  bool isFull(std::size_t count) const { return 5 * count > 4 * mSlots.size(); }

  void grow(std::size_t count) {
    std::size_t size = 16;
    while (4 * size < 5 * count) size *= 2;
    std::vector<Slot> old(size);
    mSlots.swap(old);
    mMask = size - 1;
    for (const Slot& slot : old) {
      if (slot.number == kFree) continue;
      std::size_t at = slot.hash & mMask;
      while (mSlots[at].number != kFree) at = (at + 1) & mMask;
      mSlots[at] = slot;
    }
  }

  std::vector<Slot> mSlots;
  std::size_t mMask = 0, mUsed = 0;
};

/// A hash of numbers by their bits, good in all of them.
inline std::uint32_t hashOf(const std::uint64_t* words, std::size_t count) {
  std::uint64_t hash = 0;
  for (std::size_t i = 0; i < count; ++i) {
    hash = (hash ^ words[i]) * 0x9E3779B97F4A7C15u;
    hash ^= hash >> 32;
  }
  return static_cast<std::uint32_t>(hash ^ (hash >> 29));
}

}  // namespace facetbox
