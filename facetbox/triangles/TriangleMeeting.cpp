#include <facetbox/triangles/TriangleMeeting.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include <facetbox/math/Predicates.h>
#include <facetbox/math/SpacePredicates.h>

// The extreme points of the intersection of two triangles are corners of one that lie in the other, and points where an
// edge of one crosses the inside or an edge of the other. So corners in the other triangle that are not shared, and
// crossings, are what has to be looked for. Most pairs are settled before, by a plane or a line that keeps them apart.

namespace util {
namespace {

using Corners = std::array<Vec3, 3>;
using Signs = std::array<int, 3>;

constexpr int kNoAxis = 3;  // projectionAxis() of a degenerate triangle

/// The sides of a's plane on which b's corners lie. Those shared by number lie in it.
Signs sidesOf(const NumberedTriangle& a, const NumberedTriangle& b, const SharedCorners& shared) {
  Signs sides;
  for (std::size_t i = 0; i < 3; ++i)
    sides[i] = shared[i] ? 0 : orientation(a.corners[0], a.corners[1], a.corners[2], b.corners[i]);
  return sides;
}

/// Where the other triangle's plane passes through a shared corner and between the two others: the side on which the
/// next corner lies. Else 0.
int sideBehind(const Signs& sides, const SharedCorners& shared) {
  for (std::size_t i = 0; i < 3; ++i) {
    const int next = sides[(i + 1) % 3], last = sides[(i + 2) % 3];
    if (shared[i] && next * last < 0) return next;
  }
  return 0;
}

/// Whether all corners lie on one side, or are shared and lie on the border.
bool keepsApart(const Signs& sides, const SharedCorners& shared) {
  bool above = false, below = false, onIt = false;
  for (std::size_t i = 0; i < 3; ++i) {
    above |= sides[i] > 0;
    below |= sides[i] < 0;
    onIt |= sides[i] == 0 && !shared[i];
  }
  return above != below && !onIt;
}

/// Whether an edge line of a keeps b on its outer side. Both have an area and lie in one plane that `axis` projects.
bool lineKeepsApart(const NumberedTriangle& a, const NumberedTriangle& b, int axis) {
  const SharedCorners shared = sharedCorners(b, a);
  const auto flat = [axis](const Vec3& p) { return project(p, axis); };
  const Vec2 p = flat(a.corners[0]), q = flat(a.corners[1]), r = flat(a.corners[2]);
  const int inner = orientation(p, q, r);
  for (const auto& [from, to] : {std::pair(p, q), std::pair(q, r), std::pair(r, p)}) {
    bool isApart = true;
    for (std::size_t i = 0; i < 3 && isApart; ++i) {
      const int side = inner * orientation(from, to, flat(b.corners[i]));
      isApart = side < 0 || (side == 0 && shared[i]);
    }
    if (isApart) return true;
  }
  return false;
}

bool isOnSegment(const Vec3& p, const Vec3& a, const Vec3& b) {
  const auto isBetween = [](double v, double from, double to) {
    return std::min(from, to) <= v && v <= std::max(from, to);
  };
  return isBetween(p.x, a.x, b.x) && isBetween(p.y, a.y, b.y) && isBetween(p.z, a.z, b.z) && areCollinear(p, a, b);
}

/// Whether p lies in the closed triangle. `axis` projects the triangle.
bool isIn(const Corners& t, int axis, const Vec3& p) {
  if (axis == kNoAxis) return isOnSegment(p, t[0], t[1]) || isOnSegment(p, t[1], t[2]) || isOnSegment(p, t[2], t[0]);
  if (orientation(t[0], t[1], t[2], p) != 0) return false;
  const Vec2 a = project(t[0], axis), b = project(t[1], axis), c = project(t[2], axis), flat = project(p, axis);
  const int ab = orientation(a, b, flat), bc = orientation(b, c, flat), ca = orientation(c, a, flat);
  return (ab >= 0 && bc >= 0 && ca >= 0) || (ab <= 0 && bc <= 0 && ca <= 0);
}

/// Whether two segments cross in a point inside both.
bool segmentsCross(const Vec3& p, const Vec3& q, const Vec3& a, const Vec3& b) {
  const int axis = projectionAxis(p, q, a);
  if (axis == kNoAxis || orientation(p, q, a, b) != 0) return false;
  const Vec2 fp = project(p, axis), fq = project(q, axis), fa = project(a, axis), fb = project(b, axis);
  return orientation(fp, fq, fa) * orientation(fp, fq, fb) < 0 && orientation(fa, fb, fp) * orientation(fa, fb, fq) < 0;
}

/// Whether the inside of the segment pq passes through t at a point that is no corner of t and, in t's plane, through
/// the inside of an edge.
bool crosses(const Vec3& p, const Vec3& q, const Corners& t) {
  const int sideP = orientation(t[0], t[1], t[2], p), sideQ = orientation(t[0], t[1], t[2], q);
  if (sideP == 0 && sideQ == 0)
    return segmentsCross(p, q, t[0], t[1]) || segmentsCross(p, q, t[1], t[2]) || segmentsCross(p, q, t[2], t[0]);
  if (sideP * sideQ >= 0) return false;
  const Signs around{orientation(p, q, t[0], t[1]), orientation(p, q, t[1], t[2]), orientation(p, q, t[2], t[0])};
  const auto [low, high] = std::ranges::minmax(around);
  return low * high >= 0 && std::ranges::count(around, 0) < 2;
}

bool anyEdgeCrosses(const Corners& a, const Corners& b) {
  return crosses(a[0], a[1], b) || crosses(a[1], a[2], b) || crosses(a[2], a[0], b);
}

/// Corners of one triangle that lie in the other.
struct CommonCorners {
  std::array<Vec3, 6> points;
  std::size_t count = 0;

