#include <facetbox/util/spatial/ViewVolume.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <facetbox/util/math/OverlapsBox.h>

namespace util {

namespace {

struct FaceTable {
  std::size_t p, a0, a1, b0, b1;                // the plane goes through p; its normal is (a1 - a0) x (b1 - b0)
  std::array<std::size_t, 4> corners;           // of the face
  std::array<std::array<std::size_t, 3>, 2> t;  // its triangles
  std::array<bool, 2> inward;  // whether a triangle's corners turn the other way than the face's normal
};

// Near and far last: it is the sides that most boxes are beyond.
constexpr std::array<FaceTable, 6> kFaces{{
    {0, 0, 3, 0, 4, {0, 3, 7, 4}, {{{0, 3, 7}, {0, 7, 4}}}, {false, false}},
    {1, 1, 5, 1, 2, {1, 2, 6, 5}, {{{1, 2, 6}, {1, 6, 5}}}, {true, true}},
    {6, 6, 7, 6, 2, {2, 3, 7, 6}, {{{2, 3, 7}, {2, 7, 6}}}, {true, true}},
    {1, 1, 0, 1, 5, {0, 1, 5, 4}, {{{0, 1, 4}, {1, 4, 5}}}, {true, false}},
    {0, 0, 1, 0, 3, {0, 1, 2, 3}, {{{0, 1, 2}, {0, 2, 3}}}, {false, false}},
    {5, 5, 4, 5, 6, {4, 5, 6, 7}, {{{4, 5, 6}, {4, 6, 7}}}, {true, true}},
}};

// How far a box must be off a plane, relative to the largest coordinate M of volume and box, for no triangle behind
// the plane to be found overlapping it in rounded arithmetic.
//
// Let the distance be d. One of the axes of the overlap test separates by at least d / sqrt(3) per unit of its length:
// over the directions in which the same two features are the nearest, the gap is d times a cosine; these directions
// are a patch of the unit sphere inside one octant, whose corners are such axes, and a patch within an octant has a
// corner within acos(1 / sqrt(3)) of each of its points. In the box's frame, which costs one rounding of every
// coordinate, edges and their products with the box axes are right to a few ulp of themselves. Only the triangle's
// normal may be off, by 8e-16 L^2 where L < 3.5 M is its longest edge: for a triangle of height w, an angle of
// 8e-16 L / w or a gap of less than 5e-15 M^2 / w. But then the triangle is within w of its longest edge, and the axes
// of a segment do without that normal. The smaller of w and 5e-15 M^2 / w is at most 7.1e-8 M, times sqrt(3) 1.23e-7 M.
// Rounding of the plane itself is a few 1e-16 M. A box inside another may have twice its M: the double is enough for
// both.
static_assert(ViewVolume::kMargin > 2 * 1.23e-7);

// Thinner triangles than this, relative to M and in height over the longest edge, are slivers. Normals of others are
// right to 1e-15 L^2 / (1e-7 M L) < 4e-8. The near face of a window of some pixels has to be none.
constexpr double kSliver = 1e-7;

// Within these sizes products of three coordinates neither overflow nor lose their relative precision.
constexpr double kSmallest = 1e-60, kLargest = 1e60;

double largestOf(const Vec3& v) { return std::max(std::max(std::fabs(v.x), std::fabs(v.y)), std::fabs(v.z)); }

}  // namespace

ViewVolume::ViewVolume(const Vec3 corners[8]) {
  std::copy_n(corners, 8, mCorners.begin());
  double nothing = 0;  // NaN where a coordinate is not finite
  mSize = 0;
  for (const Vec3& corner : mCorners) {
    mSize = std::max(mSize, largestOf(corner));
    nothing += 0 * corner.x + 0 * corner.y + 0 * corner.z;
  }
  if (!(nothing == 0 && mSize >= kSmallest && mSize <= kLargest)) mSize = std::numeric_limits<double>::infinity();
  const auto middleOf = [&](std::size_t first) {
    return (mCorners[first] + mCorners[first + 1] + mCorners[first + 2] + mCorners[first + 3]) / 4;
  };
  mAxisStart = middleOf(0);
  mAxis = middleOf(4) - mAxisStart;
  mInverseAxisLengthSq = 1 / lengthSq(mAxis);
  makePlanes();
  makeTriangles();
  mIsHull = !mHasSlivers && isBounded();
}

void ViewVolume::makePlanes() {
  for (std::size_t i = 0; i < mPlanes.size(); ++i) {
    TwoFaces& two = mPlanes[i];
    const auto normalOf = [this](const FaceTable& face) {
      return cross(mCorners[face.a1] - mCorners[face.a0], mCorners[face.b1] - mCorners[face.b0]);
    };
    const Vec3 m = normalOf(kFaces[2 * i]), n = normalOf(kFaces[2 * i + 1]);
    const Pair lengths{length(m), length(n)};
    two.normalX = Pair{m.x, n.x} / lengths;
    two.normalY = Pair{m.y, n.y} / lengths;
    two.normalZ = Pair{m.z, n.z} / lengths;
    two.sizeX = sizesOf(two.normalX);
    two.sizeY = sizesOf(two.normalY);
    two.sizeZ = sizesOf(two.normalZ);

    std::array<Pair, 8> heights;
    for (std::size_t corner = 0; corner < 8; ++corner) heights[corner] = two.heightsOf(mCorners[corner]);
    two.farthest = heights[0];
    for (const Pair height : heights) two.farthest = largerOf(height, two.farthest);
    for (std::size_t k = 0; k < 2; ++k) {
      const FaceTable& face = kFaces[2 * i + k];
      const auto of = [&](std::size_t corner) { return heights[face.corners[corner]][k]; };
      two.offset[k] = heights[face.p][k];
      two.low[k] = std::min(std::min(of(0), of(1)), std::min(of(2), of(3)));
      two.high[k] = std::max(std::max(of(0), of(1)), std::max(of(2), of(3)));
    }
  }
}

void ViewVolume::makeTriangles() {
  const double smallest = kSliver * kSliver * mSize * mSize;
  auto areSound = Pair{0, 0} == Pair{0, 0};
  for (std::size_t i = 0; i < kFaces.size(); ++i) {
    TwoTriangles& both = mTriangles[i];
    // Two edges of each triangle, in an order that makes the normal point outward.
    const auto edge = [&](std::size_t k, bool isFirst) {
      const auto& t = kFaces[i].t[k];
      return mCorners[t[isFirst != kFaces[i].inward[k] ? 1 : 2]] - mCorners[t[0]];
    };
    const Vec3 e0 = edge(0, true), e1 = edge(1, true), f0 = edge(0, false), f1 = edge(1, false);
    const Pair ex{e0.x, e1.x}, ey{e0.y, e1.y}, ez{e0.z, e1.z}, fx{f0.x, f1.x}, fy{f0.y, f1.y}, fz{f0.z, f1.z};
    const Vec3 &p = mCorners[kFaces[i].t[0][0]], &q = mCorners[kFaces[i].t[1][0]];
    const Pair px{p.x, q.x}, py{p.y, q.y}, pz{p.z, q.z};
    both.normalX = ey * fz - ez * fy;
    both.normalY = ez * fx - ex * fz;
    both.normalZ = ex * fy - ey * fx;
    both.sizes = sizesOf(both.normalX) + sizesOf(both.normalY) + sizesOf(both.normalZ);
    both.offset = both.normalX * px + both.normalY * py + both.normalZ * pz;
    const auto lengthsSq = [](Pair x, Pair y, Pair z) { return x * x + y * y + z * z; };
    const Pair longest =
        largerOf(largerOf(lengthsSq(ex, ey, ez), lengthsSq(fx, fy, fz)), lengthsSq(fx - ex, fy - ey, fz - ez));
    areSound &= lengthsSq(both.normalX, both.normalY, both.normalZ) >= smallest * longest;
  }
  mHasSlivers = (areSound[0] & areSound[1]) == 0;
}

// Where all corners of each face are near its plane, the surface stays near the planes: it leaves out the points that
// are farther inside all of them. These are a convex set, so the surface goes round each of them as it does round one;
// and round a point behind all triangles it goes.
bool ViewVolume::isBounded() const {
  const double margin = kMargin * mSize;
  const Vec3 middle = mAxisStart + mAxis / 2;
  auto bounded = Pair{0, 0} == Pair{0, 0};
  for (const TwoFaces& two : mPlanes)
    bounded &= (two.low >= two.offset - margin) & (two.high <= two.offset + margin) &
               (two.heightsOf(middle) < two.offset - margin);
  return (bounded[0] & bounded[1]) != 0 && isCertainlyBehindAllTriangles(middle, margin);
}

double ViewVolume::sizeOf(const Vec3& centre, const Vec3& half) const {
  // Infinite where shortcuts must not be taken: nothing is farther off than that. Boxes with a NaN need no such care,
  // they meet nothing either way.
  const double size = largestOf(centre) + largestOf(half);
  return size <= kLargest ? mSize + size : std::numeric_limits<double>::infinity();
}

bool ViewVolume::isCertainlyBehindAllTriangles(const Vec3& p, double margin) const {
  auto behind = Pair{0, 0} == Pair{0, 0};
  for (const TwoTriangles& two : mTriangles)
    behind &= two.normalX * p.x + two.normalY * p.y + two.normalZ * p.z < two.offset - margin * two.sizes;
  return (behind[0] & behind[1]) != 0;
}

/// Whether a few steps lead to a point of the box that is certainly behind the whole surface.
bool ViewVolume::holdsPointInside(const Vec3& centre, const Vec3& half, double margin) const {
  if (!(std::min(std::min(half.x, half.y), half.z) >= 0)) return false;
  constexpr int kSteps = 4;
  // From the point next to the volume's axis, which is mostly inside.
  const auto clamped = [](double x, double middle, double reach) {
    return std::min(std::max(x, middle - reach), middle + reach);
  };
  const double along = dot(centre - mAxisStart, mAxis) * mInverseAxisLengthSq;
  const Vec3 next = mAxisStart + along * mAxis;
  Vec3 p{clamped(next.x, centre.x, half.x), clamped(next.y, centre.y, half.y), clamped(next.z, centre.z, half.z)};
  for (int step = 0; step < kSteps; ++step) {
    std::array<Pair, 3> depths;
    for (std::size_t i = 0; i < 3; ++i) depths[i] = mPlanes[i].low - mPlanes[i].heightsOf(p);
    const Pair least = smallerOf(smallerOf(depths[0], depths[1]), depths[2]);
    const double depth = std::min(least[0], least[1]);
    if (depth > margin) return mIsHull || isCertainlyBehindAllTriangles(p, margin);
    std::size_t face = 0;
    while (face < 5 && depths[face / 2][face % 2] != depth) ++face;
    // Towards the corner that is the farthest behind the face that this point is the least behind.
    const Vec3 n = normal(face);
    const Vec3 way =
        centre - Vec3{std::copysign(half.x, n.x), std::copysign(half.y, n.y), std::copysign(half.z, n.z)} - p;
    const double part = (depth - 2 * margin) / dot(n, way);
    // Below 0 where this point is at that corner but for rounding: going on would leave the box.
    if (!(part >= 0 && part <= 1)) return false;
    p = p + part * way;
  }
  return false;
}

bool ViewVolume::reachesOut(const Vec3& centre, const Vec3& half) const {
  const double margin = kFirmMargin * sizeOf(centre, half);
  auto beyond = Pair{0, 0} != Pair{0, 0};
  for (const TwoFaces& two : mPlanes) beyond |= two.heightsOf(centre) + two.reachesOf(half) > two.farthest + 3 * margin;
  return (beyond[0] | beyond[1]) != 0 && std::min(std::min(half.x, half.y), half.z) >= margin;
}

bool ViewVolume::touchesSurface(const Vec3& centre, const Vec3& half, double margin) const {
  const double c[3] = {centre.x, centre.y, centre.z}, h[3] = {half.x, half.y, half.z};
  for (std::size_t i = 0; i < kFaces.size(); ++i) {
    const TwoFaces& two = mPlanes[i / 2];
    const double height = two.heightsOf(centre)[i % 2], gap = two.reachesOf(half)[i % 2] + margin;
    if (height - two.high[i % 2] > gap || two.low[i % 2] - height > gap) continue;
    for (const auto& t : kFaces[i].t) {
      const Vec3 &p0 = mCorners[t[0]], &p1 = mCorners[t[1]], &p2 = mCorners[t[2]];
      const double a[3] = {p0.x, p0.y, p0.z}, b[3] = {p1.x, p1.y, p1.z}, d[3] = {p2.x, p2.y, p2.z};
      if (overlapsBox(a, b, d, c, h)) return true;
    }
  }
  return false;
}

// The twelve triangles are a closed surface. From a point behind all of them, they cover the sphere of directions, each
// part as often and all from the same side: the point cannot be joined to one beyond the whole volume without crossing
// a triangle. So when the box, less a rim as wide as the margin, holds a point of either kind, a triangle reaches
// through the rim. On every axis of the overlap test, its projection then reaches into that of the box by the margin
// per unit of the axis' coordinates' sizes. Corners in the box's frame, edges and their products with the box axes are
// off by a few 1e-16 M of that, a normal that is not a sliver's by 4e-8 of its length, which is 1.4e-7 M over a
// triangle: less than the margin of 4.8e-7 M, so that the triangle is found.
//
// A box around this one has the same two points, less its own rim. Its M is at most three times that of the volume
// alone, and three margins are kept: it meets the volume as well.
ViewVolume::Meeting ViewVolume::meeting(const Vec3& centre, const Vec3& half) const {
  const double size = sizeOf(centre, half), margin = kMargin * size, firm = kFirmMargin * size;
  const double radius = std::min(std::min(std::fabs(half.x), std::fabs(half.y)), std::fabs(half.z));
  // All planes without a branch: boxes near the volume are beyond any of them.
  auto apart = Pair{0, 0} != Pair{0, 0}, beyond = apart;
  auto inside = Pair{0, 0} == Pair{0, 0};
  for (const TwoFaces& two : mPlanes) {
    const Pair height = two.heightsOf(centre), reached = two.reachesOf(half);
    apart |= height - two.farthest > reached + margin;
    inside &= height < two.offset - radius;
    // Without its rim the box reaches less far, by up to sqrt(3) margins.
    beyond |= height + reached > two.farthest + 3 * firm;
  }
  if ((apart[0] | apart[1]) != 0) return Meeting::none;
  if ((inside[0] & inside[1]) != 0) return Meeting::some;
  if (!mHasSlivers && (beyond[0] | beyond[1]) != 0 && holdsPointInside(centre, half - Vec3{firm, firm, firm}, firm))
    return Meeting::firm;
  return touchesSurface(centre, half, margin) ? Meeting::some : Meeting::none;
}

ViewVolume::Meeting ViewVolume::meeting(const Box& box) const {
  if (box.min.x > box.max.x || box.min.y > box.max.y || box.min.z > box.max.z) return Meeting::none;
  const Vec3 half = (box.max - box.min) / 2;
  return meeting(box.min + half, half);
}

}  // namespace util
