#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>
#include <facetbox/mesh/EdgeBuckets.h>
#include <facetbox/mesh/PrimitiveList.h>

namespace util {

/// The pairs of corners at clean edges. An edge is clean where exactly two different faces use it, once each, in
/// opposite directions.
struct EdgeTwins {
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu, kAsideBit = 0x80000000u;

  /// Per position of the corner pool. Side by side, since walks from face to face ask for both at once.
  struct Corner {
    std::uint32_t mTwin;  ///< corner where the other face's run of the edge starts; kNone if the edge is not clean
    std::uint32_t mFace;  ///< the face that the corner belongs to; undefined where it belongs to none. Below 2^31, as
                          ///< faces have three corners: the top bit tells that the twin is put aside.
  };

  std::uint32_t twinOf(std::uint32_t corner) const { return isAside(corner) ? kNone : mCorners[corner].mTwin; }
  std::uint32_t faceOf(std::uint32_t corner) const { return mCorners[corner].mFace & ~kAsideBit; }
  /// Prefetches both.
  void prefetch(std::size_t corner) const { __builtin_prefetch(&mCorners[corner]); }

  /// Records that the edge leaving a corner is no longer clean.
  void forgetTwin(std::uint32_t corner) {
    if (const std::uint32_t twin = mCorners[corner].mTwin; twin != kNone)
      mCorners[corner].mTwin = mCorners[twin].mTwin = kNone;
  }

  /// As if the edge leaving a corner that has a twin were not clean, until that is turned back.
  void turnAside(std::uint32_t corner) {
    mCorners[corner].mFace ^= kAsideBit;
    mCorners[mCorners[corner].mTwin].mFace ^= kAsideBit;
  }
  bool isAside(std::uint32_t corner) const { return (mCorners[corner].mFace & kAsideBit) != 0; }

  Buffer<Corner> mCorners;  ///< per position of the corner pool
};

/// A use of an edge as findEdgeTwins() meets it.
struct DirectedUse {
  static constexpr std::uint32_t kReversedBit = 0x80000000u;

  std::uint32_t mHighAndDirection;  ///< higher vertex; the top bit tells that the use runs from it to the lower one
  std::uint32_t mPosition;          ///< of the corner in the pool

  std::uint32_t high() const { return mHighAndDirection & ~kReversedBit; }
  bool runsDown() const { return (mHighAndDirection & kReversedBit) != 0; }
};

/// Finds the twins of a face list whose vertex indices are below `vertexCount` and below 2^31. O(vertices + corners),
/// O(corners log corners) around a vertex that very many edges share.
EdgeTwins findEdgeTwins(const PrimitiveList& faces, std::size_t vertexCount, Monitor* monitor = nullptr);

/// The same. Besides, tells of all edges: calls `pair(twins, low, a, b)` for the two uses of an edge that is used
/// exactly twice, `rest(twins, low, uses)` for the uses of any other; of `twins`, all faces are known by then.
template <class Pair, class Rest>
EdgeTwins findEdgeTwins(const PrimitiveList& faces, std::size_t vertexCount, Monitor* monitor, Pair pair, Rest rest) {
  assert(vertexCount <= DirectedUse::kReversedBit);
  EdgeTwins twins;
  twins.mCorners.resize(faces.poolSize(), {EdgeTwins::kNone, 0});
  EdgeBuckets<DirectedUse> buckets(
      vertexCount, monitor, [&](auto visit) { forEachEdge(faces, monitor, visit); },
      [&](std::uint32_t face, std::uint32_t position, std::uint32_t a, std::uint32_t b) {
        twins.mCorners[position].mFace = face;
        return DirectedUse{a < b ? b : a | DirectedUse::kReversedBit, position};
      });
  buckets.forEachPair(
      [&](std::uint32_t low, const DirectedUse& a, const DirectedUse& b) {
        if (a.runsDown() != b.runsDown() && twins.faceOf(a.mPosition) != twins.faceOf(b.mPosition)) {
          twins.mCorners[a.mPosition].mTwin = b.mPosition;
          twins.mCorners[b.mPosition].mTwin = a.mPosition;
        }
        pair(twins, low, a, b);
      },
      [&](std::uint32_t low, std::span<const DirectedUse> uses) { rest(twins, low, uses); });
  return twins;
}

}  // namespace util
