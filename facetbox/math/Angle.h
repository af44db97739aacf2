#pragma once

#include <cmath>

#include <facetbox/math/Vec3.h>

namespace util {

/// The unit vector along `v`, by division. A vector whose length is not above 1e-25, and so one of NaN length, becomes
/// (0, 1, 0); infinite components give NaN.
inline Vec3 normalized(const Vec3& v) {
  const double size = length(v);
  if (!(size > 1e-25)) return {0.0, 1.0, 0.0};
  return v / size;
}

/// Angle between two unit vectors, in radians. NaN where a component is NaN. The order of the two does not matter, down
/// to the last bit.
///
/// Half the angle is measured by its chord, from the nearer of b and -b: the arc cosine of a dot product would lose all
/// digits near 0 and pi.
inline double angleBetween(const Vec3& a, const Vec3& b) {
  constexpr double kPi = 3.141592653589793;
  if (dot(a, b) < 0.0) return kPi - 2.0 * std::asin(length(-b - a) / 2.0);
  return 2.0 * std::asin(length(b - a) / 2.0);
}

}  // namespace util
