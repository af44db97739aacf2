#include <facetbox/operations/FaceBuckets.h>

#include <algorithm>
#include <cassert>
#include <utility>

namespace util {
namespace {

/// Open-addressing hash table from a face's hash to the number of its bucket.
class BucketTable {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

  explicit BucketTable(std::size_t faceCount)
      : mSlots(std::bit_ceil(faceCount + faceCount / 2 + 1), {0, kNone}),
        mShift(32 - std::bit_width(mSlots.size() - 1)),
        mStepsLeft(kStepsPerFace * faceCount) {}

  /// The bucket of a hash; `fresh` becomes that of a hash not known yet. kNone where hashes crowd in a few slots: the
  /// table is then to be given up.
  std::uint32_t bucketOf(std::uint32_t hash, std::uint32_t fresh) {
    // The slot that the upper bits name, or the next free one behind.
    std::size_t slot = std::uint64_t{hash} >> mShift;
    while (mSlots[slot].bucket != kNone && mSlots[slot].hash != hash) {
      if (mStepsLeft-- == 0) return kNone;
      slot = slot + 1 == mSlots.size() ? 0 : slot + 1;
    }
    if (mSlots[slot].bucket == kNone) mSlots[slot] = {hash, fresh};
    return mSlots[slot].bucket;
  }

 private:
  /// Faces take one or two steps each. Only hashes crafted to crowd take more than this.
  static constexpr std::size_t kStepsPerFace = 8;

  struct Slot {
    std::uint32_t hash, bucket;
  };

  Buffer<Slot> mSlots;
  int mShift;
  std::size_t mStepsLeft;
};

}  // namespace

FaceBuckets::FaceBuckets(const Buffer<std::uint32_t>& faces, const Buffer<std::uint32_t>& hashes, Monitor* monitor) {
  assert(std::ranges::is_sorted(faces));
  if (!fillByTable(faces, hashes, monitor)) fillBySorting(faces, hashes);
}

/// Buckets in the order of their first faces. False, with nothing done, where hashes crowd.
bool FaceBuckets::fillByTable(const Buffer<std::uint32_t>& faces, const Buffer<std::uint32_t>& hashes,
                              Monitor* monitor) {
  BucketTable table(faces.size());
  Buffer<std::uint32_t> bucketOf;  // parallel to `faces`
  bucketOf.reserve(faces.size());
  for (Monitor::Blocks blocks(monitor, faces.size()); blocks.next();)
    for (std::size_t i = blocks.begin(), end = blocks.end(); i < end; ++i) {
      const auto fresh = static_cast<std::uint32_t>(mEnds.size());
      const std::uint32_t bucket = table.bucketOf(hashes[faces[i]], fresh);
      if (bucket == BucketTable::kNone) {
        mEnds.clear();
        return false;
      }
      if (bucket == fresh) mEnds.push_back(0);
      bucketOf.push_back(bucket);
      ++mEnds[bucket];
    }
  // Counts to starts; filling moves them to the ends.
  std::uint32_t total = 0;
  for (std::uint32_t& end : mEnds) total += std::exchange(end, total);
  mFaces.resize(faces.size());
  for (std::size_t i = 0; i < faces.size(); ++i) mFaces[mEnds[bucketOf[i]]++] = faces[i];
  return true;
}

void FaceBuckets::fillBySorting(const Buffer<std::uint32_t>& faces, const Buffer<std::uint32_t>& hashes) {
  mFaces = faces;
  std::ranges::sort(mFaces, {}, [&](std::uint32_t face) { return std::pair(hashes[face], face); });
  for (std::uint32_t i = 0; i < mFaces.size(); ++i)
    if (i + 1 == mFaces.size() || hashes[mFaces[i]] != hashes[mFaces[i + 1]]) mEnds.push_back(i + 1);
}

}  // namespace util
