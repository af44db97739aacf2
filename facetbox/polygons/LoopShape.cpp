#include <facetbox/polygons/LoopShape.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include <facetbox/polygons/PlanarPolygon.h>

namespace util {
namespace {

/// Up to this many edges, comparing all pairs is faster than a grid.
constexpr std::size_t kAllPairsUpTo = 64;

/// A grid with a cell of more edges than this is slower than an index that adapts to them.
constexpr std::size_t kMostEdges = 200;
/// The same where edges may lie on top of each other.
constexpr std::size_t kMostTouchingEdges = 1000;

Vec2 before(std::span<const Vec2> loop, std::size_t i) { return loop[i > 0 ? i - 1 : loop.size() - 1]; }
Vec2 after(std::span<const Vec2> loop, std::size_t i) { return loop[i + 1 < loop.size() ? i + 1 : 0]; }

/// The edges of a loop in a grid over its box, each in all cells that its own box meets. Edges that touch share a cell,
/// since a cell's number never falls where the coordinate rises.
class EdgeGrid {
 public:
  explicit EdgeGrid(std::span<const Vec2> loop) : mLoop(loop) {
    const auto n = static_cast<double>(loop.size());
    Vec2 max = loop[0], length{0, 0};
    mMin = loop[0];
    for (std::size_t i = 0; i < loop.size(); ++i) {
      mMin = {std::min(mMin.x, loop[i].x), std::min(mMin.y, loop[i].y)};
      max = {std::max(max.x, loop[i].x), std::max(max.y, loop[i].y)};
      length = {length.x + std::fabs(end(i).x - loop[i].x), length.y + std::fabs(end(i).y - loop[i].y)};
    }
    // Cells as large as an edge is on average, but no more of them than twice the edges.
    const double wide = (max.x - mMin.x) * n / length.x, high = (max.y - mMin.y) * n / length.y;
    const double excess = std::sqrt(std::max(1.0, wide * high / (2.0 * n)));
    mPerUnit = {wide / excess / (max.x - mMin.x), high / excess / (max.y - mMin.y)};
    mWidth = cellOf(max.x, mMin.x, mPerUnit.x) + 1;
    mHeight = cellOf(max.y, mMin.y, mPerUnit.y) + 1;
  }

  /// Puts the edges into their cells. False, and the grid is unusable, where that takes too many entries or a cell gets
  /// more than `mostEdges`.
  bool fill(std::size_t mostEdges) {
    // Written so that NaN, from extents that overflow, fails as well.
    if (!(static_cast<double>(mWidth) * static_cast<double>(mHeight) <= 4.0 * static_cast<double>(mLoop.size()) + 16.0))
      return false;
    mBegins.assign(mWidth * mHeight + 1, 0);
    std::size_t entries = 0;
    for (std::size_t i = 0; i < mLoop.size(); ++i) {
      entries += countCells(i);
      if (entries > kMostCells * mLoop.size()) return false;
      forEachCell(i, [&](std::size_t cell) { ++mBegins[cell + 1]; });
    }
    for (std::size_t cell = 0; cell < mWidth * mHeight; ++cell) {
      if (mBegins[cell + 1] > mostEdges) return false;
      mBegins[cell + 1] += mBegins[cell];
    }
    mEdges.resize(entries);
    std::vector<std::uint32_t> next(mBegins.begin(), mBegins.end() - 1);
    for (std::size_t i = 0; i < mLoop.size(); ++i)
      forEachCell(i, [&](std::size_t cell) { mEdges[next[cell]++] = static_cast<std::uint32_t>(i); });
    return true;
  }

  /// Whether `counts(other)` is true for an edge that touches the given one and is not its neighbor. May ask for one
  /// edge several times.
  template <class Counts>
  bool touchesAny(std::size_t edge, Counts counts) const {
    bool found = false;
    forEachCell(edge, [&](std::size_t cell) {
      for (std::size_t i = mBegins[cell]; i < mBegins[cell + 1] && !found; ++i) {
        const std::size_t other = mEdges[i], apart = other > edge ? other - edge : edge - other;
        found = apart > 1 && apart < mLoop.size() - 1 &&
                segmentsTouch(mLoop[edge], end(edge), mLoop[other], end(other)) && counts(other);
      }
    });
    return found;
  }

  /// Whether two edges touch that are not neighbors.
  bool anyTouch(Monitor* monitor) const {
    for (std::size_t cell = 0; cell + 1 < mBegins.size(); ++cell) {
      if (monitor) monitor->tick(1 + mBegins[cell + 1] - mBegins[cell]);
      for (std::size_t i = mBegins[cell]; i < mBegins[cell + 1]; ++i)
        for (std::size_t j = i + 1; j < mBegins[cell + 1]; ++j) {
          const std::size_t a = mEdges[i], b = mEdges[j];  // ascending
          if (b - a > 1 && b - a < mLoop.size() - 1 && segmentsTouch(mLoop[a], end(a), mLoop[b], end(b))) return true;
        }
    }
    return false;
  }

