#include <facetbox/math/OverlapsBox.h>

#include <algorithm>
#include <cmath>

#include <facetbox/math/Vec3.h>

// Separating axes after Akenine-Moeller, Fast 3D Triangle-Box Overlap Testing, 2001, in the box's centered frame: the
// three box axes, the triangle's plane, and the nine cross products of the triangle's edges with the box axes.
//
// The answer is the same in whatever order the axes are tried: those that separate most often come first.

namespace util {

namespace {

/// Whether an axis of the box separates. A NaN coordinate does not; the plane catches it.
bool isApartOnAxis(double a, double b, double c, double half) {
  return std::min(std::min(a, b), c) > half || std::max(std::max(a, b), c) < -half;
}

/// Whether the box touches the plane through `vertex`. The normal of a triangle with a NaN corner is NaN, and so is
/// the last comparison's sum: no.
bool touchesPlane(const Vec3& normal, const Vec3& vertex, const Vec3& half) {
  const auto nearest = [](double n, double v, double h) { return (n > 0.0 ? -h : h) - v; };
  const auto farthest = [](double n, double v, double h) { return (n > 0.0 ? h : -h) - v; };
  const Vec3 low{nearest(normal.x, vertex.x, half.x), nearest(normal.y, vertex.y, half.y),
                 nearest(normal.z, vertex.z, half.z)};
  if (dot(normal, low) > 0.0) return false;
  const Vec3 high{farthest(normal.x, vertex.x, half.x), farthest(normal.y, vertex.y, half.y),
                  farthest(normal.z, vertex.z, half.z)};
  return dot(normal, high) >= 0.0;
}

/// Whether the projections p and q of a triangle lie beyond those of the box, -radius to radius.
bool isApart(double p, double q, double radius) { return std::min(p, q) > radius || std::max(p, q) < -radius; }

/// Whether one of the cross products of an edge with the box axes separates. The ends of the edge project to the same
/// number but for rounding: two corners stand for all three, `a` and `b` for x and y, `c` and `d` for z, as published.
bool isApartAcross(const Vec3& edge, const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d, const Vec3& half) {
  const Vec3 size{std::fabs(edge.x), std::fabs(edge.y), std::fabs(edge.z)};
  return isApart(edge.z * a.y - edge.y * a.z, edge.z * b.y - edge.y * b.z, size.z * half.y + size.y * half.z) ||
         isApart(-edge.z * a.x + edge.x * a.z, -edge.z * b.x + edge.x * b.z, size.z * half.x + size.x * half.z) ||
         isApart(edge.y * c.x - edge.x * c.y, edge.y * d.x - edge.x * d.y, size.y * half.x + size.x * half.y);
}

}  // namespace

bool overlapsBox(const double p0[3], const double p1[3], const double p2[3], const double boxCenter[3],
                 const double boxHalfSize[3]) {
  const Vec3 center = toVec3(boxCenter), half = toVec3(boxHalfSize);
  const Vec3 v0 = toVec3(p0) - center, v1 = toVec3(p1) - center, v2 = toVec3(p2) - center;
  if (isApartOnAxis(v0.x, v1.x, v2.x, half.x) || isApartOnAxis(v0.y, v1.y, v2.y, half.y) ||
      isApartOnAxis(v0.z, v1.z, v2.z, half.z))
    return false;
  const Vec3 e0 = v1 - v0, e1 = v2 - v1, e2 = v0 - v2;
  if (!touchesPlane(cross(e0, e1), v0, half)) return false;
  return !isApartAcross(e0, v0, v2, v1, v2, half) && !isApartAcross(e1, v0, v2, v0, v1, half) &&
         !isApartAcross(e2, v0, v1, v1, v2, half);
}

}  // namespace util
