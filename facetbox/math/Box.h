#pragma once

#include <algorithm>
#include <limits>

#include <facetbox/math/Vec3.h>

namespace util {

/// Closed axis-parallel box; empty on an axis where its minimum exceeds its maximum. A fresh box is empty everywhere.
struct Box {
  static constexpr double kLargest = std::numeric_limits<double>::max();

  Vec3 min{kLargest, kLargest, kLargest};
  Vec3 max{-kLargest, -kLargest, -kLargest};

  /// Grows to hold the point. A NaN coordinate changes nothing on its axis.
  void extend(const Vec3& p) {
    min = {std::min(min.x, p.x), std::min(min.y, p.y), std::min(min.z, p.z)};
    max = {std::max(max.x, p.x), std::max(max.y, p.y), std::max(max.z, p.z)};
  }
  /// Grows to hold the other box.
  void extend(const Box& box) {
    min = {std::min(min.x, box.min.x), std::min(min.y, box.min.y), std::min(min.z, box.min.z)};
    max = {std::max(max.x, box.max.x), std::max(max.y, box.max.y), std::max(max.z, box.max.z)};
  }

  friend bool operator==(const Box&, const Box&) = default;
};

/// Whether two boxes share a point; touching counts.
inline bool boxesMeet(const Box& a, const Box& b) {
  return a.min.x <= b.max.x && b.min.x <= a.max.x && a.min.y <= b.max.y && b.min.y <= a.max.y && a.min.z <= b.max.z &&
         b.min.z <= a.max.z;
}

/// The box with every value of coordinate `axis`: the column through it along that axis.
inline Box columnAlong(int axis, const Box& box) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  Box column = box;
  (axis == 0 ? column.min.x : axis == 1 ? column.min.y : column.min.z) = -kInfinity;
  (axis == 0 ? column.max.x : axis == 1 ? column.max.y : column.max.z) = kInfinity;
  return column;
}

}  // namespace util
