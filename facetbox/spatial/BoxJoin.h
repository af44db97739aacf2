#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Lanes.h>

namespace util {

/// A closed box on a grid.
struct GridBox {
  std::int32_t min[3], max[3];
};

/// A segment on the grid, as wide as `margin`.
class GridSegment {
 public:
  /// Ends anywhere on the grid, the margin in its units.
  GridSegment(const double (&from)[3], const double (&to)[3], double margin)
      : mMargin(static_cast<float>(margin) + kRounding) {
    for (int axis = 0; axis < 3; ++axis) {
      mFrom[axis] = static_cast<float>(from[axis]);
      const auto along = static_cast<float>(to[axis] - from[axis]);
      // A grid unit more or less is within the margin.
      mInverse[axis] = 1.0F / (std::fabs(along) < 1.0F ? 1.0F : along);
    }
  }

  /// Bits of the boxes that the segment meets; sometimes of one that it passes close by.
  template <std::size_t kCount>
  unsigned meeting(const std::int32_t (&min)[3][kCount], const std::int32_t (&max)[3][kCount]) const {
    float enter[kCount] = {}, leave[kCount];
    for (float& t : leave) t = 1.0F;
    for (int axis = 0; axis < 3; ++axis)
      for (std::size_t i = 0; i < kCount; ++i) {
        const float a = (static_cast<float>(min[axis][i]) - mMargin - mFrom[axis]) * mInverse[axis];
        const float b = (static_cast<float>(max[axis][i]) + mMargin - mFrom[axis]) * mInverse[axis];
        enter[i] = std::max(enter[i], std::min(a, b));
        leave[i] = std::min(leave[i], std::max(a, b));
      }
    unsigned bits = 0;
    // An empty box has its ends the wrong way round on all axes.
    for (std::size_t i = 0; i < kCount; ++i) bits |= unsigned{enter[i] <= leave[i] && min[0][i] <= max[0][i]} << i;
    return bits;
  }

 private:
  /// More than all rounding of floats can take away, on a grid of 2^31.
  static constexpr float kRounding = 0x1p12F;

  float mMargin;
  float mFrom[3], mInverse[3];
};

/// Finds the pairs of boxes that meet, by a bounding volume hierarchy of eight children a node over boxes in an order
/// in which neighbors lie close together, such as orderOnCurve(). Boxes are known by their places in the order. 28
/// bytes a box.
class BoxJoin {
 public:
  /// Coordinates are below this, and not negative.
  static constexpr std::int64_t kGridSize = std::int64_t{1} << 31;

  /// Where the middle of a box lies on a curve that fills space (the Z-order curve, by the upper 21 bits of the
  /// coordinates).
  static std::uint64_t curveKey(const GridBox& box);

  /// The order of the boxes on that curve, in which a few neighbors may change places. O(boxes), and sorting where many
  /// crowd.
  static Buffer<std::uint32_t> orderOnCurve(std::span<const GridBox> boxes);

  /// O(boxes).
  /// @param order  numbers of boxes
  BoxJoin(std::span<const GridBox> boxes, std::span<const std::uint32_t> order);

  /// Calls `visit(a, b)` with a < b for every pair of boxes that meet, each once, in an order that depends on nothing
  /// but the boxes. `visit` returns whether to go on.
  /// O(n log n + pairs) where boxes do not overlap much more than their neighbors'.
  template <class Visit>
  void forEachPair(Visit visit) const {
    if (!mLevels.empty()) pairsWithin(visit, mLevels.size() - 1, 0);
  }

  /// Calls `visit(box)` for every box that a segment meets, and for some that it passes close by; returns whether all
  /// of these calls did. O(levels + boxes close to the segment), roughly.
  template <class Visit>
  bool forEachMeeting(const GridSegment& segment, Visit visit) const {
    return mLevels.empty() || meetingWithin(visit, segment, mLevels.size() - 1, 0);
  }

  /// The same for every pair of one of these boxes and one of others.
  template <class Visit>
  void forEachPair(const BoxJoin& others, Visit visit) const {
    if (mLevels.empty() || others.mLevels.empty()) return;
    pairsBetween(visit, others, {mLevels.size() - 1, 0, bounds()}, {others.mLevels.size() - 1, 0, others.bounds()});
  }

 private:
  static constexpr unsigned kWidth = 8;

  /// Bounds of eight children; where there are fewer, the others are empty.
  struct alignas(32) Block {
    std::int32_t min[3][kWidth], max[3][kWidth];
  };

  /// A block, by its level and its number there.
  struct Node {
    std::size_t level, block;
    GridBox bounds;
  };

  GridBox bounds() const;
  GridBox childBox(std::size_t level, std::size_t child) const;
  unsigned childrenMeeting(const Node& node, const GridBox& box) const {
    return meeting(mBlocks[mLevels[node.level] + node.block], box);
  }
  static unsigned meeting(const Block& block, const GridBox& box);

  template <class Visit>
  bool meetingWithin(Visit& visit, const GridSegment& segment, std::size_t level, std::size_t block) const;
  template <class Visit>
  bool pairsWithin(Visit& visit, std::size_t level, std::size_t block) const;
  template <class Visit>
  bool pairsAcross(Visit& visit, std::size_t level, std::size_t a, std::size_t b) const;

