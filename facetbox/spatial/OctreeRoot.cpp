#include <facetbox/spatial/OctreeRoot.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace util {

std::uint32_t OctreeRoot::cellOf(const Box& box) const {
  // Low goes before high. No branches per axis: they could not be predicted.
  Vec3 c = center;
  double h = halfSize;
  std::uint32_t cell = 0;
  for (std::size_t level = 1; level < kLevels; ++level) {
    const bool lowX = c.x >= box.max.x, lowY = c.y >= box.max.y, lowZ = c.z >= box.max.z;
    const bool highX = box.min.x >= c.x, highY = box.min.y >= c.y, highZ = box.min.z >= c.z;
    if (!((lowX | highX) & (lowY | highY) & (lowZ | highZ))) break;
    h = h / 2;
    c.x += lowX ? -h : h;
    c.y += lowY ? -h : h;
    c.z += lowZ ? -h : h;
    cell += 1 + kCells[level] * ((lowX ? 0 : 1) + (lowY ? 0 : 2) + (lowZ ? 0 : 4));
  }
  return cell;
}

bool OctreeRoot::hasPlace(const Box& box) {
  const auto hasPlaceOn = [](double min, double max) {
    constexpr double kFarthestPlace = 1e300;
    return (std::fabs(min) <= kFarthestPlace && std::fabs(max) <= kFarthestPlace) || min > max;
  };
  return hasPlaceOn(box.min.x, box.max.x) && hasPlaceOn(box.min.y, box.max.y) && hasPlaceOn(box.min.z, box.max.z);
}

bool isSame(const OctreeRoot& a, const OctreeRoot& b) {
  // NaN is the same as NaN, so that a root which cannot change is not seen as changed each time.
  const auto isSameNumber = [](double x, double y) { return x == y || (x != x && y != y); };
  return a.halfSize == b.halfSize && isSameNumber(a.center.x, b.center.x) && isSameNumber(a.center.y, b.center.y) &&
         isSameNumber(a.center.z, b.center.z);
}

bool OctreeRoot::holds(const Box& box) const {
  const Vec3 half{halfSize, halfSize, halfSize};
  const Vec3 low = center - half, high = center + half;
  return box.max.x <= high.x && low.x <= box.min.x && box.max.y <= high.y && low.y <= box.min.y &&
         box.max.z <= high.z && low.z <= box.min.z;
}

OctreeRoot OctreeRoot::holding(const Box& box, const Box& all) const {
  if (holds(box) || !hasPlace(box)) return *this;
  Box both = all;
  both.extend(box);
  const Vec3 extent = both.max - both.min;
  const double needed = std::max(std::max(std::max(0.0, extent.x), extent.y), extent.z) / 2;
  OctreeRoot root{{std::midpoint(both.min.x, both.max.x), std::midpoint(both.min.y, both.max.y),
                   std::midpoint(both.min.z, both.max.z)},
                  halfSize};
  while (needed > root.halfSize) root.halfSize = 2 * root.halfSize;
  return root;
}

}  // namespace util
