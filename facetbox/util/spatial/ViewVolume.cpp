#include <facetbox/util/spatial/ViewVolume.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <facetbox/util/math/OverlapsBox.h>

namespace util {

namespace {

struct FaceTable {
  int p, a0, a1, b0, b1;                // the plane goes through p; its normal is (a1 - a0) x (b1 - b0)
  std::array<int, 4> corners;           // of the face
  std::array<std::array<int, 3>, 2> t;  // its triangles
  std::array<bool, 2> inward;           // whether a triangle's corners turn the other way than the face's normal
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
constexpr double kMargin = 0x1p-21;  // 4.8e-7

// Thinner triangles than this, relative to M and in height over the longest edge, are slivers. Normals of others are
// right to 1e-15 L^2 / (1e-6 M L) < 4e-9.
constexpr double kSliver = 1e-6;

// Within these sizes products of three coordinates neither overflow nor lose their relative precision.
constexpr double kSmallest = 1e-60, kLargest = 1e60;

double largestOf(const Vec3& v) { return std::max(std::max(std::fabs(v.x), std::fabs(v.y)), std::fabs(v.z)); }

/// Half of a box's projection onto an axis given by its coordinates' sizes.
double reach(const Vec3& size, const Vec3& half) { return size.x * half.x + size.y * half.y + size.z * half.z; }

}  // namespace

ViewVolume::ViewVolume(const Vec3 corners[8]) {
  std::copy_n(corners, 8, mCorners.begin());
  bool finite = true;
  mSize = 0;
  for (const Vec3& corner : mCorners) {
    mSize = std::max(mSize, largestOf(corner));
    finite = finite && std::isfinite(corner.x) && std::isfinite(corner.y) && std::isfinite(corner.z);
  }
  if (!(finite && mSize >= kSmallest && mSize <= kLargest)) mSize = std::numeric_limits<double>::infinity();

  mHasSlivers = false;
  const auto at = [&](int corner) -> const Vec3& { return mCorners[static_cast<std::size_t>(corner)]; };
  for (std::size_t i = 0; i < kFaces.size(); ++i) {
    const FaceTable& table = kFaces[i];
    Face& face = mFaces[i];
    const Vec3 normal = cross(at(table.a1) - at(table.a0), at(table.b1) - at(table.b0));
    face.normal = normal / length(normal);
    face.size = {std::fabs(face.normal.x), std::fabs(face.normal.y), std::fabs(face.normal.z)};
    const double offset = dot(face.normal, at(table.p));
    std::array<double, 8> heights;
    for (std::size_t corner = 0; corner < 8; ++corner) heights[corner] = dot(face.normal, mCorners[corner]);
    face.low = face.high = offset;
    for (const int corner : table.corners) {
      face.low = std::min(face.low, heights[static_cast<std::size_t>(corner)]);
      face.high = std::max(face.high, heights[static_cast<std::size_t>(corner)]);
    }
    TwoFaces& two = mPlanes[i / 2];
    two.normalX[i % 2] = face.normal.x;
    two.normalY[i % 2] = face.normal.y;
    two.normalZ[i % 2] = face.normal.z;
    two.sizeX[i % 2] = face.size.x;
    two.sizeY[i % 2] = face.size.y;
    two.sizeZ[i % 2] = face.size.z;
    two.offset[i % 2] = offset;
    two.farthest[i % 2] = *std::ranges::max_element(heights);
    for (std::size_t k = 0; k < 2; ++k) {
      const auto& t = table.t[k];
      const Vec3 e = at(t[1]) - at(t[0]), f = at(t[2]) - at(t[0]);
      const Vec3 n = table.inward[k] ? cross(f, e) : cross(e, f);
      const double longest = std::max(std::max(lengthSq(e), lengthSq(f)), lengthSq(f - e));
      mHasSlivers = mHasSlivers || !(lengthSq(n) >= kSliver * kSliver * mSize * mSize * longest);
      TwoTriangles& both = mTriangles[i];
      both.normalX[k] = n.x;
      both.normalY[k] = n.y;
      both.normalZ[k] = n.z;
      both.sizes[k] = std::fabs(n.x) + std::fabs(n.y) + std::fabs(n.z);
      both.offset[k] = dot(n, at(t[0]));
    }
  }
}

double ViewVolume::marginFor(const Vec3& centre, const Vec3& half) const {
  // Infinite where shortcuts must not be taken: nothing is farther off than that. Boxes with a NaN need no such care,
  // they meet nothing either way.
  const double size = largestOf(centre) + largestOf(half);
  return size <= kLargest ? kMargin * (mSize + size) : std::numeric_limits<double>::infinity();
}

bool ViewVolume::isCertainlyBehindAllTriangles(const Vec3& p, double margin) const {
  auto behind = Pair{0, 0} == Pair{0, 0};
  for (const TwoTriangles& two : mTriangles)
    behind &= two.normalX * p.x + two.normalY * p.y + two.normalZ * p.z < two.offset - margin * two.sizes;
  return (behind[0] & behind[1]) != 0;
}

// The twelve triangles are a closed surface. From a point behind all of them, they cover the sphere of directions, each
// part as often and all from the same side: the point cannot be joined to one beyond the whole volume without crossing
// a triangle. So when the box, less a rim as wide as the margin, holds a point of either kind, a triangle reaches
// through the rim. On every axis of the overlap test, its projection then reaches into that of the box by the margin
// per unit of the axis' coordinates' sizes. Corners in the box's frame, edges and their products with the box axes are
// off by a few 1e-16 M of that, a normal that is not a sliver's by 4e-9 of its length, which is 1.4e-8 M over a
// triangle: far less than the margin of 4.8e-7 M, so that the triangle is found.
bool ViewVolume::certainlyTouchesSurface(const Vec3& centre, const Vec3& half, double margin) const {
  const Vec3 core = half - Vec3{margin, margin, margin};
  if (mHasSlivers || !(core.x >= 0 && core.y >= 0 && core.z >= 0)) return false;
  // The point that is the farthest behind the face that the centre is the farthest beyond.
  bool isBeyondOne = false;
  double farthest = 0;
  Vec3 deep = centre;
  for (std::size_t i = 0; i < kFaces.size(); ++i) {
    const Face& face = mFaces[i];
    const double height = dot(face.normal, centre);
    isBeyondOne = isBeyondOne || height + reach(face.size, core) > mPlanes[i / 2].farthest[i % 2] + margin;
    if (height - face.low + margin <= farthest) continue;
    farthest = height - face.low + margin;
    deep = centre - Vec3{std::copysign(core.x, face.normal.x), std::copysign(core.y, face.normal.y),
                         std::copysign(core.z, face.normal.z)};
  }
  return isBeyondOne && isCertainlyBehindAllTriangles(deep, margin);
}

bool ViewVolume::touchesSurface(const Vec3& centre, const Vec3& half, double margin) const {
  if (certainlyTouchesSurface(centre, half, margin)) return true;
  const double c[3] = {centre.x, centre.y, centre.z}, h[3] = {half.x, half.y, half.z};
  for (std::size_t i = 0; i < kFaces.size(); ++i) {
    const Face& face = mFaces[i];
    const double height = dot(face.normal, centre), gap = reach(face.size, half) + margin;
    if (height - face.high > gap || face.low - height > gap) continue;
    for (const auto& t : kFaces[i].t) {
      const Vec3 &p0 = mCorners[static_cast<std::size_t>(t[0])], &p1 = mCorners[static_cast<std::size_t>(t[1])],
                 &p2 = mCorners[static_cast<std::size_t>(t[2])];
      const double a[3] = {p0.x, p0.y, p0.z}, b[3] = {p1.x, p1.y, p1.z}, d[3] = {p2.x, p2.y, p2.z};
      if (overlapsBox(a, b, d, c, h)) return true;
    }
  }
  return false;
}

bool ViewVolume::meets(const Vec3& centre, const Vec3& half) const {
  const double margin = marginFor(centre, half);
  const double radius = std::min(std::min(std::fabs(half.x), std::fabs(half.y)), std::fabs(half.z));
  // All planes without a branch: boxes near the volume are beyond any of them.
  auto apart = Pair{0, 0} != Pair{0, 0};
  auto inside = Pair{0, 0} == Pair{0, 0};
  for (const TwoFaces& two : mPlanes) {
    const Pair height = two.normalX * centre.x + two.normalY * centre.y + two.normalZ * centre.z;
    const Pair reached = two.sizeX * half.x + two.sizeY * half.y + two.sizeZ * half.z;
    apart |= height - two.farthest > reached + margin;
    inside &= height < two.offset - radius;
  }
  if ((apart[0] | apart[1]) != 0) return false;
  return (inside[0] & inside[1]) != 0 || touchesSurface(centre, half, margin);
}

bool ViewVolume::meets(const Box& box) const {
  if (box.min.x > box.max.x || box.min.y > box.max.y || box.min.z > box.max.z) return false;
  const Vec3 half = (box.max - box.min) / 2;
  return meets(box.min + half, half);
}

}  // namespace util
