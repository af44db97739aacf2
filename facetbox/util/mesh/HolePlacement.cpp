#include <facetbox/util/mesh/HolePlacement.h>

#include <algorithm>

namespace util {

const PlanarPolygon& HolePlacement::projectionOf(std::uint32_t face) {
  for (int i = 0; i < 2; ++i) {
    if (mLast[i].face != face) continue;
    mOlder = 1 - i;
    return mLast[i].polygon;
  }
  const auto corners = mMesh.mFaces.corners(face);
  const int axis = axisOf(face);
  mScratch.resize(corners.size());
  std::ranges::transform(corners, mScratch.begin(), [&](std::uint32_t v) { return corner(v, axis); });
  Projection& projection = mLast[mOlder];
  projection.face = face;
  projection.polygon.assign(mScratch);
  mOlder = 1 - mOlder;
  return projection.polygon;
}

bool HolePlacement::anyCornerInside(std::uint32_t points, std::uint32_t polygon) {
  const PlanarPolygon& projection = projectionOf(polygon);
  const int axis = axisOf(polygon);
  return std::ranges::any_of(mMesh.mFaces.corners(points),
                             [&](std::uint32_t v) { return projection.containsStrictly(corner(v, axis)); });
}

bool HolePlacement::anyCornerOutside(std::uint32_t points, std::uint32_t polygon) {
  const PlanarPolygon& projection = projectionOf(polygon);
  const int axis = axisOf(polygon);
  return std::ranges::any_of(mMesh.mFaces.corners(points),
                             [&](std::uint32_t v) { return !projection.containsStrictly(corner(v, axis)); });
}

bool HolePlacement::edgesCross(std::uint32_t first, std::uint32_t second) {
  const auto corners = mMesh.mFaces.corners(second);
  if (corners.size() < 3 || mMesh.mFaces.cornerCount(first) < 3) return false;
  const PlanarPolygon& projection = projectionOf(first);
  const int axis = axisOf(first);
  for (std::size_t i = 0; i < corners.size(); ++i) {
    const std::uint32_t next = corners[i + 1 == corners.size() ? 0 : i + 1];
    if (projection.anyEdgeTouches(corner(corners[i], axis), corner(next, axis))) return true;
  }
  return false;
}

}  // namespace util
