#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/picker/Pickable.h>
#include <facetbox/spatial/BoxSet.h>

namespace util {

/// What decides most objects in a view volume, without a look at the object itself.
struct PickableSummary {
  Vec3 center, half;  // of the box in the world
  double magnitude;   // Pickable::magnitude()
  const Pickable* pickable;
  std::uint32_t id;
  bool hasTriangles;
};

/// Summaries in the order in which queries list objects. Pickables lie anywhere in memory, and many do not fit into the
/// caches; a query goes through these from front to back. Each is made when it is first wanted, so that no query has
/// to make them all.
class PickableSummaries {
 public:
  /// Drops the summaries if the boxes have been ranked anew. Called after each query, before anything else.
  void follow(const BoxSet& boxes) {
    if (mRanking == boxes.ranking()) return;
    mIsMade.assign(boxes.ranked() / 64 + 1, 0);
    mByRank.resize(boxes.ranked());
    mRanking = boxes.ranking();
  }

  bool has(std::uint32_t rank) const { return rank != BoxSet::kUnranked && (mIsMade[rank / 64] >> rank % 64 & 1) != 0; }
  const PickableSummary& operator[](std::uint32_t rank) const { return mByRank[rank]; }
  /// To be made, unless has().
  PickableSummary& operator[](std::uint32_t rank) { return mByRank[rank]; }
  void markAsMade(std::uint32_t rank) {
    if (rank != BoxSet::kUnranked) mIsMade[rank / 64] |= std::uint64_t{1} << rank % 64;
  }
  void prefetch(std::uint32_t rank) const {
    __builtin_prefetch(&mByRank[rank]);
    __builtin_prefetch(&mByRank[rank].hasTriangles);
  }

 private:
  Buffer<PickableSummary> mByRank;
  std::vector<std::uint64_t> mIsMade;  // a bit per rank
  std::uint32_t mRanking = 0;
};

}  // namespace util
