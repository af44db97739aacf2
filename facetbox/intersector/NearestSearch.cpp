#include <facetbox/intersector/NearestSearch.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <span>

#include <facetbox/math/Matrix4.h>
#include <facetbox/math/OverlapsBox.h>
#include <facetbox/triangles/ClipProjection.h>
#include <facetbox/triangles/FrustumCulling.h>
#include <facetbox/triangles/TriangleBvh.h>

namespace util {

namespace {

// Clipping after Sutherland and Hodgman, Reentrant polygon clipping, 1974, in homogeneous coordinates.

struct ClipPoint {
  double h[4];  ///< x, y, z, w in clip space
  Vec3 world;
};

constexpr int kPlanes = 7;
/// A plane leaves at most half as many points again: each run of points outside becomes two, and the runs are apart.
/// (A convex polygon gains one at most; with rounding, nothing is quite convex.)
constexpr int kMostPoints = 48;

/// How far inside of a plane a point lies; on the plane counts, but for the first one, w.
double distanceTo(int plane, const double h[4]) {
  if (plane == 0) return h[3] - kSmallestW;
  const double coordinate = h[(plane - 1) / 2];
  return plane % 2 == 1 ? h[3] - coordinate : h[3] + coordinate;
}
bool isInside(int plane, double distance) { return plane == 0 ? distance > 0 : distance >= 0; }

/// Where the edge from a point inside to one outside leaves, at a share of the way.
ClipPoint crossing(const ClipPoint& inside, const ClipPoint& outside, double share) {
  ClipPoint point;
  for (int i = 0; i < 4; ++i) point.h[i] = inside.h[i] + share * (outside.h[i] - inside.h[i]);
  point.world = inside.world + share * (outside.world - inside.world);
  return point;
}

/// A triangle, or what is left of it.
class ClipPolygon {
 public:
  /// @param c         the way into clip space
  /// @param vertices  the corners' coordinates, three each; `corners` are their places in the world
  ClipPolygon(const double c[16], const double* const (&vertices)[3], const Vec3 (&corners)[3]) : mCount(3) {
    for (int k = 0; k < 3; ++k) {
      const double x = vertices[k][0], y = vertices[k][1], z = vertices[k][2];
      for (int r = 0; r < 4; ++r) mPoints[k].h[r] = c[r] * x + c[4 + r] * y + c[8 + r] * z + c[12 + r];
      mPoints[k].world = corners[k];
    }
  }
  ClipPolygon(const ClipPolygon&) = delete;
  ClipPolygon& operator=(const ClipPolygon&) = delete;

  void clip() {
    for (int plane = 0; plane < kPlanes && mCount > 0; ++plane) clipBy(plane);
  }

  const ClipPoint* begin() const { return mPoints; }
  const ClipPoint* end() const { return mPoints + mCount; }

 private:
  void clipBy(int plane) {
    double distances[kMostPoints];
    int insideCount = 0;
    for (int i = 0; i < mCount; ++i) {
      distances[i] = distanceTo(plane, mPoints[i].h);
      insideCount += isInside(plane, distances[i]) ? 1 : 0;
    }
    if (insideCount == mCount) return;
    if (insideCount > 0)
      cutOff(plane, distances);
    else
      mCount = 0;
  }

  void cutOff(int plane, const double* distances) {
    ClipPoint from[kMostPoints];
    std::copy_n(mPoints, mCount, from);
    ClipPoint* to = mPoints;
    for (int i = 0; i < mCount; ++i) {
      const int next = i + 1 == mCount ? 0 : i + 1;
      const double here = distances[i], there = distances[next];
      const bool startsInside = isInside(plane, here), endsInside = isInside(plane, there);
      if (startsInside) *to++ = from[i];
      if (startsInside && !endsInside) *to++ = crossing(from[i], from[next], here / (here - there));
      if (!startsInside && endsInside) *to++ = crossing(from[next], from[i], there / (there - here));
    }
    mCount = static_cast<int>(to - mPoints);
  }

