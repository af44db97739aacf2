#pragma once

#include <facetbox/math/Vec3.h>

namespace util {

struct ClosestPoint {
  double distanceSq;
  Vec3 point;
};

/// The closest point of the segment from a to b. Of a segment without length it is a.
/// @param toA, toB  from the point that is asked about
inline ClosestPoint closestOnSegment(const Vec3& a, const Vec3& b, const Vec3& ab, const Vec3& toA, const Vec3& toB) {
  const double along = -dot(toA, ab), size = lengthSq(ab);
  if (!(along > 0)) return {lengthSq(toA), a};
  if (!(along < size)) return {lengthSq(toB), b};
  const double t = along / size;
  return {lengthSq(toA + t * ab), a + t * ab};
}

/// The closest point of a triangle: the foot of the perpendicular, where it lies inside, else the nearest of the three
/// edges. In a sliver the edges count in any case.
///
/// The corners are sorted first, so that the order in which they are given makes no difference, and a shared edge gives
/// all its triangles the same bits. Which edge or corner is closest is not told from signs (as in Ericson, Real-Time
/// Collision Detection, 2005, 5.1.5): in a sliver these are rounding errors, and the answer may be off by all its
/// length. No product of four lengths may overflow. Where one vanishes, a triangle counts as a sliver.
inline ClosestPoint closestOnTriangle(const Vec3& point, const Vec3& p, const Vec3& q, const Vec3& r) {
  // Without branches: none of them would be foreseen.
  const auto isBefore = [](const Vec3& s, const Vec3& t) {
    return static_cast<unsigned>(s.x < t.x) | (static_cast<unsigned>(s.x == t.x) &
                                               (static_cast<unsigned>(s.y < t.y) | (static_cast<unsigned>(s.y == t.y) &
                                                                                    static_cast<unsigned>(s.z < t.z))));
  };
  const unsigned qBeforeP = isBefore(q, p), rBeforeP = isBefore(r, p), rBeforeQ = isBefore(r, q);
  Vec3 corners[3];
  corners[qBeforeP + rBeforeP] = p;
  corners[1 - qBeforeP + rBeforeQ] = q;
  corners[2 - rBeforeP - rBeforeQ] = r;
  const Vec3 &a = corners[0], &b = corners[1], &c = corners[2];
  const Vec3 ab = b - a, ac = c - a, toA = a - point;
  const Vec3 normal = cross(ab, ac);
  const double size = lengthSq(normal), v = dot(cross(ac, toA), normal), w = dot(cross(toA, ab), normal);
  const bool isAbove = v > 0 && w > 0 && v + w < size;
  ClosestPoint foot{};
  if (isAbove) {
    const Vec3 fromA = v / size * ab + w / size * ac;
    foot = {lengthSq(toA + fromA), a + fromA};
    constexpr double kSliver = 0x1p-20;  // the square of an angle's sine
    if (size > kSliver * (lengthSq(ab) * lengthSq(ac))) return foot;
  }
  const Vec3 toB = b - point, toC = c - point;
  ClosestPoint best = closestOnSegment(a, b, ab, toA, toB);
  const auto consider = [&](const ClosestPoint& other) {
    if (other.distanceSq < best.distanceSq) best = other;
  };
  consider(closestOnSegment(a, c, ac, toA, toC));
  consider(closestOnSegment(b, c, c - b, toB, toC));
  if (isAbove) consider(foot);
  return best;
}

}  // namespace util
