#include <facetbox/util/mesh/EdgeTwins.h>

#include <algorithm>
#include <span>
#include <tuple>

namespace util {
namespace {

/// One use of an edge, in the bucket of its lower vertex.
struct EdgeUse {
  static constexpr std::uint32_t kReversedBit = 0x80000000u;

  std::uint32_t highAndDirection;  ///< higher vertex; the top bit tells that the use runs from it to the lower one
  std::uint32_t position;          ///< of the corner in the pool

  std::uint32_t high() const { return highAndDirection & ~kReversedBit; }
};

constexpr std::size_t kSortFrom = 24;  // below it, looking through the bucket is cheaper than sorting it

class TwinMatcher {
 public:
  explicit TwinMatcher(EdgeTwins& twins) : mTwins(twins) {}

  void matchBucket(std::span<EdgeUse> bucket) {
    if (bucket.size() < kSortFrom) {
      matchByLooking(bucket);
      return;
    }
    std::ranges::sort(bucket, {}, [](const EdgeUse& use) { return std::pair(use.high(), use.position); });
    for (auto begin = bucket.begin(); begin != bucket.end();) {
      const auto end =
          std::find_if(begin, bucket.end(), [&](const EdgeUse& use) { return use.high() != begin->high(); });
      if (end - begin == 2) match(begin[0], begin[1]);
      begin = end;
    }
  }

 private:
  void matchByLooking(std::span<const EdgeUse> bucket) {
    for (std::size_t i = 0; i < bucket.size(); ++i) {
      std::size_t other = i, useCount = 0;
      for (std::size_t j = 0; j < bucket.size(); ++j) {
        if (bucket[j].high() != bucket[i].high()) continue;
        ++useCount;
        if (j != i) other = j;
      }
      if (useCount == 2 && i < other) match(bucket[i], bucket[other]);
    }
  }

  void match(const EdgeUse& a, const EdgeUse& b) {
    const bool runOpposite = ((a.highAndDirection ^ b.highAndDirection) & EdgeUse::kReversedBit) != 0;
    if (!runOpposite || mTwins.mFaceOf[a.position] == mTwins.mFaceOf[b.position]) return;
    mTwins.mTwinOf[a.position] = b.position;
    mTwins.mTwinOf[b.position] = a.position;
  }

  EdgeTwins& mTwins;
};

}  // namespace

EdgeTwins findEdgeTwins(const PrimitiveList& faces, std::size_t vertexCount) {
  EdgeTwins twins;
  twins.mTwinOf.resize(faces.poolSize(), EdgeTwins::kNone);
  twins.mFaceOf.resize(faces.poolSize());

  // Counting sort of the edge uses by their lower vertex.
  Buffer<std::uint32_t> bucketEnds(vertexCount + 1, 0);
  for (std::size_t face = 0; face < faces.size(); ++face) {
    const auto corners = faces.corners(face);
    if (corners.empty()) continue;
    std::fill_n(twins.mFaceOf.begin() + static_cast<std::ptrdiff_t>(faces.offset(face)), corners.size(),
                static_cast<std::uint32_t>(face));
    std::uint32_t previous = corners.back();
    for (const std::uint32_t v : corners) {
      ++bucketEnds[std::min(previous, v) + 1];
      previous = v;
    }
  }
  for (std::size_t v = 1; v <= vertexCount; ++v) bucketEnds[v] += bucketEnds[v - 1];
  Buffer<EdgeUse> uses(bucketEnds[vertexCount]);
  // Filling moves the start of bucket v, kept in bucketEnds[v], to its end.
  for (std::size_t face = 0; face < faces.size(); ++face) {
    const auto corners = faces.corners(face);
    auto position = static_cast<std::uint32_t>(faces.offset(face));
    for (std::size_t i = 0; i < corners.size(); ++i, ++position) {
      const std::uint32_t a = corners[i], b = corners[i + 1 == corners.size() ? 0 : i + 1];
      uses[bucketEnds[std::min(a, b)]++] = {a < b ? b : a | EdgeUse::kReversedBit, position};
    }
  }

  TwinMatcher matcher(twins);
  for (std::size_t v = 0, begin = 0; v < vertexCount; begin = bucketEnds[v++])
    matcher.matchBucket(std::span(uses).subspan(begin, bucketEnds[v] - begin));
  return twins;
}

}  // namespace util
