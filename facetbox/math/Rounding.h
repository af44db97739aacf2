#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>

namespace util {

/// The largest float that is not above the value; negative infinity where there is none. Not for NaN.
inline float roundedDown(double value) {
  constexpr double kLargestFloat = std::numeric_limits<float>::max();
  if (value < -kLargestFloat) return -std::numeric_limits<float>::infinity();
  const auto rounded = static_cast<float>(std::min(value, kLargestFloat));
  // Or the float before it; there is one, and it is no NaN. Half of all are rounded up: no branch foresees which.
  const auto bits = std::bit_cast<std::uint32_t>(rounded);
  const std::uint32_t before = rounded > 0 ? bits - 1 : rounded < 0 ? bits + 1 : 0x80000001u;
  return std::bit_cast<float>(double{rounded} <= value ? bits : before);
}
/// The smallest float that is not below the value; infinity where there is none. Not for NaN.
inline float roundedUp(double value) { return -roundedDown(-value); }

}  // namespace util