 private:
  static constexpr std::size_t kMostCells = 6;  // per edge, on average

  Vec2 end(std::size_t edge) const { return after(mLoop, edge); }

  /// 0 for negative values and NaN; bounded, so that it fits the integer.
  static std::size_t cellOf(double coordinate, double min, double perUnit) {
    const double cell = (coordinate - min) * perUnit;
    return cell > 0 ? static_cast<std::size_t>(std::min(cell, 1e9)) : 0;
  }
  std::size_t column(double x) const { return cellOf(x, mMin.x, mPerUnit.x); }
  std::size_t row(double y) const { return cellOf(y, mMin.y, mPerUnit.y); }

  std::size_t countCells(std::size_t edge) const {
    const Vec2 a = mLoop[edge], b = end(edge);
    return (column(std::max(a.x, b.x)) - column(std::min(a.x, b.x)) + 1) *
           (row(std::max(a.y, b.y)) - row(std::min(a.y, b.y)) + 1);
  }
  template <class Use>
  void forEachCell(std::size_t edge, Use use) const {
    const Vec2 a = mLoop[edge], b = end(edge);
    const std::size_t left = column(std::min(a.x, b.x)), right = column(std::max(a.x, b.x));
    const std::size_t top = row(std::max(a.y, b.y));
    for (std::size_t y = row(std::min(a.y, b.y)); y <= top; ++y)
      for (std::size_t x = left; x <= right; ++x) use(y * mWidth + x);
  }

  std::span<const Vec2> mLoop;
  Vec2 mMin, mPerUnit;
  std::size_t mWidth, mHeight;
  std::vector<std::uint32_t> mBegins;  // per cell, in mEdges
  std::vector<std::uint32_t> mEdges;
};

bool isSimpleByPairs(std::span<const Vec2> loop) {
  const std::size_t n = loop.size();
  for (std::size_t i = 0; i < n; ++i) {
    const Vec2 a = loop[i], b = after(loop, i);
    if (foldsBack(before(loop, i), a, b)) return false;
    // The last edge is a neighbor of the first.
    for (std::size_t j = i + 2; j < n - (i == 0); ++j)
      if (segmentsTouch(a, b, loop[j], after(loop, j))) return false;
  }
  return true;
}

}  // namespace

double signedArea(std::span<const Vec2> loop) {
  assert(loop.size() >= 3);
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

bool isSimple(std::span<const Vec2> loop, Monitor* monitor) {
  if (loop.size() <= kAllPairsUpTo) return isSimpleByPairs(loop);
  for (std::size_t i = 0; i < loop.size(); ++i)
    if (foldsBack(before(loop, i), loop[i], after(loop, i))) return false;
  EdgeGrid grid(loop);
  if (monitor) monitor->look();
  if (grid.fill(kMostEdges)) return !grid.anyTouch(monitor);
  PlanarPolygon polygon(loop);
  polygon.setMonitor(monitor);
  polygon.buildIndex();
  for (std::size_t edge = 0; edge < loop.size(); ++edge) {
    if (monitor) monitor->tick();
    if (polygon.edgeTouchesAny(edge, [](std::size_t) { return true; })) return false;
  }
  return true;
}

void findTouches(std::span<const Vec2> loop, const std::function<bool(std::size_t, std::size_t)>& counts,
                 const std::function<void(std::size_t)>& use, Monitor* monitor) {
  const std::size_t n = loop.size();
  EdgeGrid grid(loop);
  const bool useGrid = grid.fill(kMostTouchingEdges);
  PlanarPolygon polygon(useGrid ? std::span<const Vec2>() : loop);
  polygon.setMonitor(monitor);
  if (!useGrid) polygon.buildIndex();
  for (std::size_t edge = 0; edge < n; ++edge) {
    if (monitor) monitor->tick();
    const std::size_t last = edge > 0 ? edge - 1 : n - 1, next = edge + 1 < n ? edge + 1 : 0;
    const auto countsHere = [&](std::size_t other) { return counts(edge, other); };
    if ((foldsBack(loop[last], loop[edge], loop[next]) && countsHere(last)) ||
        (foldsBack(loop[edge], loop[next], after(loop, next)) && countsHere(next)) ||
        (useGrid ? grid.touchesAny(edge, countsHere) : polygon.edgeTouchesAny(edge, countsHere)))
      use(edge);
  }
}

}  // namespace util
