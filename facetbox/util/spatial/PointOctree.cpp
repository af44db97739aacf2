#include <facetbox/util/spatial/PointOctree.h>

#include <algorithm>
#include <bit>
#include <cmath>

namespace util {
namespace {

/// Squares of smaller lengths lose digits or vanish: two points that are farther apart than the distance can then pass
/// the squared test. Searching at least this far finds them too.
constexpr double kShortestReach = 1e-150;

/// Covers the rounding of the squared test: its two sides are off by a few parts in 2^53.
constexpr double kReachMargin = 1.0 + 1e-9;

constexpr double kLeafEdgePerReach = 4.0;

/// From this leaf number on, neighbouring doubles are more than the reach apart: points within it are equal in the
/// coordinate.
constexpr double kLastLeaf = 0x1p53;

}  // namespace

PointOctree::PointOctree(std::span<const Vec3> points, double distance)
    : mPoints(points),
      mDistanceSq(distance * distance),
      mReach(std::max(std::fabs(distance), kShortestReach) * kReachMargin),
      mLeavesPerUnit(1.0 / (kLeafEdgePerReach * mReach)),
      // Where the square overflows, everything is near and hardly anything gets stored.
      mIsIndexed(std::isfinite(mDistanceSq)) {
  const std::size_t slotCount = mIsIndexed ? std::bit_ceil(std::max<std::size_t>(points.size(), 2)) : 2;
  mHashShift = 64 - std::countr_zero(slotCount);
  mSlots.resize(slotCount, kNone);
}

std::int64_t PointOctree::leafIndex(double coordinate) const {
  // Half a leaf off, so that the usual round coordinates lie inside a leaf and not between two.
  const double leaf = coordinate * mLeavesPerUnit + 0.5;
  // NaN takes the second way as well. Adding zero makes the two zeros one.
  if (std::fabs(leaf) < kLastLeaf) return static_cast<std::int64_t>(std::floor(leaf));
  return std::bit_cast<std::int64_t>(coordinate + 0.0);
}

std::size_t PointOctree::slotOf(std::int64_t x, std::int64_t y, std::int64_t z) const {
  if (!mIsIndexed) return 0;
  std::uint64_t hash = static_cast<std::uint64_t>(x) * 0x9E3779B97F4A7C15u;
  hash = (std::rotl(hash, 26) ^ static_cast<std::uint64_t>(y)) * 0xC2B2AE3D27D4EB4Fu;
  hash = (std::rotl(hash, 26) ^ static_cast<std::uint64_t>(z)) * 0x165667B19E3779F9u;
  return (hash ^ hash >> 32) * 0x9E3779B97F4A7C15u >> mHashShift;
}

void PointOctree::insert(std::uint32_t number) {
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
        mEntries.push_back({number, slot});
        slot = static_cast<std::uint32_t>(mEntries.size() - 1);
        if (!mIsIndexed) return;
      }
}

std::uint32_t PointOctree::findFirstNear(std::uint32_t number) const {
  const Vec3 p = mPoints[number];
  std::uint32_t first = kNone;
  // Newest first: the last one found has the lowest number.
  for (std::uint32_t e = mSlots[slotAt(p)]; e != kNone; e = mEntries[e].next)
    if (lengthSq(mPoints[mEntries[e].number] - p) <= mDistanceSq) first = mEntries[e].number;
  return first;
}

void PointOctree::prefetch(std::uint32_t number) const { __builtin_prefetch(&mSlots[slotAt(mPoints[number])]); }

}  // namespace util
