#pragma once

#include <cmath>
#include <limits>

#include <facetbox/math/Vec3.h>

/// Exact predicates on points of space: no tolerance, no rounding, for every finite double (denormals and the largest
/// magnitudes included). Round-to-nearest is assumed.

namespace util {

namespace detail {

/// `orientation` where the filter gives no answer: exact, and 0 for non-finite input.
int orientationExact(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d);

}  // namespace detail

/// Sign of the determinant |a - d, b - d, c - d|: -1 where d lies on that side of the plane abc from which a, b, c turn
/// left (counterclockwise), +1 where it lies on the other, 0 where all four lie in one plane or any coordinate is not
/// finite.
///
/// Some twenty flops where the points are clearly not in one plane; else some 100 ns, and a few microseconds where that
/// does not tell either.
/// Filter: error bound A of Shewchuk, Adaptive Precision Floating-Point Arithmetic and Fast Robust Geometric
/// Predicates, 1997, with a term for the products that underflow, which he excludes.
inline int orientation(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d) {
  constexpr double kUnit = std::numeric_limits<double>::epsilon() / 2;
  constexpr double kBound = (7 + 56 * kUnit) * kUnit;
  const Vec3 ad = a - d, bd = b - d, cd = c - d;
  const double bc = bd.x * cd.y, cb = cd.x * bd.y;
  const double ca = cd.x * ad.y, ac = ad.x * cd.y;
  const double ab = ad.x * bd.y, ba = bd.x * ad.y;
  const double det = ad.z * (bc - cb) + bd.z * (ca - ac) + cd.z * (ab - ba);
  const double heights = std::fabs(ad.z) + std::fabs(bd.z) + std::fabs(cd.z);
  const double permanent = (std::fabs(bc) + std::fabs(cb)) * std::fabs(ad.z) +
                           (std::fabs(ca) + std::fabs(ac)) * std::fabs(bd.z) +
                           (std::fabs(ab) + std::fabs(ba)) * std::fabs(cd.z);
  // An underflowing product is off by 2^-1075, times a height where it is a factor of another: this is far more.
  const double bound = kBound * permanent + std::numeric_limits<double>::min() * (1 + heights);
  // After an overflow, and with non-finite input, the bound is infinite or NaN and both comparisons fail.
  if (det > bound) return 1;
  if (-det > bound) return -1;
  return detail::orientationExact(a, b, c, d);
}

/// Whether three points lie on one line: two of them at one place included. False where any coordinate is not finite.
bool areCollinear(const Vec3& a, const Vec3& b, const Vec3& c);

/// An axis along which the triangle abc can be projected onto a triangle with an area: the one that dominantAxis() has
/// for its computed normal, else the first that will do. 3 where the three are collinear.
int projectionAxis(const Vec3& a, const Vec3& b, const Vec3& c);

}  // namespace util
