#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
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

/// Another hash in every process: nobody can make up a file whose numbers all have the same one. What comes out of a
/// table must not depend on it.
class HashSeed {
 public:
  /// Takes one more word into a hash that begins with start(). Good in all bits.
  std::uint64_t mix(std::uint64_t hash, std::uint64_t word) const {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
    hash ^= hash >> 32;
    hash *= mFactor;  // hides how a difference in one word could be made up for by the next
    return hash ^ hash >> 29;
  }
  std::uint64_t start() const { return mStart; }

  static const HashSeed& ofProcess() {
    static const HashSeed seed;
    return seed;
  }

 private:
  HashSeed() {
    std::random_device device;
    const auto draw = [&device] { return std::uint64_t{device()} << 32 | device(); };
    mStart = draw();
    mFactor = draw() | 1;  // odd: no bit is lost
  }

  std::uint64_t mStart, mFactor;
};

/// A hash of numbers by their bits, good in all of them.
inline std::uint32_t hashOf(const std::uint64_t* words, std::size_t count) {
  const HashSeed& seed = HashSeed::ofProcess();
  std::uint64_t hash = seed.start();
  for (std::size_t i = 0; i < count; ++i) hash = seed.mix(hash, words[i]);
  return static_cast<std::uint32_t>(hash ^ hash >> 32);
}

}  // namespace facetbox
