#include <facetbox/io/CityJsonGrid.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

namespace facetbox {
namespace {

constexpr int kMostDecimals = 15;  // as many fit into integers

// The least k so that the coordinate times 2^k is an integer.
int bitsBelowPoint(double coordinate) {
  int exponent = 0;
  const double fraction = std::frexp(coordinate, &exponent);
  const auto mantissa = static_cast<std::uint64_t>(std::ldexp(std::abs(fraction), 53));
  return 53 - exponent - std::countr_zero(mantissa);
}

// Digits behind the point in the shortest form that reads back alike.
int decimalsOf(double coordinate) {
  std::array<char, 32> buffer;
  const char* const end =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), coordinate, std::chars_format::scientific).ptr;
  const std::string_view text(buffer.data(), static_cast<std::size_t>(end - buffer.data()));
  const std::size_t point = text.find('.'), letter = text.find('e');
  const int digits = point == std::string_view::npos ? 0 : static_cast<int>(letter - point) - 1;
  int exponent = 0;
  std::from_chars(text.data() + letter + (text[letter + 1] == '+' ? 2 : 1), end, exponent);
  return std::max(0, digits - exponent);
}

bool holdsAll(double scale, std::span<const double> coordinates) {
  CityJsonGrid grid;
  grid.scale[0] = scale;
  return std::all_of(coordinates.begin(), coordinates.end(), [&](double value) { return grid.holds(value, 0); });
}

// A scale of 1 / (10^d m) for coordinates of at most d decimals.
std::optional<double> decimalScale(std::span<const double> coordinates, double size) {
  int decimals = 0;
  for (const double coordinate : coordinates) {
    decimals = std::max(decimals, decimalsOf(coordinate));
    if (decimals > kMostDecimals) return std::nullopt;
  }
  double parts = 1;
  for (int i = 0; i < decimals; ++i) parts *= 10;
  // Below that, the quotient by the scale is off by less than one, so that integerFor() finds the integer.
  constexpr double kLargest = CityJsonGrid::kLargestInteger / 4;
  constexpr int kMostTries = 1 << 18;  // some ten milliseconds
  double leastError = std::numeric_limits<double>::infinity();
  for (int m = 1; m <= kMostTries && std::max(size, 1.0) * parts * m <= kLargest; ++m) {
    const double scale = 1 / (parts * m);
    const double error = std::abs(std::fma(scale, parts * m, -1.0));
    if (error >= leastError) continue;
    leastError = error;
    if (holdsAll(scale, coordinates)) return scale;
  }
  return std::nullopt;
}

}  // namespace

double CityJsonGrid::integerFor(double coordinate, std::size_t axis) const {
  const double nearest = std::nearbyint((coordinate - translate[axis]) / scale[axis]);
  for (const double candidate : {nearest, nearest - 1, nearest + 1})
    if (candidate * scale[axis] + translate[axis] == coordinate) return candidate;
  return nearest;
}

bool CityJsonGrid::holds(double coordinate, std::size_t axis) const {
  const double integer = integerFor(coordinate, axis);
  return std::abs(integer) <= kLargestInteger && integer * scale[axis] + translate[axis] == coordinate;
}

double scaleFor(std::span<const double> coordinates) {
  double size = 0;
  int bits = 0;
  for (const double coordinate : coordinates) {
    size = std::max(size, std::abs(coordinate));
    if (coordinate != 0) bits = std::max(bits, bitsBelowPoint(coordinate));
  }
  constexpr int kMostBits = 1074;  // of any double
  int exponent = 0;
  std::frexp(size, &exponent);
  const int fitting = std::min(53 - exponent, kMostBits);
  // Products with powers of two are exact. Where many bits are needed, decimals are shorter.
  constexpr int kFewBits = 12;
  if (bits > std::min(kFewBits, fitting))
    if (const std::optional<double> scale = decimalScale(coordinates, size)) return *scale;
  return std::ldexp(1.0, -std::min(bits, fitting));
}

}  // namespace facetbox
