#include <facetbox/intersector/ClipPolygon.h>

#include <algorithm>

#include <facetbox/triangles/ClipProjection.h>

namespace util {
namespace {

/// The signed distance of a point from a plane, positive inside. On the plane counts as inside, but for the first
/// plane, that of w.
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

}  // namespace

void ClipPolygon::clip() {
  for (int plane = 0; plane < kPlanes && mCount > 0; ++plane) clipBy(plane);
}

inline void ClipPolygon::clipBy(int plane) {
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

inline void ClipPolygon::cutOff(int plane, const double* distances) {
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

}  // namespace util
