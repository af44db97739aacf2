#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>

#include <facetbox/base/Buffer.h>

namespace util {

/// What becomes of the record numbers when some records are dropped and the others close up in order.
class FaceRenumbering {
 public:
  explicit FaceRenumbering(std::size_t faceCount) { mRanks.reserve(faceCount); }

  /// Says of the next record, in index order, whether it is kept.
  void add(bool kept) {
    assert(mRanks.size() < kGoneBit);
    mRanks.push_back(kept ? mKept : mKept | kGoneBit);
    if (kept) ++mKept;
  }

  /// Number of records before the renumbering.
  std::size_t size() const { return mRanks.size(); }
  bool isGone(std::uint32_t oldIndex) const { return (mRanks[oldIndex] & kGoneBit) != 0; }
  /// Number of kept records before the record: its new index when it is kept itself.
  std::uint32_t rank(std::uint32_t oldIndex) const { return mRanks[oldIndex] & ~kGoneBit; }

 private:
  static constexpr std::uint32_t kGoneBit = 0x80000000u;  // record numbers come from signed 32-bit counts

  Buffer<std::uint32_t> mRanks;
  std::uint32_t mKept = 0;
};

}  // namespace util
