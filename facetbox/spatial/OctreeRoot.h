#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>

namespace util {

/// The cube of an octree's root, and its cells: five levels, each cell halved on all axes.
///
/// Cells are numbered by depth first, children by ascending code: bit 0 of a code stands for the upper half in x, bit 1
/// in y, bit 2 in z. A box belongs to the deepest cell that holds it whole; one that straddles a midplane of a cell
/// stays in that cell, and one that is flat on a midplane goes low. A box beyond the root has the cell that its
/// position selects.
struct OctreeRoot {
  static constexpr std::size_t kLevels = 5;
  /// Cells below one of each level, itself included.
  static constexpr std::array<std::uint32_t, kLevels> kCells{4681, 585, 73, 9, 1};

  struct Cube {
    Vec3 center;
    double halfSize;

    Cube child(unsigned code) const {
      const double h = halfSize / 2;
      const Vec3& c = center;
      return {{(code & 1) != 0 ? c.x + h : c.x - h, (code & 2) != 0 ? c.y + h : c.y - h,
               (code & 4) != 0 ? c.z + h : c.z - h},
              h};
    }
    /// Whether they share a point; touching counts. A cube without a place (NaN, after an overflow) meets every box.
    bool meets(const Box& box) const {
      const auto meetsOn = [this](double min, double max, double middle) {
        return std::min(max, middle + halfSize) >= std::max(min, middle - halfSize);
      };
      return meetsOn(box.min.x, box.max.x, center.x) && meetsOn(box.min.y, box.max.y, center.y) &&
             meetsOn(box.min.z, box.max.z, center.z);
    }
  };

  Vec3 center{0, 0, 0};
  double halfSize;

  std::uint32_t cellOf(const Box& box) const;

  /// Whether the box lies in the cube as a whole.
  bool holds(const Box& box) const;
  /// A root that holds the box, and `all` besides: this one, if it holds the box, or one around the middle of the union
  /// whose size is doubled as often as needed. Where rounding keeps a root from ever holding all, the same comes out
  /// again and again. This one for a box without a place.
  OctreeRoot holding(const Box& box, const Box& all) const;
  /// Whether a root can be made to hold the box together with others like it. One that reaches to infinity, or so far
  /// that its extent overflows, would leave a root without a place, in which no query finds anything any more. An axis
  /// on which the box is empty asks for no room.
  static bool hasPlace(const Box& box);
  friend bool isSame(const OctreeRoot& a, const OctreeRoot& b);
};

}  // namespace util