  template <class Visit>
  bool pairsBetween(Visit& visit, const BoxJoin& others, const Node& a, const Node& b) const;

  Buffer<Block> mBlocks;             // level by level, that of the boxes first
  std::vector<std::size_t> mLevels;  // where each begins
};

/// Bits of the children that meet a box.
inline unsigned BoxJoin::meeting(const Block& block, const GridBox& box) {
  unsigned bits = 0;
  for (unsigned from = 0; from < kWidth; from += 4) {
    Int4 apart{};
    for (int axis = 0; axis < 3; ++axis) {
      Int4 min, max;
      __builtin_memcpy(&min, block.min[axis] + from, sizeof min);
      __builtin_memcpy(&max, block.max[axis] + from, sizeof max);
      apart |= (min > box.max[axis]) | (max < box.min[axis]);
    }
    bits |= (~bitsOf(apart) & 15u) << from;
  }
  return bits;
}

inline GridBox BoxJoin::childBox(std::size_t level, std::size_t child) const {
  const Block& block = mBlocks[mLevels[level] + child / kWidth];
  const std::size_t lane = child % kWidth;
  return {{block.min[0][lane], block.min[1][lane], block.min[2][lane]},
          {block.max[0][lane], block.max[1][lane], block.max[2][lane]}};
}

template <class Visit>
bool BoxJoin::meetingWithin(Visit& visit, const GridSegment& segment, std::size_t level, std::size_t block) const {
  const Block& own = mBlocks[mLevels[level] + block];
  for (unsigned lanes = segment.meeting(own.min, own.max); lanes != 0; lanes &= lanes - 1) {
    const std::size_t child = kWidth * block + static_cast<unsigned>(__builtin_ctz(lanes));
    if (!(level == 0 ? visit(child) : meetingWithin(visit, segment, level - 1, child))) return false;
  }
  return true;
}

template <class Visit>
bool BoxJoin::pairsWithin(Visit& visit, std::size_t level, std::size_t block) const {
  const Block& own = mBlocks[mLevels[level] + block];
  for (unsigned lane = 0; lane < kWidth; ++lane) {
    const std::size_t child = kWidth * block + lane;
    const GridBox box = childBox(level, child);
    const unsigned met = meeting(own, box);
    if ((met >> lane & 1) == 0) return true;  // empty, as all that follow
    if (level != 0 && !pairsWithin(visit, level - 1, child)) return false;
    for (unsigned rest = met >> lane >> 1 << lane << 1; rest != 0; rest &= rest - 1) {
      const std::size_t other = kWidth * block + static_cast<unsigned>(__builtin_ctz(rest));
      if (!(level == 0 ? visit(child, other) : pairsAcross(visit, level - 1, child, other))) return false;
    }
  }
  return true;
}

template <class Visit>
bool BoxJoin::pairsAcross(Visit& visit, std::size_t level, std::size_t a, std::size_t b) const {
  const Block& other = mBlocks[mLevels[level] + b];
  // Of a's children, only those that meet b as a whole are worth a look.
  const GridBox whole = childBox(level + 1, b);
  for (unsigned lanes = meeting(mBlocks[mLevels[level] + a], whole); lanes != 0; lanes &= lanes - 1) {
    const std::size_t child = kWidth * a + static_cast<unsigned>(__builtin_ctz(lanes));
    for (unsigned rest = meeting(other, childBox(level, child)); rest != 0; rest &= rest - 1) {
      const std::size_t met = kWidth * b + static_cast<unsigned>(__builtin_ctz(rest));
      if (!(level == 0 ? visit(child, met) : pairsAcross(visit, level - 1, child, met))) return false;
    }
  }
  return true;
}

template <class Visit>
bool BoxJoin::pairsBetween(Visit& visit, const BoxJoin& others, const Node& a, const Node& b) const {
  // The higher one is taken apart, until both are at the level of the boxes.
  if (a.level < b.level) {
    for (unsigned lanes = others.childrenMeeting(b, a.bounds); lanes != 0; lanes &= lanes - 1) {
      const std::size_t child = kWidth * b.block + static_cast<unsigned>(__builtin_ctz(lanes));
      if (!pairsBetween(visit, others, a, {b.level - 1, child, others.childBox(b.level, child)})) return false;
    }
    return true;
  }
  for (unsigned lanes = childrenMeeting(a, b.bounds); lanes != 0; lanes &= lanes - 1) {
    const std::size_t child = kWidth * a.block + static_cast<unsigned>(__builtin_ctz(lanes));
    const GridBox box = childBox(a.level, child);
    if (a.level != 0) {
      if (!pairsBetween(visit, others, {a.level - 1, child, box}, b)) return false;
      continue;
    }
    for (unsigned rest = others.childrenMeeting(b, box); rest != 0; rest &= rest - 1)
      if (!visit(child, kWidth * b.block + static_cast<unsigned>(__builtin_ctz(rest)))) return false;
  }
  return true;
}

}  // namespace util
