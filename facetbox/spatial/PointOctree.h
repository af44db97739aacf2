#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <span>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>
#include <facetbox/math/Vec3.h>

namespace util {

/// An octree of points, for near neighbors: finds the lowest-numbered stored point within a fixed distance of a point.
///
/// A linear octree: only the leaves that hold something exist, in a hash table of slots. A point is stored in all
/// leaves within the distance, one to eight, so that a search looks at a single leaf. Leaves are first about as wide as
/// points on a surface are apart. When one gets crowded, all are made smaller, at most three times, down to two and a
/// half times the distance. If all stored points are farther apart than the distance, such a leaf holds a bounded
/// number.
///
/// Exact: it finds what a comparison with every stored point finds, for all coordinates and distances.
class PointOctree {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

  /// @param points    all points that may be stored or searched for, by number; must outlive the octree
  /// @param distance  its sign is ignored
  /// @param monitor   asked while leaves are made smaller; may be null
  PointOctree(std::span<const Vec3> points, double distance, Monitor* monitor = nullptr);

  /// Stores a point. Numbers must come in ascending order. Amortized O(1).
  /// @param slot  slotOfPoint(number)
  void insert(std::uint32_t number, std::uint32_t slot);

  /// The slot to search for points near point `number`. Valid until revision() changes.
  std::uint32_t slotOfPoint(std::uint32_t number) const { return slotAt(mPoints[number]); }
  /// Changes when the leaves are made smaller.
  int revision() const { return mLevel; }

  /// The lowest-numbered stored point whose squared distance to point `number` is at most the squared distance of the
  /// octree, or kNone. O(points stored in one leaf).
  std::uint32_t findFirstNear(std::uint32_t number, std::uint32_t slot) const {
    const std::uint32_t newest = mSlots[slot];
    if (newest == kNone) return kNone;
    const Vec3 p = mPoints[number];
    std::uint32_t e = newest;
    do {
      e = mEntries[e].next;
      if (lengthSq(mPoints[mEntries[e].number] - p) <= mDistanceSq) return mEntries[e].number;
    } while (e != newest);
    return kNone;
  }

  /// Fetch what a later search of the slot will need, in three steps: each needs what the one before it has fetched.
  void prefetchSlot(std::uint32_t slot) const { __builtin_prefetch(&mSlots[slot]); }
  void prefetchEntry(std::uint32_t slot) const {
    if (mSlots[slot] != kNone) __builtin_prefetch(&mEntries[mSlots[slot]]);
  }
  void prefetchPoint(std::uint32_t slot) const {
    if (mSlots[slot] != kNone) __builtin_prefetch(&mPoints[mEntries[mSlots[slot]].number]);
  }

 private:
  /// From this leaf number on, neighboring doubles are more than twice the reach apart: points within it are equal in
  /// the coordinate.
  static constexpr double kLastLeaf = 0x1p53;

  struct Entry {
    std::uint32_t number;
    std::uint32_t next;  // position of the next newer entry of the same slot; the newest leads back to the oldest
  };

  void store(std::uint32_t number);
  bool isCrowded(std::uint32_t slot) const;
  void refine();

  std::int64_t leafIndex(double coordinate) const {
    // Half a leaf off, so that the usual round coordinates lie inside a leaf and not between two.
    const double leaf = coordinate * mLeavesPerUnit + 0.5;
    // Also for NaN. Adding zero makes both zeros the same.
    if (!(std::fabs(leaf) < kLastLeaf)) return std::bit_cast<std::int64_t>(coordinate + 0.0);
    // Rounded down.
    const auto truncated = static_cast<std::int64_t>(leaf);
    return truncated - (static_cast<double>(truncated) > leaf ? 1 : 0);
  }

  std::uint32_t slotOf(std::int64_t x, std::int64_t y, std::int64_t z) const {
    if (!mIsIndexed) return 0;
    std::uint64_t hash = static_cast<std::uint64_t>(x) * 0x9E3779B97F4A7C15u;
    hash = (std::rotl(hash, 26) ^ static_cast<std::uint64_t>(y)) * 0xC2B2AE3D27D4EB4Fu;
    hash = (std::rotl(hash, 26) ^ static_cast<std::uint64_t>(z)) * 0x165667B19E3779F9u;
    return static_cast<std::uint32_t>((hash ^ hash >> 32) * 0x9E3779B97F4A7C15u >> mHashShift);
  }

  std::uint32_t slotAt(const Vec3& p) const { return slotOf(leafIndex(p.x), leafIndex(p.y), leafIndex(p.z)); }

  std::span<const Vec3> mPoints;
  double mDistanceSq;
  double mReach;  // a bit more than the distance
  double mLeafEdge;
  double mLeavesPerUnit;  // 1 / leaf edge
  int mLevel;             // 0: wide leaves, up to kFinestLevel
  bool mIsIndexed;        // else every point is stored in slot 0
  int mHashShift;
  Buffer<std::uint32_t> mSlots;  // position of the newest entry, or kNone; a power of two of them
  Buffer<Entry> mEntries;
  Monitor* mMonitor;
};

}  // namespace util
