#include <facetbox/util/mesh/EdgeMap.h>

#include <algorithm>

namespace util {
namespace {

/// One use of an edge, in the bucket of its lower vertex.
struct EdgeUse {
  std::uint32_t high;
  std::uint32_t position;  ///< of the corner in the pool
};

constexpr std::size_t kSortFrom = 24;  // below it, looking back through the bucket is cheaper than sorting it

/// Calls `use(face, position, a, b)` for every edge that the mask lets through, faces and corners in order.
template <class Use>
void forEachEdge(const PrimitiveList& faces, const std::vector<bool>* marked, EdgeMask mode, Use use) {
  for (std::size_t face = 0; face < faces.size(); ++face) {
    const auto corners = faces.corners(face);
    const std::size_t n = corners.size();
    for (std::size_t i = 0; i < n; ++i) {
      const std::uint32_t a = corners[i], b = corners[i + 1 == n ? 0 : i + 1];
      if (marked) {
        const int ends = int{(*marked)[a]} + int{(*marked)[b]};
        if (ends < (mode == EdgeMask::bothEndsMarked ? 2 : 1)) continue;
      }
      use(static_cast<std::uint32_t>(face), static_cast<std::uint32_t>(faces.offset(face) + i), a, b);
    }
  }
}

/// Finds for every use in a bucket (uses in walk order) the first use of the same edge; calls `found(use, first)`.
template <class Found>
void matchBucket(std::span<EdgeUse> bucket, Found found) {
  if (bucket.size() < kSortFrom) {
    for (std::size_t i = 0; i < bucket.size(); ++i) {
      std::size_t first = 0;
      while (bucket[first].high != bucket[i].high) ++first;
      found(bucket[i].position, bucket[first].position);
    }
    return;
  }
  // Stable, so that the first use of an edge leads. Its position would not tell: records may have moved in the pool.
  std::ranges::stable_sort(bucket, {}, &EdgeUse::high);
  for (std::size_t i = 0, first = 0; i < bucket.size(); ++i) {
    if (bucket[i].high != bucket[first].high) first = i;
    found(bucket[i].position, bucket[first].position);
  }
}

}  // namespace

EdgeMap buildEdgeMap(const PrimitiveList& faces, std::size_t vertexCount, const std::vector<bool>* marked,
                     EdgeMask mode) {
  EdgeMap map;

  // Counting sort of the edge uses by their lower vertex, then matching within each vertex's bucket.
  Buffer<std::uint32_t> bucketEnds(vertexCount + 1, 0);
  forEachEdge(faces, marked, mode, [&](std::uint32_t, std::uint32_t, std::uint32_t a, std::uint32_t b) {
    ++bucketEnds[std::min(a, b) + 1];
  });
  for (std::size_t v = 1; v <= vertexCount; ++v) bucketEnds[v] += bucketEnds[v - 1];
  Buffer<EdgeUse> uses(bucketEnds[vertexCount]);
  // Filling moves the start of bucket v, kept in bucketEnds[v], to its end.
  forEachEdge(faces, marked, mode, [&](std::uint32_t, std::uint32_t position, std::uint32_t a, std::uint32_t b) {
    uses[bucketEnds[std::min(a, b)]++] = {std::max(a, b), position};
  });

  // For now: the position of the first use of the same edge.
  map.mEdgeOfCorner.resize(faces.poolSize(), EdgeMap::kNone);
  std::size_t edgeCount = 0;
  for (std::size_t v = 0, begin = 0; v < vertexCount; begin = bucketEnds[v++])
    matchBucket(std::span(uses).subspan(begin, bucketEnds[v] - begin), [&](std::uint32_t use, std::uint32_t first) {
      map.mEdgeOfCorner[use] = first;
      if (use == first) ++edgeCount;
    });
  const std::size_t useCount = uses.size();
  // Assigning an empty list would keep the memory.
  Buffer<EdgeUse>().swap(uses);
  Buffer<std::uint32_t>().swap(bucketEnds);

  // Number the edges in walk order: the first use of an edge is met before the others.
  map.mEdges.reserve(edgeCount);
  map.mReversed.reserve(edgeCount);
  map.mFaceOffsets.resize(edgeCount + 1, 0);
  forEachEdge(faces, marked, mode, [&](std::uint32_t, std::uint32_t position, std::uint32_t a, std::uint32_t b) {
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
