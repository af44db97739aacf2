#pragma once

#include <cstdint>
#include <span>

#include <facetbox/util/Buffer.h>
#include <facetbox/util/math/Vec3.h>

namespace util {

/// Finds, among the points stored so far, the lowest-numbered one within a fixed distance of a point.
///
/// A linear octree: only leaves that hold something exist, in a hash table. A leaf's edge is four times the distance,
/// and a point is stored in every leaf that comes within the distance of it (mostly one to eight), so that a search
/// looks at a single leaf. When only points that are farther than the distance from all stored ones get stored, a leaf
/// holds a bounded number of them, however crowded the place is.
///
/// Exact: finds what comparing with every stored point would find, for all coordinates and distances.
class PointOctree {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

  /// @param points    all points that may ever be stored, addressed by number; must outlive the octree
  /// @param distance  its sign is ignored
  PointOctree(std::span<const Vec3> points, double distance);

  /// Stores a point. Numbers must come in ascending order. Amortised O(1).
  void insert(std::uint32_t number);

  /// The lowest-numbered stored point whose squared distance to point `number` is at most the squared distance of the
  /// octree, or kNone. O(points stored in one leaf).
  std::uint32_t findFirstNear(std::uint32_t number) const;

  /// Hints that findFirstNear(number) is going to be asked for a few calls later.
  void prefetch(std::uint32_t number) const;

 private:
  struct Entry {
    std::uint32_t number;
    std::uint32_t next;  // position of the next entry of the same slot, or kNone
  };

  std::int64_t leafIndex(double coordinate) const;
  std::size_t slotOf(std::int64_t x, std::int64_t y, std::int64_t z) const;
  std::size_t slotAt(const Vec3& p) const { return slotOf(leafIndex(p.x), leafIndex(p.y), leafIndex(p.z)); }

  std::span<const Vec3> mPoints;
  double mDistanceSq;
  double mReach;          // a bit more than the distance
  double mLeavesPerUnit;  // 1 / leaf edge
  bool mIsIndexed;        // else every point is stored in slot 0
  int mHashShift;
  Buffer<std::uint32_t> mSlots;  // position of the newest entry, or kNone; a power of two of them
  Buffer<Entry> mEntries;
};

}  // namespace util