  ClipPoint mPoints[kMostPoints];
  int mCount;
};

/// Whether a triangle overlaps the clip cube as overlapsClipCube() sees it.
bool overlapsClipCube(const double c[16], const double* const (&vertices)[3]) {
  double p[3][3];
  for (int k = 0; k < 3; ++k)
    if (!projectToClipSpace(c, vertices[k], p[k])) std::fill_n(p[k], 3, 0.0);
  return overlapsBox(p[0], p[1], p[2], kClipCubeCenter, kClipCubeHalf);
}

}  // namespace

NearestSearch::NearestSearch(const double view[16], const Vec3& eye, const Vec3& direction)
    : mEye(eye), mDirection(direction) {
  std::copy_n(view, 16, mView);
}

void NearestSearch::startMesh(const double* transform) {
  mTransform = transform;
  mTriangle = 0;
  if (transform)
    multiply(mView, transform, mClip);
  else
    std::copy_n(mView, 16, mClip);
}

Vec3 NearestSearch::placed(const double* vertex) const {
  const Vec3 p{vertex[0], vertex[1], vertex[2]};
  return mTransform ? transformPoint(mTransform, p) : p;
}

double NearestSearch::depthOf(const Vec3& p) const { return dot(p - mEye, mDirection); }

bool NearestSearch::isNearer(double depth, std::uint32_t triangle) const {
  return depth < mBest || (depth == mBest && triangle < mTriangle);
}

void NearestSearch::take(double depth, const Vec3& point, const Vec3 (&corners)[3], std::uint32_t triangle) {
  mBest = depth;
  mTriangle = triangle;
  mHasHit = true;
  mHit = {point, {corners[0], corners[1], corners[2]}};
}

void NearestSearch::testTriangle(const double* const (&vertices)[3], const Vec3 (&corners)[3], std::uint32_t triangle) {
  ClipPolygon polygon(mClip, vertices, corners);
  polygon.clip();
  double least = std::numeric_limits<double>::max();
  const ClipPoint* nearest = nullptr;
  for (const ClipPoint& point : polygon)
    if (const double depth = depthOf(point.world); depth < least) {
      least = depth;
      nearest = &point;
    }
  // The overlap test comes last: few triangles get as far.
  if (nearest && isNearer(least, triangle) && overlapsClipCube(mClip, vertices))
    take(least, nearest->world, corners, triangle);
}

void NearestSearch::searchPlain(const TriangleMesh& mesh, const double* transform) {
  startMesh(transform);
  testAll(mesh);
}

void NearestSearch::testAll(const TriangleMesh& mesh) {
  const std::span<const double> coordinates = mesh.vertexCoordinates();
  const std::span<const std::uint32_t> indices = mesh.indices();
  for (std::size_t i = 0; i + 2 < indices.size(); i += 3) {
    const auto at = [&](std::size_t k) { return &coordinates[3 * std::size_t{indices[i + k]}]; };
    const double* const vertices[3] = {at(0), at(1), at(2)};
    testTriangle(vertices, {placed(vertices[0]), placed(vertices[1]), placed(vertices[2])},
                 static_cast<std::uint32_t>(i / 3));
  }
}

// Linear functions over the boxes of a hierarchy tell what may be passed over: w, the distances w - x, w + x, ... to
// the planes, and the depth. In unit coordinates a function is f0 + f . u with |u| <= 1 on every axis; over a box of
// center m and half-size s it lies between f . m - |f| . s and f . m + |f| . s, plus f0.
//
// Rounding. Let S be the sum of the sizes of a function's terms where x, y and z are as large as any of the mesh's. The
// exact test computes a vertex's clip coordinates, and its place in the world, to 4 ulp of S, and each of the seven
// cuts may move a point out of the hull of the three by 3 ulp more of each coordinate; the difference of depths adds
// some ulp. 1e-13 of S covers that ten times over, together with the computation of f0 and f; 1e-280 covers underflow.
// The boxes are evaluated in floats: f, m, s, products and sums are off by less than 8e |f|, with e = 2^-24 and |f| the
// sum of the sizes of the coefficients; 16e |f| is allowed for, and the limits are rounded to the careful side.
//
// So, where a plane's distance is below -margin all over a box, all points of its triangles are computed to lie outside
// of the plane: nothing is left of them. Where all distances are above the margin, and w above 1e-20, all corners
// project strictly into the cube: they overlap it, and nothing is cut off. Where the depth is above the best by more
// than the margin, no triangle can have that depth or less.

namespace {

/// Below this many, the plain loop is as fast.
constexpr std::size_t kFewTriangles = 32;

constexpr double kRounding = 1e-13;
constexpr double kFloatRounding = 16 * 0x1p-24;
constexpr double kUnderflow = 1e-280;

float roundedDown(double x) { return static_cast<float>(std::clamp(x - 0x1p-22 * std::fabs(x), -3e38, 3e38)); }
float roundedUp(double x) { return static_cast<float>(std::clamp(x + 0x1p-22 * std::fabs(x), -3e38, 3e38)); }

/// A linear function of the mesh's coordinates: f0 + f . p.
struct Linear {
  double f[3], f0;

