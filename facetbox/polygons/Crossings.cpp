#include <facetbox/polygons/Crossings.h>

#include <algorithm>

#include <facetbox/math/Predicates.h>

namespace util {
namespace {

bool cross(const Segment2& a, const Segment2& b) {
  return orientation(a.from, a.to, b.from) * orientation(a.from, a.to, b.to) < 0 &&
         orientation(b.from, b.to, a.from) * orientation(b.from, b.to, a.to) < 0;
}

/// What of a segment decides about most others.
struct Extent {
  double right, low, high;
  const Segment2* segment;
};

}  // namespace

bool crossMoreOftenThan(std::size_t limit, std::vector<Segment2>& segments) {
  for (Segment2& segment : segments)
    if (segment.to.x < segment.from.x) std::swap(segment.from, segment.to);
  std::ranges::sort(segments, {}, [](const Segment2& segment) { return segment.from.x; });
  std::vector<Extent> active;  // segments that an upright line meets, in no order
  std::size_t count = 0;
  for (const Segment2& segment : segments) {
    const auto [low, high] = std::minmax(segment.from.y, segment.to.y);
    for (std::size_t i = 0; i < active.size();) {
      if (active[i].right < segment.from.x) {
        active[i] = active.back();
        active.pop_back();
        continue;
      }
      if (active[i].low <= high && active[i].high >= low && cross(*active[i].segment, segment) && ++count > limit)
        return true;
      ++i;
    }
    active.push_back({segment.to.x, low, high, &segment});
  }
  return false;
}

}  // namespace util
