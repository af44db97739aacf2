#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

#include <facetbox/math/Vec3.h>

/// Exact predicates on points of the plane: no tolerance, no rounding, for every finite double (denormals and the
/// largest magnitudes included). Round-to-nearest is assumed.

namespace util {

namespace detail {

/// `orientation` where the filter gives no answer: exact, and 0 for non-finite input.
int orientationExact(Vec2 a, Vec2 b, Vec2 c);

/// `segmentsTouch` for segments whose boxes meet.
bool segmentsTouchInBox(Vec2 p, Vec2 q, Vec2 r, Vec2 s);

/// Whether the closed boxes of segments pq and rs are apart. Unspecified where a coordinate is NaN.
inline bool boxesApart(Vec2 p, Vec2 q, Vec2 r, Vec2 s) {
  return std::max(p.x, q.x) < std::min(r.x, s.x) || std::max(r.x, s.x) < std::min(p.x, q.x) ||
         std::max(p.y, q.y) < std::min(r.y, s.y) || std::max(r.y, s.y) < std::min(p.y, q.y);
}

}  // namespace detail

/// Sign of the determinant |a - c, b - c|: +1 where a, b, c turn left (counterclockwise), -1 where they turn right, 0
/// where they lie on one line or any coordinate is not finite.
///
/// A handful of flops where the points are not nearly on one line; there some 100 ns, and up to about a microsecond and
/// an allocation where the magnitudes also differ by more than 2^900.
/// Filter: error bound A of Shewchuk, Adaptive Precision Floating-Point Arithmetic and Fast Robust Geometric
/// Predicates, 1997, with a term for the products that underflow, which he excludes.
inline int orientation(Vec2 a, Vec2 b, Vec2 c) {
  constexpr double kUnit = std::numeric_limits<double>::epsilon() / 2;
  constexpr double kBound = (3 + 16 * kUnit) * kUnit;
  // Two underflowing products and the product below are off by 2^-1075 each; this is far more and costs nothing.
  constexpr double kUnderflow = std::numeric_limits<double>::min();
  const double left = (a.x - c.x) * (b.y - c.y);
  const double right = (a.y - c.y) * (b.x - c.x);
  const double det = left - right;
  const double bound = kBound * (std::fabs(left) + std::fabs(right)) + kUnderflow;
  // After an overflow, and with non-finite input, the bound is infinite or NaN and both comparisons fail.
  if (det > bound) return 1;
  if (-det > bound) return -1;
  return detail::orientationExact(a, b, c);
}

/// Whether the closed segments pq and rs share a point. Touching and collinear overlap count; a segment of length zero
/// is a point. False where any coordinate is not finite. Symmetric in every respect.
inline bool segmentsTouch(Vec2 p, Vec2 q, Vec2 r, Vec2 s) {
  return !detail::boxesApart(p, q, r, s) && detail::segmentsTouchInBox(p, q, r, s);
}

/// Whether the edges ab and bc share more than the corner b, or one of them has no length.
inline bool foldsBack(Vec2 a, Vec2 b, Vec2 c) {
  const bool isFold = (a.x < b.x && c.x < b.x) || (a.x > b.x && c.x > b.x) || (a.y < b.y && c.y < b.y) ||
                      (a.y > b.y && c.y > b.y) || a == b || b == c;
  return isFold && orientation(a, b, c) == 0;
}

/// Whether p lies strictly inside the polygon by the even-odd rule; a point on any edge is outside. The polygon may
/// intersect itself and repeat corners.
/// False for fewer than 3 corners, for a non-finite p and where any corner is not finite. O(corners), no allocation.
bool strictlyInside(std::span<const Vec2> polygon, Vec2 p);

}  // namespace util
