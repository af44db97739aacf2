#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace facetbox {

/// Where the integers of vertices lie: v * scale + translate, in doubles, per axis.
struct CityJsonGrid {
  static constexpr double kLargestInteger = 9007199254740992.0;  ///< 2^53: up to here, doubles hold every integer

  std::array<double, 3> scale = {1, 1, 1}, translate = {0, 0, 0};
  bool isGiven = false;  ///< version 1.0 may go without, with coordinates as they are

  /// The integer for a coordinate: one that gives it exactly where there is one, else the nearest.
  double integerFor(double coordinate, std::size_t axis) const;
  /// Whether some integer gives it exactly.
  bool holds(double coordinate, std::size_t axis) const;
};

/// The scale under which integers give all coordinates of an axis exactly, without a translation; where there is none,
/// the finest for their size.
///
/// Decimal numbers, which most files hold, are seldom integers times a double such as 0.001: that is not a thousandth,
/// and products are off by its error. Other fractions, such as a 7000th, have much less error by chance.
double scaleFor(std::span<const double> coordinates);

}  // namespace facetbox
