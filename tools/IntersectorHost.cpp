#include <tools/IntersectorHost.h>

#include <tools/Frame.h>

namespace tool {
namespace {

Vector widened(const std::array<float, 3>& p) { return {p[0], p[1], p[2]}; }

}  // namespace

void IntersectorHost::add(const util::Mesh& mesh) {
  const std::size_t handle = mIntersector->createHandle();
  mIntersector->addEntry(handle, mesh, kInPlace.data(), mTriangulator);
  mHandles.push_back(handle);
}

bool IntersectorHost::isOnMask(std::size_t object, const std::array<float, 16>& matrix, const Mask& mask) const {
  const int viewport[4] = {0, 0, mask.mWidth, mask.mHeight};
  return mIntersector->testRaster(mHandles[object], matrix.data(), viewport, mask.mCells.data(), mask.mWidth,
                                  mask.mHeight, 0, 0);
}

bool IntersectorHost::isInVolume(std::size_t object, const std::array<float, 16>& matrix, bool wholeInside) const {
  return mIntersector->intersectsFrustum(mHandles[object], matrix.data(), wholeInside);
}

std::optional<NearestPoint> IntersectorHost::nearestPoint(std::size_t object, const std::array<float, 16>& matrix,
                                                          const Vector& eye, const Vector& direction) const {
  std::array<float, 3> point, a, b, c;
  if (!mIntersector->findNearestInFrustum(mHandles[object], matrix.data(), narrowed(eye).data(),
                                          narrowed(direction).data(), point.data(), a.data(), b.data(), c.data()))
    return std::nullopt;
  return NearestPoint{widened(point), {widened(a), widened(b), widened(c)}};
}

std::optional<ObjectHit> IntersectorHost::hit(std::size_t object, const Vector& origin, const Vector& direction) const {
  const FloatRay ray = Frame::rayOf(origin, direction);
  float distance = 0;
  std::array<float, 3> normal;
  if (!mIntersector->intersectsRay(mHandles[object], ray.mOrigin.data(), ray.mDirection.data(), &distance,
                                   normal.data()))
    return std::nullopt;
  return ObjectHit{ray.distanceOf(distance), widened(normal)};
}

}  // namespace tool
