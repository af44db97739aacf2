#include <facetbox/util/math/LoopShape.h>

#include <cmath>
#include <limits>

namespace util {
namespace {

/// Up to here comparing all pairs of edges is faster than an index.
constexpr std::size_t kAllPairsUpTo = 64;

bool isSimpleByPairs(std::span<const Vec2> loop) {
  const std::size_t n = loop.size();
  for (std::size_t i = 0; i < n; ++i) {
    const Vec2 a = loop[i], b = loop[i + 1 < n ? i + 1 : 0];
    if (foldsBack(loop[i > 0 ? i - 1 : n - 1], a, b)) return false;
    // The last edge follows on the first.
    for (std::size_t j = i + 2; j < n - (i == 0); ++j)
      if (segmentsTouch(a, b, loop[j], loop[j + 1 < n ? j + 1 : 0])) return false;
  }
  return true;
}

}  // namespace

double signedArea(std::span<const Vec2> loop) {
  // Shoelace, relative to the first point. Each term carries a few roundings and the sum one for each.
  double sum = 0, magnitude = 0;
  const Vec2 first = loop[0];
  Vec2 from{loop[1].x - first.x, loop[1].y - first.y};
  for (const Vec2 p : loop.subspan(2)) {
    const Vec2 to{p.x - first.x, p.y - first.y};
    const double left = from.x * to.y, right = from.y * to.x;
    sum += left - right;
    magnitude += std::fabs(left) + std::fabs(right);
    from = to;
  }
  const double terms = static_cast<double>(loop.size()) + 4;
  const double bound =
      terms * (std::numeric_limits<double>::epsilon() * magnitude + std::numeric_limits<double>::min());
  // An overflow makes the bound infinite or NaN, and the comparison fails.
  return std::fabs(sum) > bound ? 0.5 * sum : 0.0;
}

bool isSimple(std::span<const Vec2> loop, PlanarPolygon& scratch) {
  if (loop.size() <= kAllPairsUpTo) return isSimpleByPairs(loop);
  scratch.assign(loop);
  scratch.buildIndex();
  for (std::size_t edge = 0; edge < loop.size(); ++edge)
    if (scratch.edgeTouchesOthers(edge)) return false;
  return true;
}

}  // namespace util