  /// The sum of the sizes of the terms.
  double size(double magnitude) const {
    return (std::fabs(f[0]) + std::fabs(f[1]) + std::fabs(f[2])) * magnitude + std::fabs(f0);
  }
};

/// The same of unit coordinates, scaled so that the sizes of the coefficients add up to 1.
class UnitFunction {
 public:
  UnitFunction() = default;
  /// @param margin  for rounding in doubles; that in floats is added
  UnitFunction(const Linear& g, const TriangleBvh& hierarchy, double margin) {
    const double unit = 1 / hierarchy.scale();
    const Vec3& center = hierarchy.center();
    mOrigin = g.f[0] * center.x + g.f[1] * center.y + g.f[2] * center.z + g.f0;
    const double f[3] = {g.f[0] * unit, g.f[1] * unit, g.f[2] * unit};
    const double size = std::fabs(f[0]) + std::fabs(f[1]) + std::fabs(f[2]);
    mScale = size > 1e-290 ? 1 / size : 1;
    mMargin = margin + kUnderflow + kFloatRounding * size;
    for (int a = 0; a < 3; ++a) {
      coefficients[a] = static_cast<float>(f[a] * mScale);
      sizes[a] = std::fabs(coefficients[a]);
    }
  }

  /// What the function is less than `value` below, for certain, and more than `value` above.
  float limitBelow(double value) const { return roundedDown((value - mOrigin - mMargin) * mScale); }
  float limitAbove(double value) const { return roundedUp((value - mOrigin + mMargin) * mScale); }

  float coefficients[3] = {0, 0, 0}, sizes[3] = {0, 0, 0};

 private:
  double mOrigin = 0, mScale = 1, mMargin = 0;
};

}  // namespace

class NearestSearch::Traversal {
 public:
  Traversal(NearestSearch& search, const TriangleBvh& hierarchy) : mSearch(search), mView(hierarchy.view()) {
    mIsPossible = prepare(hierarchy);
    mPatience = 80 + hierarchy.triangleCount() / 64;
  }

  /// Finds the nearest point of the mesh, unless the plain loop is faster or the numbers might overflow.
  /// @return whether every triangle has been dealt with
  bool run();

 private:
  static constexpr int kWidth = TriangleBvh::kWidth;

  struct Plane {
    UnitFunction distance;
    float outside, inside;  ///< limits
  };
  struct Waiting {
    TriangleBvh::Reference reference;
    float nearest;  ///< a bound of the depth, scaled
    bool isInside;  ///< whether all below lies in the volume
  };

  bool prepare(const TriangleBvh& hierarchy);
  void openNode(const TriangleBvh::Node& node, bool isInside);
  bool testBlock(const TriangleBvh::Block& block, bool isInside);

