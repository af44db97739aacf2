#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include <boost/multiprecision/cpp_int.hpp>

namespace support {

/// The double in units of the smallest denormal.
inline boost::multiprecision::cpp_int exact(double v) {
  using boost::multiprecision::cpp_int;
  const auto bits = std::bit_cast<std::uint64_t>(v);
  const auto exponent = static_cast<unsigned>(bits >> 52 & 0x7ff);
  const std::uint64_t fraction = bits & ((std::uint64_t{1} << 52) - 1);
  cpp_int magnitude = exponent == 0 ? fraction : fraction | std::uint64_t{1} << 52;
  if (exponent > 1) magnitude <<= exponent - 1;
  return bits >> 63 ? cpp_int(-magnitude) : magnitude;
}

/// Moves v by some units in the last place.
inline double nudged(double v, int steps) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (; steps > 0; --steps) v = std::nextafter(v, kInfinity);
  for (; steps < 0; ++steps) v = std::nextafter(v, -kInfinity);
  return v;
}

inline double real(std::mt19937& random, double low, double high) {
  return std::uniform_real_distribution<double>(low, high)(random);
}

/// Any finite bit pattern: all magnitudes alike.
inline double anyFinite(std::mt19937& random) {
  for (;;) {
    const auto value = std::bit_cast<double>(std::uint64_t{random()} << 32 | random());
    if (std::isfinite(value)) return value;
  }
}

}  // namespace support
