#pragma once

#include <cstddef>
#include <functional>
#include <span>

#include <facetbox/math/Predicates.h>
#include <facetbox/math/Vec3.h>

/// Closed loops of three or more points of the plane, the last joined to the first; finite points.

namespace util {

/// +1 for a convex loop that runs counterclockwise, -1 for one that runs clockwise, 0 for any other loop. Convex loops
/// have area and touch themselves nowhere; corners may be straight, but no two that follow each other are one point.
/// Exact. O(points).
inline int convexTurn(std::span<const Vec2> loop) {
  // Convex are the loops that turn to one side only and run up and down once each, ordered by x, then y; at the lowest
  // and at the highest point they may not fold back.
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

/// Area of a loop, positive where it runs counterclockwise; 0 where it is no larger than what rounding of its sum may
/// amount to. O(points).
double signedArea(std::span<const Vec2> loop);

/// Whether no edge shares a point with another, but for the corner between two that follow each other. Exact. About
/// O(n log n); linear where the edges are about equally long.
bool isSimple(std::span<const Vec2> loop);

/// Calls `use(edge)`, ascending, for each edge for which `counts(edge, other)` is true of an edge that touches it in
/// the sense of isSimple(). Edge i begins at point i. An edge costs about as much as the others near it that do not
/// count, and those may be asked for several times.
void findTouches(std::span<const Vec2> loop, const std::function<bool(std::size_t edge, std::size_t other)>& counts,
                 const std::function<void(std::size_t edge)>& use);

}  // namespace util
