#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>

namespace util {

/// The root cube of an octree of five levels, and its cells.
///
/// Cells are numbered depth-first, children by ascending code: bit 0 of a code stands for the upper half in x, bit 1 in
/// y, bit 2 in z. A box belongs to the deepest cell that holds all of it. One that straddles a midplane of a cell stays
/// in that cell, and one that lies flat on a midplane goes to the lower side. A box that the root does not hold gets
/// the cell that its position selects.
struct OctreeRoot {
  static constexpr std::size_t kLevels = 5;
  /// By level, from the root down: the number of cells in the subtree of one cell, itself included.
  static constexpr std::array<std::uint32_t, kLevels> kCells = [] {
    std::array<std::uint32_t, kLevels> cells{};
    std::uint32_t below = 0;
    for (std::size_t level = kLevels; level-- > 0; below = cells[level]) cells[level] = 8 * below + 1;
    return cells;
  }();
  static_assert(kCells[0] == 4681);

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
    /// Whether they share a point; touching counts. A cube whose center is NaN, after an overflow, meets every box.
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

  /// Whether the root's cube holds all of the box.
  bool holds(const Box& box) const;
  /// The root that is needed for one more box, after `all`: this one, if it holds the box or the box has no place. Else
  /// one around the middle of the union, its size doubled as often as needed. Rounding may keep it from holding all; it
  /// then comes out the same for the next such box.
  OctreeRoot holding(const Box& box, const Box& all) const;
  /// Whether a root may grow to hold the box. One that reaches to infinity, or so far that extents overflow, would make
  /// the root's center NaN, and no query would find anything any more. An axis on which the box is empty needs no room.
  static bool hasPlace(const Box& box);
  friend bool isSame(const OctreeRoot& a, const OctreeRoot& b);
};

}  // namespace util
