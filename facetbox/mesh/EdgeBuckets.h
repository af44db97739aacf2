#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>
#include <facetbox/mesh/PrimitiveList.h>

namespace util {

/// Calls `use(face, position, a, b)` for every edge of the faces, faces and corners in order: it runs from vertex `a`,
/// at the corner of that pool position, to vertex `b`. The monitor may be null.
template <class Use>
void forEachEdge(const PrimitiveList& faces, Monitor* monitor, Use use) {
  for (Monitor::Blocks blocks(monitor, faces.size()); blocks.next();)
    for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
      const auto corners = faces.corners(face);
      auto position = static_cast<std::uint32_t>(faces.offset(face));
      for (std::size_t i = 0, n = corners.size(); i < n; ++i, ++position)
        use(face, position, corners[i], corners[i + 1 == n ? 0 : i + 1]);
    }
}

/// Uses of edges in buckets by the lower vertex of the edge; within a bucket in the order of the walk. `Use` is what is
/// kept of each, with a member function `high()`: the higher vertex.
template <class Use>
class EdgeBuckets {
 public:
  /// Below this size, looking through a bucket is cheaper than sorting it.
  static constexpr std::size_t kSortFrom = 24;

  /// Counting sort. `walk(visit)` has to call `visit(face, position, a, b)` for the same edges each time, all vertices
  /// below `vertexCount`; `makeUse(face, position, a, b)` is called once for each. O(vertices + edges).
  template <class Walk, class MakeUse>
  EdgeBuckets(std::size_t vertexCount, Monitor* monitor, Walk walk, MakeUse makeUse)
      : mEnds(vertexCount + 1, 0), mMonitor(monitor) {
    walk([this](std::uint32_t, std::uint32_t, std::uint32_t a, std::uint32_t b) { ++mEnds[std::min(a, b) + 1]; });
    for (std::size_t v = 1; v <= vertexCount; ++v) mEnds[v] += mEnds[v - 1];
    mUses.resize(mEnds[vertexCount]);
    // Filling moves the start of bucket v to its end.
    walk([&](std::uint32_t face, std::uint32_t position, std::uint32_t a, std::uint32_t b) {
      mUses[mEnds[std::min(a, b)]++] = makeUse(face, position, a, b);
    });
  }

  std::size_t useCount() const { return mUses.size(); }

  /// Calls `take(bucket)` for every vertex's bucket, by vertex; it may reorder what is in it.
  template <class Take>
  void forEach(Take take) {
    std::size_t first = 0;
    for (Monitor::Blocks blocks(mMonitor, mEnds.size() - 1); blocks.next();)
      for (std::size_t v = blocks.begin(), end = blocks.end(); v < end; first = mEnds[v++])
        take(std::span(mUses).subspan(first, mEnds[v] - first));
  }

  /// Calls `match(low, a, b)` for the two uses of every edge that is used exactly twice, and `rest(low, uses)` for all
  /// uses of every other edge, where `low` is the lower vertex; reorders buckets. O(uses), O(uses log uses) in a large
  /// bucket.
  template <class Match, class Rest>
  void forEachPair(Match match, Rest rest) {
    std::uint32_t low = 0;
    forEach([&](std::span<Use> bucket) {
      if (bucket.size() < kSortFrom)
        lookForPairs(low, bucket, match, rest);
      else
        sortForPairs(low, bucket, match, rest);
      ++low;
    });
  }
  template <class Match>
  void forEachPair(Match match) {
    forEachPair([&](std::uint32_t, const Use& a, const Use& b) { match(a, b); },
                [](std::uint32_t, std::span<const Use>) {});
  }

 private:
  template <class Match, class Rest>
  static void lookForPairs(std::uint32_t low, std::span<const Use> bucket, Match& match, Rest& rest) {
    static_assert(kSortFrom <= 32);
    std::uint32_t seen = 0;  // bit per use
    for (std::size_t i = 0; i < bucket.size(); ++i) {
      if ((seen >> i & 1) != 0) continue;
      const std::uint32_t high = bucket[i].high();
      std::uint32_t same = 0;
      for (std::size_t j = i + 1; j < bucket.size(); ++j) same |= std::uint32_t{bucket[j].high() == high} << j;
      seen |= same;
      if (std::has_single_bit(same)) {
        match(low, bucket[i], bucket[static_cast<std::size_t>(std::countr_zero(same))]);
        continue;
      }
      std::array<Use, kSortFrom> uses;
      std::size_t count = 0;
      for (same |= std::uint32_t{1} << i; same != 0; same &= same - 1)
        uses[count++] = bucket[static_cast<std::size_t>(std::countr_zero(same))];
      rest(low, std::span<const Use>(uses.data(), count));
    }
  }

  template <class Match, class Rest>
  void sortForPairs(std::uint32_t low, std::span<Use> bucket, Match& match, Rest& rest) {
    if (mMonitor)
      std::ranges::sort(bucket, [this](const Use& a, const Use& b) {
        mMonitor->tick();
        return a.high() < b.high();
      });
    else
      std::ranges::sort(bucket, {}, &Use::high);
    for (auto begin = bucket.begin(); begin != bucket.end();) {
      const std::uint32_t high = begin->high();
      const auto end = std::find_if(begin, bucket.end(), [high](const Use& use) { return use.high() != high; });
      if (end - begin == 2)
        match(low, begin[0], begin[1]);
      else
        rest(low, std::span<const Use>(begin, end));
      begin = end;
    }
  }

  Buffer<std::uint32_t> mEnds;  // per vertex, and one more
  Buffer<Use> mUses;
  Monitor* mMonitor;
};

}  // namespace util
