#include <facetbox/triangles/EdgeList.h>

#include <algorithm>
#include <cassert>

#include <facetbox/mesh/EdgeBuckets.h>

namespace util {
namespace {

/// A triangle's use of an edge; its lower vertex is that of the bucket.
struct EdgeUse {
  std::uint32_t mHigh;
  bool mStartsHigh;

  std::uint32_t high() const { return mHigh; }
};

}  // namespace

EdgeList listEdges(std::span<const std::uint32_t> indices, std::size_t vertexCount) {
  assert(std::ranges::all_of(indices, [=](std::uint32_t vertex) { return vertex < vertexCount; }));
  const auto walk = [&](auto visit) {
    for (std::uint32_t i = 0; i + 2 < indices.size(); i += 3)
      for (std::uint32_t k = 0; k < 3; ++k) {
        const std::uint32_t from = indices[i + k], to = indices[i + (k + 1) % 3];
        if (from != to) visit(i / 3, i + k, from, to);
      }
  };
  using Buckets = EdgeBuckets<EdgeUse>;
  Buckets buckets(vertexCount, nullptr, walk, [](std::uint32_t, std::uint32_t, std::uint32_t from, std::uint32_t to) {
    return EdgeUse{std::max(from, to), from > to};
  });

  EdgeList edges;
  edges.reserve(buckets.useCount() / 2 + 8);
  std::uint32_t low = 0;
  const auto append = [&](const EdgeUse& use) {
    edges.push_back(use.mStartsHigh ? DirectedEdge{use.mHigh, low} : DirectedEdge{low, use.mHigh});
  };
  buckets.forEach([&](std::span<EdgeUse> bucket) {
    if (bucket.size() < Buckets::kSortFrom) {
      for (auto use = bucket.begin(); use != bucket.end(); ++use)
        if (std::none_of(bucket.begin(), use, [&](const EdgeUse& earlier) { return earlier.mHigh == use->mHigh; }))
          append(*use);
    } else {
      // Stable, so that the first use of an edge leads.
      std::ranges::stable_sort(bucket, {}, &EdgeUse::mHigh);
      for (std::size_t i = 0; i < bucket.size(); ++i)
        if (i == 0 || bucket[i].mHigh != bucket[i - 1].mHigh) append(bucket[i]);
    }
    ++low;
  });
  edges.shrink_to_fit();
  return edges;
}

}  // namespace util
