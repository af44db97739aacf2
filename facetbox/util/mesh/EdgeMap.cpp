#include <facetbox/util/mesh/EdgeMap.h>

#include <algorithm>
#include <optional>

#include <facetbox/util/mesh/EdgeBuckets.h>

namespace util {
namespace {

struct EdgeUse {
  std::uint32_t mHigh;
  std::uint32_t mPosition;  ///< of the corner in the pool

  std::uint32_t high() const { return mHigh; }
};

/// Finds for every use in a bucket (uses in walk order) the first use of the same edge; calls `found(use, first)`.
template <class Found>
void matchBucket(std::span<EdgeUse> bucket, Found found) {
  if (bucket.size() < EdgeBuckets<EdgeUse>::kSortFrom) {
    for (std::size_t i = 0; i < bucket.size(); ++i) {
      std::size_t first = 0;
      while (bucket[first].mHigh != bucket[i].mHigh) ++first;
      found(bucket[i].mPosition, bucket[first].mPosition);
    }
    return;
  }
  // Stable, so that the first use of an edge leads. Its position would not tell: records may have moved in the pool.
  std::ranges::stable_sort(bucket, {}, &EdgeUse::mHigh);
  for (std::size_t i = 0, first = 0; i < bucket.size(); ++i) {
    if (bucket[i].mHigh != bucket[first].mHigh) first = i;
    found(bucket[i].mPosition, bucket[first].mPosition);
  }
}

}  // namespace

EdgeMap buildEdgeMap(const PrimitiveList& faces, std::size_t vertexCount, const std::vector<bool>* marked,
                     EdgeMask mode) {
  EdgeMap map;
  // The edges that the mask lets through.
  const auto walk = [&](auto use) {
    forEachEdge(faces, [&](std::uint32_t face, std::uint32_t position, std::uint32_t a, std::uint32_t b) {
      if (marked) {
        const int ends = int{(*marked)[a]} + int{(*marked)[b]};
        if (ends < (mode == EdgeMask::bothEndsMarked ? 2 : 1)) return;
      }
      use(face, position, a, b);
    });
  };

  std::optional<EdgeBuckets<EdgeUse>> buckets(
      std::in_place, vertexCount, walk, [](std::uint32_t, std::uint32_t position, std::uint32_t a, std::uint32_t b) {
        return EdgeUse{std::max(a, b), position};
      });
  // For now: the position of the first use of the same edge.
  map.mEdgeOfCorner.resize(faces.poolSize(), EdgeMap::kNone);
  std::size_t edgeCount = 0;
  buckets->forEach([&](std::span<EdgeUse> bucket) {
    matchBucket(bucket, [&](std::uint32_t use, std::uint32_t first) {
      map.mEdgeOfCorner[use] = first;
      if (use == first) ++edgeCount;
    });
  });
  const std::size_t useCount = buckets->useCount();
  buckets.reset();

  // Number the edges in walk order: the first use of an edge is met before the others.
  map.mEdges.reserve(edgeCount);
  map.mReversed.reserve(edgeCount);
  map.mFaceOffsets.resize(edgeCount + 1, 0);
  walk([&](std::uint32_t, std::uint32_t position, std::uint32_t a, std::uint32_t b) {
    std::uint32_t& edge = map.mEdgeOfCorner[position];
    if (edge == position) {
      edge = static_cast<std::uint32_t>(map.mEdges.size());
      map.mEdges.push_back({std::min(a, b), std::max(a, b)});
      map.mReversed.push_back(a >= b ? 1 : 0);
    } else {
      edge = map.mEdgeOfCorner[edge];
    }
    ++map.mFaceOffsets[edge];
  });

  // Offsets from counts, from the back, so that filling from the back as well leaves them in place.
  std::uint32_t total = 0;
  for (std::size_t e = 0; e < edgeCount; ++e) map.mFaceOffsets[e] = total += map.mFaceOffsets[e];
  map.mFaceOffsets[edgeCount] = total;
  map.mFaces.resize(useCount);
  for (std::size_t face = faces.size(); face-- > 0;)
    for (std::size_t i = faces.cornerCount(face); i-- > 0;) {
      const std::uint32_t edge = map.mEdgeOfCorner[faces.offset(face) + i];
      if (edge != EdgeMap::kNone) map.mFaces[--map.mFaceOffsets[edge]] = static_cast<std::uint32_t>(face);
    }
  return map;
}

}  // namespace util