  void add(const Corners& from, const SharedCorners& wanted, const Corners& to, int axisOfTo) {
    for (std::size_t i = 0; i < 3; ++i)
      if (wanted[i] && isIn(to, axisOfTo, from[i])) points[count++] = from[i];
  }

  bool spanArea() const {
    std::size_t other = 0;
    while (other < count && points[other] == points[0]) ++other;
    for (std::size_t i = other + 1; i < count; ++i)
      if (!areCollinear(points[0], points[other], points[i])) return true;
    return false;
  }

  /// For corners that span no area.
  bool hullHolds(const Vec3& p) const {
    for (std::size_t i = 0; i < count; ++i)
      for (std::size_t j = 0; j <= i; ++j)
        if (isOnSegment(p, points[i], points[j])) return true;
    return false;
  }
};

SharedCorners inverse(const SharedCorners& shared) { return {!shared[0], !shared[1], !shared[2]}; }

}  // namespace

bool meetElsewhere(const NumberedTriangle& a, const NumberedTriangle& b, const SharedCorners& sharedOfA,
                   const SharedCorners& sharedOfB) {
  const SharedCorners commonOfB = sharedCorners(b, a);
  const Signs sidesOfB = sidesOf(a, b, commonOfB);
  if (keepsApart(sidesOfB, commonOfB)) return false;
  const SharedCorners commonOfA = sharedCorners(a, b);
  const Signs sidesOfA = sidesOf(b, a, commonOfA);
  if (keepsApart(sidesOfA, commonOfA)) return false;
  // From a shared corner, both run along the line in which their planes meet: in the same direction or not.
  const int behindA = sideBehind(sidesOfA, commonOfA), behindB = sideBehind(sidesOfB, commonOfB);
  if (behindA * behindB != 0) return behindA != behindB;

  const Corners &ofA = a.corners, &ofB = b.corners;
  const int axisA = projectionAxis(ofA[0], ofA[1], ofA[2]), axisB = projectionAxis(ofB[0], ofB[1], ofB[2]);
  if (sidesOfA == Signs{} && sidesOfB == Signs{} && axisA != kNoAxis && axisB != kNoAxis &&
      (lineKeepsApart(a, b, axisA) || lineKeepsApart(b, a, axisB)))
    return false;

  CommonCorners shared, others;
  shared.add(ofA, sharedOfA, ofB, axisB);
  shared.add(ofB, sharedOfB, ofA, axisA);
  if (shared.spanArea()) return true;
  others.add(ofA, inverse(sharedOfA), ofB, axisB);
  others.add(ofB, inverse(sharedOfB), ofA, axisA);
  for (std::size_t i = 0; i < others.count; ++i)
    if (!shared.hullHolds(others.points[i])) return true;
  // Two segments that share a point cross nowhere else. An edge of a triangle never crosses at a corner.
  if (axisA == kNoAxis && axisB == kNoAxis && shared.count != 0) return false;
  return anyEdgeCrosses(ofA, ofB) || anyEdgeCrosses(ofB, ofA);
}

}  // namespace util
