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
};

// Near and far last: it is the sides that most boxes are beyond.
constexpr std::array<FaceTable, 6> kFaces{{
    {0, 0, 3, 0, 4, {0, 3, 7, 4}, {{{0, 3, 7}, {0, 7, 4}}}},
    {1, 1, 5, 1, 2, {1, 2, 6, 5}, {{{1, 2, 6}, {1, 6, 5}}}},
    {6, 6, 7, 6, 2, {2, 3, 7, 6}, {{{2, 3, 7}, {2, 7, 6}}}},
    {1, 1, 0, 1, 5, {0, 1, 5, 4}, {{{0, 1, 4}, {1, 4, 5}}}},
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
// Rounding of the plane itself is a few 1e-16 M. A box inside another may have twice its M: the double is enough for
// both.
constexpr double kMargin = 0x1p-21;  // 4.8e-7

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

  for (std::size_t i = 0; i < kFaces.size(); ++i) {
    const FaceTable& table = kFaces[i];
    Face& face = mFaces[i];
    const auto at = [&](int corner) -> const Vec3& { return mCorners[static_cast<std::size_t>(corner)]; };
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
  }
}

double ViewVolume::marginFor(const Vec3& centre, const Vec3& half) const {
  // Infinite where shortcuts must not be taken: nothing is farther off than that. Boxes with a NaN need no such care,
  // they meet nothing either way.
  const double size = largestOf(centre) + largestOf(half);
  return size <= kLargest ? kMargin * (mSize + size) : std::numeric_limits<double>::infinity();
}

bool ViewVolume::touchesSurface(const Vec3& centre, const Vec3& half, double margin) const {
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

bool ViewVolume::isCertainlyApart(const Box& box) const {
  const Vec3 half = (box.max - box.min) / 2, centre = box.min + half;
  const double margin = marginFor(centre, half);
  auto apart = Pair{0, 0} != Pair{0, 0};
  for (const TwoFaces& two : mPlanes) {
    const Pair height = two.normalX * centre.x + two.normalY * centre.y + two.normalZ * centre.z;
    const Pair reached = two.sizeX * half.x + two.sizeY * half.y + two.sizeZ * half.z;
    apart |= height - two.farthest > reached + margin;
  }
  return (apart[0] | apart[1]) != 0;
}

}  // namespace util
