#include <facetbox/intersector/NearestTraversal.h>

#include <algorithm>
#include <cassert>
#include <cmath>

#include <facetbox/math/Matrix4.h>
#include <facetbox/triangles/ClipProjection.h>

namespace util {

namespace {

// Beyond this many triangles that have to be clipped, plus a share of all, the plain loop is faster.
constexpr std::size_t kPatience = 80, kPatienceShare = 64;

constexpr double kLargestDepthSize = 1e200;

}  // namespace

NearestSearch::Traversal::Traversal(NearestSearch& search, const TriangleBvh& hierarchy)
    : mSearch(search), mView(hierarchy.view()), mPatience(kPatience + hierarchy.triangleCount() / kPatienceShare) {
  assert(hierarchy.isUsable() && hierarchy.isComplete());
  mIsPossible = preparePlanes(hierarchy) && prepareDepth(hierarchy);
}

/// @return whether nothing can overflow
bool NearestSearch::Traversal::preparePlanes(const TriangleBvh& hierarchy) {
  const double* c = mSearch.mClip;
  double sizes[4];
  for (int r = 0; r < 4; ++r) {
    sizes[r] = LinearFunction::row(c, r).size(hierarchy.magnitude());
    if (!(sizes[r] <= kLargestClipSum)) return false;
  }
  const auto planeOf = [&](const LinearFunction& distance, double size, double least) {
    const UnitFunction f(distance, hierarchy, kExactRounding * size);
    return Plane{f, f.limitBelow(0), f.limitAbove(least)};
  };
  const LinearFunction w = LinearFunction::row(c, 3);
  mPlanes[0] = planeOf(w, sizes[3], kSureW);
  for (int plane = 1; plane < kPlanes; ++plane) {
    const int r = (plane - 1) / 2;
    const double sign = plane % 2 == 1 ? -1 : 1;
    mPlanes[plane] = planeOf(w.plus(sign, LinearFunction::row(c, r)), sizes[3] + sizes[r], 0);
  }
  return true;
}

/// @return whether nothing can overflow
bool NearestSearch::Traversal::prepareDepth(const TriangleBvh& hierarchy) {
  const double* t = mSearch.mTransform ? mSearch.mTransform : kIdentity;
  const double eye[3] = {mSearch.mEye.x, mSearch.mEye.y, mSearch.mEye.z};
  const double direction[3] = {mSearch.mDirection.x, mSearch.mDirection.y, mSearch.mDirection.z};
  LinearFunction depth{{0, 0, 0}, 0};
  double size = 0;
  for (int r = 0; r < 3; ++r) {
    const LinearFunction place = LinearFunction::row(t, r);
    for (int a = 0; a < 3; ++a) depth.f[a] += direction[r] * place.f[a];
    depth.constant += direction[r] * (place.constant - eye[r]);
    size += std::fabs(direction[r]) * (place.size(hierarchy.magnitude()) + std::fabs(eye[r]));
  }
  if (!(size <= kLargestDepthSize)) return false;
  mCornerMargin = kExactRounding * size + kUnderflow;
  mDepth = UnitFunction(depth, hierarchy, mCornerMargin);
  return true;
}

bool NearestSearch::Traversal::run() {
  if (!mIsPossible) return false;
  limitDepth();
  mStack[mCount++] = {mView.root, -INFINITY, false};
  while (mCount > 0) {
    const Waiting next = mStack[--mCount];
    if (next.nearest > mDepthLimit) continue;
    if ((next.reference & TriangleBvh::kLeaf) == 0) {
      openNode(mView.node(next.reference), next.isInside);
      continue;
    }
    if (!testBlock(mView.block(next.reference), next.isInside)) return false;
    if (mSearch.mBest < mLimitedBest) limitDepth();
  }
  return true;
}

inline void NearestSearch::Traversal::limitDepth() {
  mLimitedBest = mSearch.mBest;
  mDepthLimit = mDepth.limitAbove(mLimitedBest);
}

/// Stacks the children that may hold something, the nearest last, of equal ones the first: the arena is in this order.
void NearestSearch::Traversal::openNode(const TriangleBvh::Node& node, bool isInside) {
  Children children;
  cull(node, isInside, children);
  const int first = mCount;
  for (int i = 0; i < kWidth; ++i) {
    if (children.isOut[i] != 0) continue;
    const float nearest = children.nearest[i];
    int place = mCount++;
    for (; place > first && mStack[place - 1].nearest <= nearest; --place) mStack[place] = mStack[place - 1];
    mStack[place] = {node.child[i], nearest, children.isIn[i] != 0};
  }
}

/// @param isInside  whether the whole node lies in the volume
inline void NearestSearch::Traversal::cull(const TriangleBvh::Node& node, bool isInside, Children& children) const {
  alignas(32) float middle[3][kWidth], half[3][kWidth];
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
  for (int i = 0; i < kWidth; ++i) {
    children.isOut[i] = node.bounds[0][i] > node.bounds[3][i];  // no child
    children.isIn[i] = 1;
  }
  evaluate(mDepth, [&](int i, float at, float reach) {
    children.nearest[i] = at - reach;
    children.isOut[i] |= children.nearest[i] > mDepthLimit;
  });
  if (isInside) return;
  for (const Plane& plane : mPlanes)
    evaluate(plane.distance, [&](int i, float at, float reach) {
      children.isOut[i] |= at + reach < plane.outside;
      children.isIn[i] &= at - reach > plane.inside;
    });
}

/// @param isInside  whether all of its triangles lie in the volume
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

}  // namespace util
