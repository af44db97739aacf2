#pragma once

#include <bit>
#include <cstdint>
#include <limits>
#include <span>
#include <utility>

#include <facetbox/math/Lanes.h>

namespace util {

/// Bounds of boxes or points in floats. The fourth lanes take part like the others, but in the area.
struct FloatBounds {
  static constexpr float kInfinity = std::numeric_limits<float>::infinity();

  Float4 low{kInfinity, kInfinity, kInfinity, 0}, high{-kInfinity, -kInfinity, -kInfinity, 0};

  void extend(Float4 otherLow, Float4 otherHigh) {
    low = low < otherLow ? low : otherLow;
    high = high > otherHigh ? high : otherHigh;
  }
  /// Half of the surface.
  float halfArea() const {
    const Float4 d = high - low;
    return d[0] * d[1] + d[1] * d[2] + d[2] * d[0];
  }
};

/// A triangle's box in unit coordinates; its number is kept in the bits of low's fourth lane.
struct TriangleBox {
  Float4 low, high;

  Float4 centerTwice() const { return low + high; }
  std::uint32_t triangle() const { return std::bit_cast<std::uint32_t>(low[3]); }
};

/// A run of triangles that becomes one child.
struct TriangleRange {
  std::uint32_t begin = 0, end = 0;
  FloatBounds bounds;   ///< of the boxes
  FloatBounds centers;  ///< of twice their centers

  std::uint32_t size() const { return end - begin; }
  void add(const TriangleBox& box) {
    bounds.extend(box.low, box.high);
    centers.extend(box.centerTwice(), box.centerTwice());
  }
};

/// Splits a range of `boxes`, which are put in order, into two: by the surface area heuristic with binned centers,
/// after Wald, On fast Construction of SAH-based Bounding Volume Hierarchies, 2007, or into halves where that finds no
/// split. The cost of a side is its surface times the blocks of triangles that it needs. O(range).
std::pair<TriangleRange, TriangleRange> splitBySurfaceArea(std::span<TriangleBox> boxes, const TriangleRange& range);

/// Splits a range in the middle of its order. O(range).
std::pair<TriangleRange, TriangleRange> halve(std::span<const TriangleBox> boxes, const TriangleRange& range);

}  // namespace util
