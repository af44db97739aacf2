#include <facetbox/spatial/Frustum.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>
#include <numbers>

#include <facetbox/math/OverlapsBox.h>

namespace util {

namespace {

struct FaceTable {
  std::size_t p, a0, a1, b0, b1;                        // the plane goes through p; its normal is (a1 - a0) x (b1 - b0)
  std::array<std::size_t, 4> corners;                   // of the face
  std::array<std::array<std::size_t, 3>, 2> triangles;  // of the face
};

// Opposite faces are neighbors in this table. Near and far come last: most boxes lie outside one of the sides.
constexpr std::array<FaceTable, 6> kFaces{{
    {0, 0, 3, 0, 4, {0, 3, 7, 4}, {{{0, 3, 7}, {0, 7, 4}}}},
    {1, 1, 5, 1, 2, {1, 2, 6, 5}, {{{1, 2, 6}, {1, 6, 5}}}},
    {6, 6, 7, 6, 2, {2, 3, 7, 6}, {{{2, 3, 7}, {2, 7, 6}}}},
    {1, 1, 0, 1, 5, {0, 1, 5, 4}, {{{0, 1, 4}, {1, 4, 5}}}},
    {0, 0, 1, 0, 3, {0, 1, 2, 3}, {{{0, 1, 2}, {0, 2, 3}}}},
    {5, 5, 4, 5, 6, {4, 5, 6, 7}, {{{4, 5, 6}, {4, 6, 7}}}},
}};

// The margin. Let M be the largest coordinate of volume and box, and let the box be above a plane by a distance d.
// When does the rounded overlap test find no triangle below the plane to overlap the box?
//
// One axis of that test separates them by at least d / sqrt(3) per unit of its length: over the directions in which the
// same two features are the nearest, the gap is d times a cosine. These directions are a patch of the unit sphere
// inside one octant, whose corners are such axes, and a patch within an octant has a corner within acos(1 / sqrt(3)) of
// each of its points. In the box's frame, which costs one rounding of every coordinate, edges and their products with
// the box axes are right to a few ulp of themselves. Only the triangle's normal may be off.
constexpr double kSqrt3 = std::numbers::sqrt3;
constexpr double kLongestEdge = 2 * kSqrt3;  // in M: all corners lie in a cube of half-size M
constexpr double kNormalError = 8e-16;       // of the product of two edges, relative to the longest edge squared
// For a triangle of height w over its longest edge L, the normal's length is L w. So its direction is off by
// kNormalError L / w, and the gap by that times the distance sqrt(3) M.
constexpr double kGapErrorTimesHeight = kNormalError * kLongestEdge * kSqrt3;  // in M squared
// But then the triangle is within w of its longest edge, and the axes of a segment do without that normal. The smaller
// of w and kGapErrorTimesHeight / w is at most the root of their product.
constexpr double kGapError = 7e-8;  // in M
static_assert(kGapError * kGapError >= kGapErrorTimesHeight);
constexpr double kPlaneError = 16 * std::numeric_limits<double>::epsilon();  // in M: of the plane itself
static_assert(Frustum::kMargin > kSqrt3 * kGapError + kPlaneError);

// A triangle is a sliver if its height over its longest edge is smaller than this, in M.
constexpr double kSliver = 1e-7;
// In M: what a wrong direction of the normal makes of the projections of other triangles.
constexpr double kThickTriangleError = kNormalError * kLongestEdge / kSliver * kLongestEdge;
static_assert(Frustum::kMargin > kThickTriangleError + kPlaneError);

// For measureFaces(), in units of the largest deviation D of a corner from the plane of its face.
constexpr double kOppositeInD = 8;

// Between these magnitudes, products of three coordinates neither overflow nor lose their relative precision.
constexpr double kSmallest = 1e-60, kLargest = 1e60;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

double magnitudeOf(const Vec3& v) { return std::max(std::max(std::fabs(v.x), std::fabs(v.y)), std::fabs(v.z)); }

}  // namespace

Frustum::Frustum(const Vec3 corners[8]) {
  std::copy_n(corners, 8, mCorners.begin());
  double zero = 0;  // becomes NaN with the first coordinate that is not finite
  mMagnitude = 0;
  for (const Vec3& corner : mCorners) {
    mMagnitude = std::max(mMagnitude, magnitudeOf(corner));
    zero += 0 * corner.x + 0 * corner.y + 0 * corner.z;
  }
  if (!(zero == 0 && mMagnitude >= kSmallest && mMagnitude <= kLargest)) mMagnitude = kInfinity;
  prepareFaces();
  measureFaces();
  const auto middleOf = [this](std::size_t k) {
    return (mCorners[k] + mCorners[k + 1] + mCorners[k + 2] + mCorners[k + 3]) / 4;
  };
  mAxisStart = middleOf(0);
  mAxis = middleOf(4) - mAxisStart;
  mAxisPart = mAxis / lengthSq(mAxis);
}

void Frustum::prepareFaces() {
  for (std::size_t i = 0; i < mFaces.size(); ++i) {
    FacePair& pair = mFaces[i];
    const auto normalOf = [this](const FaceTable& face) {
      return cross(mCorners[face.a1] - mCorners[face.a0], mCorners[face.b1] - mCorners[face.b0]);
    };
    const Vec3 m = normalOf(kFaces[2 * i]), n = normalOf(kFaces[2 * i + 1]);
    const Double2 lengths{length(m), length(n)};
    pair.normalX = Double2{m.x, n.x} / lengths;
    pair.normalY = Double2{m.y, n.y} / lengths;
    pair.normalZ = Double2{m.z, n.z} / lengths;
    pair.magnitudeX = magnitudesOf(pair.normalX);
    pair.magnitudeY = magnitudesOf(pair.normalY);
    pair.magnitudeZ = magnitudesOf(pair.normalZ);

    std::array<Double2, 8> heights;
    for (std::size_t corner = 0; corner < 8; ++corner) heights[corner] = pair.heightsOf(mCorners[corner]);
    pair.farthest = heights[0];
    for (const Double2 height : heights) pair.farthest = max(height, pair.farthest);
    for (std::size_t k = 0; k < 2; ++k) {
      const FaceTable &face = kFaces[2 * i + k], &opposite = kFaces[2 * i + 1 - k];
      const auto of = [&](const FaceTable& which, std::size_t corner) { return heights[which.corners[corner]][k]; };
      pair.offset[k] = heights[face.p][k];
      pair.low[k] = std::min(std::min(of(face, 0), of(face, 1)), std::min(of(face, 2), of(face, 3)));
      pair.high[k] = std::max(std::max(of(face, 0), of(face, 1)), std::max(of(face, 2), of(face, 3)));
      pair.opposite[k] =
          std::max(std::max(of(opposite, 0), of(opposite, 1)), std::max(of(opposite, 2), of(opposite, 3)));
    }
  }
}

double Frustum::marginFor(const Vec3& center, const Vec3& half) const {
  // Where it is infinite, the planes decide nothing. A box with a NaN needs no such care: it meets nothing either way.
  const double magnitude = magnitudeOf(center) + magnitudeOf(half);
  return magnitude <= kLargest ? kMargin * (mMagnitude + magnitude) : kInfinity;
}

void Frustum::prepare(Triangle& triangle, const std::array<std::size_t, 3>& corners) const {
  triangle.start = mCorners[corners[0]];
  triangle.edgeU = mCorners[corners[1]] - triangle.start;
  triangle.edgeV = mCorners[corners[2]] - triangle.start;
  const Vec3 normal = cross(triangle.edgeU, triangle.edgeV);
  const double square = lengthSq(normal);
  const double longest =
      std::max({lengthSq(triangle.edgeU), lengthSq(triangle.edgeV), lengthSq(triangle.edgeV - triangle.edgeU)});
  const bool isThick = square >= kSliver * kSliver * mMagnitude * mMagnitude * longest;
  triangle.state = isThick ? Triangle::State::prepared : Triangle::State::sliver;
  const double inverse = 1 / square;
  triangle.gradientU = inverse * cross(triangle.edgeV, normal);
  triangle.gradientV = inverse * cross(normal, triangle.edgeU);
}

// Tries one point of each triangle, the nearest to the box's center or nearly so. If any point of the triangle lies
// deeper in the box than the margin, the overlap test finds an overlap: on each of its axes, the triangle's projection
// reaches into that of the box by the margin per unit of the axis' magnitudes. What the test may be off by is less, as
// stated at kThickTriangleError.
bool Frustum::findsPointIn(std::size_t face, const Vec3& center, const Vec3& half, double margin) const {
  for (std::size_t k = 0; k < 2; ++k) {
    Triangle& triangle = mTriangles[face][k];
    if (triangle.state == Triangle::State::unprepared) prepare(triangle, kFaces[face].triangles[k]);
    if (triangle.state == Triangle::State::sliver) continue;
    const Vec3 way = center - triangle.start;
    double u = std::max(dot(way, triangle.gradientU), 0.0), v = std::max(dot(way, triangle.gradientV), 0.0);
    const double excess = std::max(u + v - 1, 0.0) / 2;
    u = std::min(std::max(u - excess, 0.0), 1.0);
    v = std::min(std::max(v - excess, 0.0), 1 - u);
    const Vec3 off = way - u * triangle.edgeU - v * triangle.edgeV;
    if (std::fabs(off.x) <= half.x - margin && std::fabs(off.y) <= half.y - margin &&
        std::fabs(off.z) <= half.z - margin)
      return true;
  }
  return false;
}

/// Measures how far corners are off the planes of their faces, and whether those of the opposite faces are clearly
/// below.
void Frustum::measureFaces() {
  Double2 most{0, 0};
  for (const FacePair& pair : mFaces) most = max(max(pair.high - pair.offset, pair.offset - pair.low), most);
  mDeviation = std::max(std::max(most[0], most[1]), kSliver * mMagnitude);
  auto areApart = Double2{0, 0} == Double2{0, 0};
  for (const FacePair& pair : mFaces) areApart &= pair.opposite <= pair.offset - kOppositeInD * mDeviation;
  mIsConvex = mDeviation <= kDeviation * mMagnitude && (areApart[0] & areApart[1]) != 0;
}

// Let all corners of each face be within D of its plane, those of the opposite face at least 8 D below, and D at least
// the height of a sliver. Then a point that is more than D below all planes is enclosed by the surface, and one that is
// more than D above any plane is not. So the surface passes through each connected set that has points of both kinds,
// and a box that holds such a set by the margin has a point of a triangle deeper in it than the margin.
//
// Proof. (1) Seen along its normal, a face is a convex quadrilateral: to its plane, corners move by at most D, so that
// of the plane of the face beyond an edge, the edge's ends are within 2 D, and the two other corners 7 D below. So no
// two opposite edges cross, and no corner is a mean of the three others, as these would have at most 4/9 of their
// weight off either edge that ends there. Hence its triangles lie side by side, and both are higher than D over their
// longest edges. (2) The middle m of all corners is 3.5 D below all planes. So is the middle c of a face's corners
// below all planes but its own, and within 2 D along its normal, up or down, still 1.5 D below them. Go straight from m
// to where this normal through c is D below the face, and then along it to D above: only triangles of this face are
// within D of its plane and not of others, so the way crosses the surface once. (3) All of the surface is at most D
// above a plane. So the end of the way is outside, m inside, and all points that are D below all planes with it, for
// these are a convex set without a point of the surface. The edges of triangles meet in pairs, so that ways can be
// told apart by whether they cross the surface an even number of times.
static_assert((kOppositeInD - 1) / 2 >= 3.5 && kOppositeInD - 1 >= 7);
bool Frustum::reachesOut(const Vec3& center, const Vec3& half, double margin) const {
  // The magnitudes of a unit normal add up to sqrt(3), less than 2.
  const Double2 depth = Double2{} + (mDeviation + 3 * margin);
  auto above = Double2{0, 0} != Double2{0, 0};
  for (const FacePair& pair : mFaces) above |= pair.heightsOf(center) + pair.reachesOf(half) > pair.offset + depth;
  return (above[0] | above[1]) != 0 && std::min(std::min(half.x, half.y), half.z) >= margin;
}

bool Frustum::surfacePassesThrough(const Vec3& center, const Vec3& half, double margin) const {
  if (!mIsConvex || !reachesOut(center, half, margin)) return false;
  const double depth = mDeviation + margin;
  const Vec3 inner = half - Vec3{margin, margin, margin};
  constexpr int kSteps = 8;
  // From the point next to the volume's axis, which is inside mostly; to a plane below, from each that it is not below.
  const Vec3 middle = mAxisStart + dot(center - mAxisStart, mAxisPart) * mAxis;
  const auto clamped = [](double x, double c, double reach) { return std::min(std::max(x, c - reach), c + reach); };
  Vec3 p{clamped(middle.x, center.x, inner.x), clamped(middle.y, center.y, inner.y),
         clamped(middle.z, center.z, inner.z)};
  for (int step = 0; step < kSteps; ++step) {
    std::array<Double2, 3> heights;
    for (std::size_t i = 0; i < 3; ++i) heights[i] = mFaces[i].heightsOf(p) - mFaces[i].offset;
    const Double2 highest = max(max(heights[0], heights[1]), heights[2]);
    const double height = std::max(highest[0], highest[1]);
    if (height < -depth) return true;
    std::size_t face = 0;
    while (face < 5 && heights[face / 2][face % 2] != height) ++face;
    // Toward the corner that is lowest along the normal of that face, until below its plane.
    const Vec3 n = normal(face);
    const Vec3 way =
        center - Vec3{std::copysign(inner.x, n.x), std::copysign(inner.y, n.y), std::copysign(inner.z, n.z)} - p;
    const double part = (height + 2 * depth) / -dot(n, way);
    if (!(part >= 0 && part <= 1)) return false;
    p = p + part * way;
  }
  return false;
}

/// Whether a triangle of the surface overlaps the box.
bool Frustum::surfaceOverlaps(const Vec3& center, const Vec3& half, double margin) const {
  std::array<bool, 6> isNear;
  for (std::size_t i = 0; i < mFaces.size(); ++i) {
    const FacePair& pair = mFaces[i];
    const Double2 height = pair.heightsOf(center), gap = pair.reachesOf(half) + margin;
    const auto isApart = (height - pair.high > gap) | (pair.low - height > gap);
    for (std::size_t k = 0; k < 2; ++k) {
      isNear[2 * i + k] = isApart[k] == 0;
      if (isNear[2 * i + k] && findsPointIn(2 * i + k, center, half, margin)) return true;
    }
  }
  const double c[3] = {center.x, center.y, center.z}, h[3] = {half.x, half.y, half.z};
  for (std::size_t i = 0; i < kFaces.size(); ++i) {
    if (!isNear[i]) continue;
    for (const auto& t : kFaces[i].triangles) {
      const Vec3 &p0 = mCorners[t[0]], &p1 = mCorners[t[1]], &p2 = mCorners[t[2]];
      const double a[3] = {p0.x, p0.y, p0.z}, b[3] = {p1.x, p1.y, p1.z}, d[3] = {p2.x, p2.y, p2.z};
      if (overlapsBox(a, b, d, c, h)) return true;
    }
  }
  return false;
}

bool Frustum::meets(const Vec3& center, const Vec3& half) const {
  const double margin = marginFor(center, half);
  const double radius = std::min(std::min(std::fabs(half.x), std::fabs(half.y)), std::fabs(half.z));
  // All planes without a branch, because boxes near the volume may be outside any of them.
  auto apart = Double2{0, 0} != Double2{0, 0};
  auto inside = Double2{0, 0} == Double2{0, 0};
  for (const FacePair& pair : mFaces) {
    const Double2 height = pair.heightsOf(center);
    apart |= height - pair.farthest > pair.reachesOf(half) + margin;
    inside &= height < pair.offset - radius;
  }
  if ((apart[0] | apart[1]) != 0) return false;
  return (inside[0] & inside[1]) != 0 || surfaceOverlaps(center, half, margin);
}

bool Frustum::meets(const Box& box) const {
  if (box.min.x > box.max.x || box.min.y > box.max.y || box.min.z > box.max.z) return false;
  const Vec3 half = (box.max - box.min) / 2;
  return meets(box.min + half, half);
}

Frustum::Side Frustum::sideOf(const Box& box) const {
  if (!(box.min.x <= box.max.x && box.min.y <= box.max.y && box.min.z <= box.max.z)) return Side::outside;
  const Vec3 half = (box.max - box.min) / 2, center = box.min + half;
  const double margin = marginFor(center, half), depth = (kDeviation + 2 * kLargestMargin) * mMagnitude;
  auto apart = Double2{0, 0} != Double2{0, 0};
  auto inside = Double2{0, 0} == Double2{0, 0};
  for (const FacePair& pair : mFaces) {
    // A box reaches along a normal at least as far as its inner sphere.
    const Double2 height = pair.heightsOf(center), reach = pair.reachesOf(half) + margin;
    apart |= height - pair.farthest > reach;
    inside &= height + reach < pair.offset - depth;
  }
  if ((apart[0] | apart[1]) != 0) return Side::outside;
  return (inside[0] & inside[1]) != 0 ? Side::inside : Side::unsure;
}

}  // namespace util
