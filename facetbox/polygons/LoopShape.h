#pragma once

#include <cassert>
#include <cstddef>
#include <functional>
#include <span>

#include <facetbox/base/Monitor.h>
#include <facetbox/math/Predicates.h>
#include <facetbox/math/Vec3.h>

/// Closed loops of three or more points of the plane, the last joined to the first; finite points.

namespace util {

/// +1 for a convex loop that runs counterclockwise, -1 for one that runs clockwise, 0 for any other loop. Convex loops
/// have area and do not touch themselves; corners may be straight, but neighboring corners are never the same point.
/// Exact. O(points).
inline int convexTurn(std::span<const Vec2> loop) {
  // A loop is convex if it turns to one side only and, ordering points by x, then y, rises and falls once each; at the
  // lowest and the highest point it may not fold back.
  assert(loop.size() >= 3);
  const auto isBefore = [](Vec2 a, Vec2 b) { return a.x < b.x || (a.x == b.x && a.y < b.y); };
  int side = 0;
  unsigned reversals = 0;
  Vec2 a = loop[loop.size() - 2], b = loop.back();
  bool wasRising = isBefore(a, b);
  for (const Vec2 c : loop) {
    const bool isRising = isBefore(b, c);
    const int turn = orientation(a, b, c);
    if (isRising != wasRising && (turn == 0 || ++reversals > 2)) return 0;
    if (turn == 0 ? b == c : turn == -side) return 0;
    if (turn != 0) side = turn;
    a = b;
    b = c;
    wasRising = isRising;
  }
  return side;
}

/// Area of a loop, positive where it runs counterclockwise; 0 where rounding of the sum could exceed it. O(points).
double signedArea(std::span<const Vec2> loop);

/// Whether no two edges share a point, except neighbors their corner. Exact. About O(n log n); linear where the edges
/// are about equally long.
bool isSimple(std::span<const Vec2> loop, Monitor* monitor = nullptr);

/// Calls `use(edge)`, ascending, for each edge that touches another, in the sense of isSimple(), for which
/// `counts(edge, other)` is true. Edge i begins at point i. The cost of an edge grows with the number of others near it
/// that do not count; those may be asked for several times.
void findTouches(std::span<const Vec2> loop, const std::function<bool(std::size_t edge, std::size_t other)>& counts,
                 const std::function<void(std::size_t edge)>& use, Monitor* monitor = nullptr);

}  // namespace util
