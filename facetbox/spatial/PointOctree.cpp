#include <facetbox/spatial/PointOctree.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

namespace util {
namespace {

/// Squares of smaller lengths lose digits or vanish: two points that are farther apart than the distance can then pass
/// the squared test. Searching at least this far finds them too.
constexpr double kShortestReach = 1e-150;

/// Covers the rounding of the squared test: its two sides are off by a few parts in 2^53.
constexpr double kReachMargin = 1.0 + 1e-9;

/// Leaf edges by level: at first by how far apart the points would be if they were spread over a surface as wide as
/// their box, then smaller, then by the reach. Below twice the reach, a point could lie near more than two leaves of an
/// axis.
constexpr double kLeafEdgePerSpacing = 1.5;
constexpr double kSmallerLeafEdge = 1.0 / 16.0;
constexpr double kLeafEdgePerReach = 4.0;
constexpr double kFinestLeafEdgePerReach = 2.5;
constexpr int kLevelByReach = 2;
constexpr int kFinestLevel = 3;

/// A leaf of more points than this is crowded. By the reach alone it may hold more on a level that is good enough.
constexpr int kCrowd = 24;
constexpr int kCrowdByReach = 72;

/// Distance between neighbors when the points are spread over a square as wide as their box; not finite where a
/// coordinate is not, or where it overflows.
double surfaceSpacing(std::span<const Vec3> points) {
  if (points.empty()) return 0.0;
  Vec3 low = points[0], high = points[0];
  for (const Vec3& p : points) {
    low = {std::min(p.x, low.x), std::min(p.y, low.y), std::min(p.z, low.z)};
    high = {std::max(p.x, high.x), std::max(p.y, high.y), std::max(p.z, high.z)};
  }
  return std::sqrt(lengthSq(high - low) / static_cast<double>(points.size()));
}

}  // namespace

PointOctree::PointOctree(std::span<const Vec3> points, double distance, Monitor* monitor)
    : mPoints(points),
      mDistanceSq(distance * distance),
      mReach(std::max(std::fabs(distance), kShortestReach) * kReachMargin),
      mLeafEdge(kLeafEdgePerReach * mReach),
      mLevel(kLevelByReach),
      // Where the square overflows, everything is near and hardly anything gets stored.
      mIsIndexed(std::isfinite(mDistanceSq)),
      mMonitor(monitor) {
  if (const double wide = kLeafEdgePerSpacing * surfaceSpacing(points); std::isfinite(wide) && wide > mLeafEdge) {
    mLeafEdge = wide;
    mLevel = 0;
  }
  if (mMonitor) mMonitor->look();
  mLeavesPerUnit = 1.0 / mLeafEdge;
  const std::size_t slotCount = mIsIndexed ? std::bit_ceil(std::max<std::size_t>(points.size(), 2)) : 2;
  mHashShift = 64 - std::countr_zero(slotCount);
  mSlots.resize(slotCount, kNone);
}

bool PointOctree::isCrowded(std::uint32_t slot) const {
  const std::uint32_t newest = mSlots[slot];
  if (newest == kNone) return false;
  int room = mLevel < kLevelByReach ? kCrowd : kCrowdByReach;
  std::uint32_t e = newest;
  do {
    if (--room < 0) return true;
    e = mEntries[e].next;
  } while (e != newest);
  return false;
}

/// Makes all leaves smaller.
void PointOctree::refine() {
  ++mLevel;
  const double byReach = kLeafEdgePerReach * mReach;
  if (mLevel < kLevelByReach)
    mLeafEdge = std::max(mLeafEdge * kSmallerLeafEdge, byReach);
  else
    mLeafEdge = mLevel == kLevelByReach ? byReach : kFinestLeafEdgePerReach * mReach;
  mLeavesPerUnit = 1.0 / mLeafEdge;
  const Buffer<Entry> old = std::exchange(mEntries, {});
  std::ranges::fill(mSlots, kNone);
  std::uint32_t last = kNone;
  for (const Entry& entry : old) {
    if (entry.number == last) continue;
    store(last = entry.number);
    if (mMonitor) mMonitor->tick();
  }
}

void PointOctree::insert(std::uint32_t number, std::uint32_t slot) {
  if (mIsIndexed && mLevel < kFinestLevel && isCrowded(slot)) refine();
  store(number);
}

void PointOctree::store(std::uint32_t number) {
  // Points within the distance have, by the monotony of rounding, coordinates from the rounded p - reach to the
  // rounded p + reach, and leaf numbers are monotone in the coordinate. A leaf is wider than that range: at most two.
  const Vec3& p = mPoints[number];
  const std::int64_t x[2] = {leafIndex(p.x - mReach), leafIndex(p.x + mReach)};
  const std::int64_t y[2] = {leafIndex(p.y - mReach), leafIndex(p.y + mReach)};
  const std::int64_t z[2] = {leafIndex(p.z - mReach), leafIndex(p.z + mReach)};
  for (int i = 0; i <= (x[0] != x[1]); ++i)
    for (int j = 0; j <= (y[0] != y[1]); ++j)
      for (int k = 0; k <= (z[0] != z[1]); ++k) {
        std::uint32_t& slot = mSlots[slotOf(x[i], y[j], z[k])];
        const auto added = static_cast<std::uint32_t>(mEntries.size());
        mEntries.push_back({number, slot == kNone ? added : std::exchange(mEntries[slot].next, added)});
        slot = added;
        if (!mIsIndexed) return;
      }
}

}  // namespace util