  NearestSearch& mSearch;
  const TriangleBvh::View mView;
  bool mIsPossible;
  std::size_t mPatience;  ///< with triangles that have to be clipped: for many of them, the plain loop is faster
  Plane mPlanes[kPlanes];
  UnitFunction mDepth;
  double mCornerMargin = 0;  ///< what a clipped point may be nearer than its triangle's corners
  float mDepthLimit = 0;     ///< subtrees beyond hold nothing of use
  int mCount = 0;
  Waiting mStack[(kWidth - 1) * TriangleBvh::kMaxDepth + kWidth];
};

bool NearestSearch::Traversal::prepare(const TriangleBvh& hierarchy) {
  const double magnitude = hierarchy.magnitude();
  const double* c = mSearch.mClip;
  double sizes[4];
  for (int r = 0; r < 4; ++r) {
    sizes[r] = Linear{{c[r], c[4 + r], c[8 + r]}, c[12 + r]}.size(magnitude);
    if (!(sizes[r] <= 1e100)) return false;
  }
  const auto planeOf = [&](const Linear& distance, double margin, double least) {
    const UnitFunction f(distance, hierarchy, margin);
    return Plane{f, f.limitBelow(0), f.limitAbove(least)};
  };
  mPlanes[0] = planeOf({{c[3], c[7], c[11]}, c[15]}, kRounding * sizes[3], 1e-20);
  for (int plane = 1; plane < kPlanes; ++plane) {
    const int r = (plane - 1) / 2;
    const double sign = plane % 2 == 1 ? -1 : 1;
    mPlanes[plane] =
        planeOf({{c[3] + sign * c[r], c[7] + sign * c[4 + r], c[11] + sign * c[8 + r]}, c[15] + sign * c[12 + r]},
                kRounding * (sizes[3] + sizes[r]), 0);
  }

  static constexpr double kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  const double* t = mSearch.mTransform ? mSearch.mTransform : kIdentity;
  const double eye[3] = {mSearch.mEye.x, mSearch.mEye.y, mSearch.mEye.z};
  const double direction[3] = {mSearch.mDirection.x, mSearch.mDirection.y, mSearch.mDirection.z};
  Linear depth{{0, 0, 0}, 0};
  double size = 0;
  for (int r = 0; r < 3; ++r) {
    const Linear place{{t[r], t[4 + r], t[8 + r]}, t[12 + r]};
    for (int a = 0; a < 3; ++a) depth.f[a] += direction[r] * place.f[a];
    depth.f0 += direction[r] * (place.f0 - eye[r]);
    size += std::fabs(direction[r]) * (place.size(magnitude) + std::fabs(eye[r]));
  }
  if (!(size <= 1e200)) return false;
  mCornerMargin = kRounding * size + kUnderflow;
  mDepth = UnitFunction(depth, hierarchy, mCornerMargin);
  return true;
}

bool NearestSearch::Traversal::run() {
  if (!mIsPossible) return false;
  double limitedBest = mSearch.mBest;
  mDepthLimit = mDepth.limitAbove(limitedBest);
  mStack[mCount++] = {mView.root, -INFINITY, false};
  while (mCount > 0) {
    const Waiting next = mStack[--mCount];
    if (next.nearest > mDepthLimit) continue;
    if ((next.reference & TriangleBvh::kLeaf) == 0) {
      openNode(mView.node(next.reference), next.isInside);
    } else {
      if (!testBlock(mView.block(next.reference), next.isInside)) return false;
      if (mSearch.mBest < limitedBest) {
        limitedBest = mSearch.mBest;
        mDepthLimit = mDepth.limitAbove(limitedBest);
      }
    }
  }
  return true;
}

/// Stacks the children that may hold something, the nearest last, of equal ones the first: the arena is in this order.
void NearestSearch::Traversal::openNode(const TriangleBvh::Node& node, bool isInside) {
  alignas(32) float middle[3][kWidth], half[3][kWidth], nearest[kWidth];
  alignas(32) int isOut[kWidth], isIn[kWidth];
  for (int i = 0; i < kWidth; ++i) {
    isOut[i] = node.bounds[0][i] > node.bounds[3][i];
    isIn[i] = 1;
  }
  for (int a = 0; a < 3; ++a)
    for (int i = 0; i < kWidth; ++i) {
      middle[a][i] = 0.5f * node.bounds[a][i] + 0.5f * node.bounds[3 + a][i];
      half[a][i] = 0.5f * node.bounds[3 + a][i] - 0.5f * node.bounds[a][i];
    }
  const auto evaluate = [&](const UnitFunction& f, auto use) {
    for (int i = 0; i < kWidth; ++i) {
      const float at =
          f.coefficients[0] * middle[0][i] + f.coefficients[1] * middle[1][i] + f.coefficients[2] * middle[2][i];
      const float reach = f.sizes[0] * half[0][i] + f.sizes[1] * half[1][i] + f.sizes[2] * half[2][i];
      use(i, at, reach);
    }
  };
  evaluate(mDepth, [&](int i, float at, float reach) {
    nearest[i] = at - reach;
    isOut[i] |= nearest[i] > mDepthLimit;
  });
  if (!isInside)
    for (const Plane& plane : mPlanes)
      evaluate(plane.distance, [&](int i, float at, float reach) {
        isOut[i] |= at + reach < plane.outside;
        isIn[i] &= at - reach > plane.inside;
      });

  const int first = mCount;
  for (int i = 0; i < kWidth; ++i) {
    if (isOut[i] != 0) continue;
    int place = mCount++;
    for (; place > first && mStack[place - 1].nearest <= nearest[i]; --place) mStack[place] = mStack[place - 1];
    mStack[place] = {node.child[i], nearest[i], isIn[i] != 0};
  }
}

/// @return whether patience lasted
bool NearestSearch::Traversal::testBlock(const TriangleBvh::Block& block, bool isInside) {
  for (int lane = 0; lane < kWidth && block.reach[lane] >= 0; ++lane) {
    const TriangleBvh::Exact& exact = TriangleBvh::View::exact(block)[lane];
    const double* const vertices[3] = {exact.corner, exact.corner + 3, exact.corner + 6};
    const Vec3 corners[3] = {mSearch.placed(vertices[0]), mSearch.placed(vertices[1]), mSearch.placed(vertices[2])};
    const double depths[3] = {mSearch.depthOf(corners[0]), mSearch.depthOf(corners[1]), mSearch.depthOf(corners[2])};
    const double nearest = std::min({depths[0], depths[1], depths[2]});
    if (nearest - mCornerMargin > mSearch.mBest) continue;
    if (!isInside && mPatience-- == 0) return false;
    if (!isInside)
      mSearch.testTriangle(vertices, corners, exact.triangle);
    else if (mSearch.isNearer(nearest, exact.triangle))
      mSearch.take(nearest, corners[std::find(depths, depths + 2, nearest) - depths], corners, exact.triangle);
  }
  return true;
}

void NearestSearch::search(const TriangleMesh& mesh, const double* transform) {
  startMesh(transform);
  const TriangleBvh* hierarchy = mesh.hierarchy();
  const bool pays = hierarchy && hierarchy->isUsable() && hierarchy->triangleCount() >= kFewTriangles;
  if (!pays || !hierarchy->isComplete() || !Traversal(*this, *hierarchy).run()) testAll(mesh);
}

}  // namespace util
