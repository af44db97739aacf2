#pragma once

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>

namespace util {

/// A hash that double faces have in common: a sum over the undirected edges, in which neither the first corner nor the
/// direction matters. Other faces rarely share it, but may.
inline std::uint32_t faceHash(std::span<const std::uint32_t> corners) {
  assert(!corners.empty());
  std::uint64_t sum = 0;
  std::uint32_t from = corners.back();
  for (const std::uint32_t to : corners) {
    // Odd constants: the fractional parts of the golden ratio and of the square root of 3.
    std::uint64_t edge = std::uint64_t{std::max(from, to)} << 32 | std::min(from, to);
    edge *= 0x9E3779B97F4A7C15u;
    edge ^= edge >> 32;
    sum += edge * 0xBB67AE8584CAA73Bu;
    from = to;
  }
  return static_cast<std::uint32_t>(sum >> 32);
}

/// A set of hashes that knows which were added more than once: always right about those, rarely wrong about the others.
class RepeatedHashes {
 public:
  explicit RepeatedHashes(std::size_t count)
      : mWords(std::bit_ceil(count / 2 + 1), 0), mShift(32 - std::bit_width(mWords.size() - 1)) {}

  void add(std::uint32_t hash) {
    std::uint64_t& word = wordOf(hash);
    const std::uint64_t once = onceBit(hash);
    word |= once | (word & once) << 32;
  }
  void addTwice(std::uint32_t hash) { wordOf(hash) |= onceBit(hash) | onceBit(hash) << 32; }
  bool mayRepeat(std::uint32_t hash) { return (wordOf(hash) >> 32 & onceBit(hash)) != 0; }

 private:
  std::uint64_t& wordOf(std::uint32_t hash) { return mWords[std::uint64_t{hash} >> mShift]; }
  static std::uint64_t onceBit(std::uint32_t hash) { return std::uint64_t{1} << (hash & 31); }

  Buffer<std::uint64_t> mWords;  // 32 slots each: low half for added, high half for added again; 16 to 32 per hash
  int mShift;
};

/// Faces in buckets of equal hash; the faces of a bucket are ascending. O(faces) expected, O(n log n) at worst.
class FaceBuckets {
 public:
  /// @param faces   ascending
  /// @param hashes  of all faces, addressed by face
  FaceBuckets(const Buffer<std::uint32_t>& faces, const Buffer<std::uint32_t>& hashes, Monitor* monitor = nullptr);

  /// The faces, bucket after bucket.
  std::span<std::uint32_t> faces() { return mFaces; }
  /// Per bucket, where it ends among them.
  std::span<const std::uint32_t> ends() const { return mEnds; }

 private:
  bool fillByTable(const Buffer<std::uint32_t>& faces, const Buffer<std::uint32_t>& hashes, Monitor* monitor);
  void fillBySorting(const Buffer<std::uint32_t>& faces, const Buffer<std::uint32_t>& hashes);

  Buffer<std::uint32_t> mFaces, mEnds;
};

}  // namespace util
