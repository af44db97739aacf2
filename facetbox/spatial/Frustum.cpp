#include <facetbox/spatial/Frustum.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include <facetbox/math/OverlapsBox.h>

namespace util {

namespace {

struct FaceTable {
  std::size_t p, a0, a1, b0, b1;                // the plane goes through p; its normal is (a1 - a0) x (b1 - b0)
  std::array<std::size_t, 4> corners;           // of the face
  std::array<std::array<std::size_t, 3>, 2> t;  // its triangles
  bool hasOneWinding = true;                    // both of them the same
};

// Near and far last: it is the sides that most boxes are beyond. Each has the one opposite as its neighbour, which has
// the other four corners.
constexpr std::array<FaceTable, 6> kFaces{{
    {0, 0, 3, 0, 4, {0, 3, 7, 4}, {{{0, 3, 7}, {0, 7, 4}}}},
    {1, 1, 5, 1, 2, {1, 2, 6, 5}, {{{1, 2, 6}, {1, 6, 5}}}},
    {6, 6, 7, 6, 2, {2, 3, 7, 6}, {{{2, 3, 7}, {2, 7, 6}}}},
    {1, 1, 0, 1, 5, {0, 1, 5, 4}, {{{0, 1, 4}, {1, 4, 5}}}, false},
    {0, 0, 1, 0, 3, {0, 1, 2, 3}, {{{0, 1, 2}, {0, 2, 3}}}},
    {5, 5, 4, 5, 6, {4, 5, 6, 7}, {{{4, 5, 6}, {4, 6, 7}}}},
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
// Rounding of the plane itself is a few 1e-16 M.
static_assert(Frustum::kMargin > 1.23e-7);

// Thinner triangles than this, relative to M and in height over the longest edge, are slivers. Normals of others are
// right to 1e-15 L^2 / (1e-7 M L) < 4e-8.
constexpr double kSliver = 1e-7;

// Within these sizes products of three coordinates neither overflow nor lose their relative precision.
constexpr double kSmallest = 1e-60, kLargest = 1e60;

double largestOf(const Vec3& v) { return std::max(std::max(std::fabs(v.x), std::fabs(v.y)), std::fabs(v.z)); }

}  // namespace

Frustum::Frustum(const Vec3 corners[8]) {
  std::copy_n(corners, 8, mCorners.begin());
  double nothing = 0;  // NaN where a coordinate is not finite
  mSize = 0;
  for (const Vec3& corner : mCorners) {
    mSize = std::max(mSize, largestOf(corner));
    nothing += 0 * corner.x + 0 * corner.y + 0 * corner.z;
  }
  if (!(nothing == 0 && mSize >= kSmallest && mSize <= kLargest)) mSize = std::numeric_limits<double>::infinity();
  makePlanes();
}

void Frustum::makePlanes() {
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
      const FaceTable &face = kFaces[2 * i + k], &opposite = kFaces[2 * i + 1 - k];
      const auto of = [&](const FaceTable& which, std::size_t corner) { return heights[which.corners[corner]][k]; };
      two.offset[k] = heights[face.p][k];
      two.low[k] = std::min(std::min(of(face, 0), of(face, 1)), std::min(of(face, 2), of(face, 3)));
      two.high[k] = std::max(std::max(of(face, 0), of(face, 1)), std::max(of(face, 2), of(face, 3)));
      two.behind[k] = std::max(std::max(of(opposite, 0), of(opposite, 1)), std::max(of(opposite, 2), of(opposite, 3)));
    }
  }
}

double Frustum::marginFor(const Vec3& center, const Vec3& half) const {
  // Infinite where shortcuts must not be taken: nothing is farther off than that. Boxes with a NaN need no such care,
  // they meet nothing either way.
  const double size = largestOf(center) + largestOf(half);
  return size <= kLargest ? kMargin * (mSize + size) : std::numeric_limits<double>::infinity();
}

void Frustum::make(Triangle& triangle, const std::array<std::size_t, 3>& corners) const {
  triangle.start = mCorners[corners[0]];
  triangle.first = mCorners[corners[1]] - triangle.start;
  triangle.second = mCorners[corners[2]] - triangle.start;
  const Vec3 normal = cross(triangle.first, triangle.second);
  const double square = lengthSq(normal);
  const double longest =
      std::max({lengthSq(triangle.first), lengthSq(triangle.second), lengthSq(triangle.second - triangle.first)});
  triangle.state =
      square >= kSliver * kSliver * mSize * mSize * longest ? Triangle::State::known : Triangle::State::sliver;
  const double inverse = 1 / square;
  triangle.firstPart = inverse * cross(triangle.second, normal);
  triangle.secondPart = inverse * cross(normal, triangle.first);
}

// Whatever point of a triangle lies in a box by the margin, the overlap test finds both overlapping: on each of its
// axes the triangle's projection then reaches into that of the box by the margin per unit of the axis' coordinates'
// sizes. Corners in the box's frame, edges and their products with the box axes are off by a few 1e-16 M of that, a
// normal that is not a sliver's by 4e-8 of its length, which is 1.4e-7 M over a triangle. So no more needs to be known
// of the point tried here than that it is one of the triangle: it is next to the box's center, or nearly so.
bool Frustum::hasPointIn(std::size_t face, const Vec3& center, const Vec3& half, double margin) const {
  for (std::size_t k = 0; k < 2; ++k) {
    Triangle& triangle = mTriangles[face][k];
    if (triangle.state == Triangle::State::unknown) make(triangle, kFaces[face].t[k]);
    if (triangle.state == Triangle::State::sliver) continue;
    const Vec3 way = center - triangle.start;
    double u = std::max(dot(way, triangle.firstPart), 0.0), v = std::max(dot(way, triangle.secondPart), 0.0);
    const double excess = std::max(u + v - 1, 0.0) / 2;
    u = std::min(std::max(u - excess, 0.0), 1.0);
    v = std::min(std::max(v - excess, 0.0), 1 - u);
    const Vec3 off = way - u * triangle.first - v * triangle.second;
    if (std::fabs(off.x) <= half.x - margin && std::fabs(off.y) <= half.y - margin &&
        std::fabs(off.z) <= half.z - margin)
      return true;
  }
  return false;
}

bool Frustum::certainlyTouches(const Vec3& center, const Vec3& half, double margin) const {
  for (std::size_t i = 0; i < mPlanes.size(); ++i) {
    const TwoFaces& two = mPlanes[i];
    const auto isNear = sizesOf(two.heightsOf(center) - two.offset) <= two.reachesOf(half);
    for (std::size_t k = 0; k < 2; ++k)
      if (isNear[k] != 0 && hasPointIn(2 * i + k, center, half, margin)) return true;
  }
  return false;
}

/// Whether the faces are flat to a deviation D, all corners lie below all planes but for D, those of the opposite face
/// by 8 D, and the two triangles of each face lie side by side and are no slivers.
bool Frustum::isProper() const {
  if (mProper != Proper::unknown) return mProper == Proper::yes;
  mProper = Proper::no;
  const double deviation = kClear / 2 * mSize;
  for (std::size_t i = 0; i < kFaces.size(); ++i) {
    const TwoFaces& two = mPlanes[i / 2];
    const double offset = two.offset[i % 2];
    if (!(two.high[i % 2] <= offset + deviation && two.low[i % 2] >= offset - deviation &&
          two.behind[i % 2] <= offset - 8 * deviation))
      return false;
    // Both triangles at once.
    const auto edges = [&](std::size_t to, Pair& x, Pair& y, Pair& z) {
      const auto& [t, u] = kFaces[i].t;
      const Vec3 first = mCorners[t[to]] - mCorners[t[0]], second = mCorners[u[to]] - mCorners[u[0]];
      x = Pair{first.x, second.x};
      y = Pair{first.y, second.y};
      z = Pair{first.z, second.z};
    };
    Pair ax, ay, az, bx, by, bz;
    edges(1, ax, ay, az);
    edges(2, bx, by, bz);
    const Pair nx = ay * bz - az * by, ny = az * bx - ax * bz, nz = ax * by - ay * bx;
    const Pair cx = bx - ax, cy = by - ay, cz = bz - az;
    const Pair longest =
        largerOf(largerOf(ax * ax + ay * ay + az * az, bx * bx + by * by + bz * bz), cx * cx + cy * cy + cz * cz);
    const auto isWide = nx * nx + ny * ny + nz * nz >= kSliver * kSliver * mSize * mSize * longest;
    const double along = nx[0] * nx[1] + ny[0] * ny[1] + nz[0] * nz[1];
    if ((isWide[0] & isWide[1]) == 0 || (along > 0) != kFaces[i].hasOneWinding) return false;
  }
  mProper = Proper::yes;
  return true;
}

// Of a proper volume, let q be a point on the plane of face i, more than 2 D below all others, where 2 D is kClear
// times the volume's size. Seen along the normal of i, q lies in one of the face's triangles. If it did not, then the
// way to it from the middle p of their common edge, which one adjacent face has one end of, would leave them at a point
// x of the edge shared with a face j. Moved along the normal of i into its plane, which is by at most D, x would be
// above -2 D from the plane of j, p below (D - 8 D) / 2 + D = -2.5 D, and so q, beyond x from p, above -2 D. So there
// is a point of a triangle within D of q, deep in the box by the margin where q is by the margin and 2 D.
bool Frustum::certainlyCrosses(std::size_t face, const Vec3& center, const Vec3& half, double margin) const {
  const TwoFaces& two = mPlanes[face / 2];
  const double height = two.heightsOf(center)[face % 2] - two.offset[face % 2], depth = margin + kClear * mSize;
  // The sizes of a unit normal's coordinates add up to less than 2.
  return std::fabs(height) <= two.reachesOf(half)[face % 2] - 2 * depth &&
         std::min(std::min(half.x, half.y), half.z) >= depth && isProper();
}

bool Frustum::touchesSurface(const Vec3& center, const Vec3& half, double margin) const {
  std::array<bool, 6> isNear;
  for (std::size_t i = 0; i < mPlanes.size(); ++i) {
    const TwoFaces& two = mPlanes[i];
    const Pair height = two.heightsOf(center), gap = two.reachesOf(half) + margin;
    const auto isApart = (height - two.high > gap) | (two.low - height > gap);
    for (std::size_t k = 0; k < 2; ++k) {
      isNear[2 * i + k] = isApart[k] == 0;
      if (isNear[2 * i + k] && hasPointIn(2 * i + k, center, half, margin)) return true;
    }
  }
  const double c[3] = {center.x, center.y, center.z}, h[3] = {half.x, half.y, half.z};
  for (std::size_t i = 0; i < kFaces.size(); ++i) {
    if (!isNear[i]) continue;
    for (const auto& t : kFaces[i].t) {
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
  // All planes without a branch: boxes near the volume are beyond any of them.
  auto apart = Pair{0, 0} != Pair{0, 0};
  auto inside = Pair{0, 0} == Pair{0, 0};
  for (const TwoFaces& two : mPlanes) {
    const Pair height = two.heightsOf(center);
    apart |= height - two.farthest > two.reachesOf(half) + margin;
    inside &= height < two.offset - radius;
  }
  if ((apart[0] | apart[1]) != 0) return false;
  return (inside[0] & inside[1]) != 0 || touchesSurface(center, half, margin);
}

bool Frustum::meets(const Box& box) const {
  if (box.min.x > box.max.x || box.min.y > box.max.y || box.min.z > box.max.z) return false;
  const Vec3 half = (box.max - box.min) / 2;
  return meets(box.min + half, half);
}

// The reach of a box along a normal is not below the radius of its inner sphere.
Frustum::Side Frustum::sideOf(const Box& box) const {
  if (!(box.min.x <= box.max.x && box.min.y <= box.max.y && box.min.z <= box.max.z)) return Side::beyond;
  const Vec3 half = (box.max - box.min) / 2, center = box.min + half;
  const double margin = marginFor(center, half);
  auto apart = Pair{0, 0} != Pair{0, 0};
  auto inside = Pair{0, 0} == Pair{0, 0};
  for (const TwoFaces& two : mPlanes) {
    const Pair height = two.heightsOf(center), reach = two.reachesOf(half) + margin;
    apart |= height - two.farthest > reach;
    inside &= height + reach < two.offset;
  }
  if ((apart[0] | apart[1]) != 0) return Side::beyond;
  return (inside[0] & inside[1]) != 0 ? Side::inside : Side::unsure;
}

}  // namespace util
