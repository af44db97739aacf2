#pragma once

#include <cstddef>
#include <vector>

#include <facetbox/math/Vec3.h>

namespace util {

struct Segment2 {
  Vec2 from, to;
};

/// Whether more than `limit` pairs of segments cross, each passing from one side of the other to its other side.
/// Touching is not crossing. Exact; finite points. O(n log n + n w), where w is the largest number of segments that an
/// upright line meets, but it stops as soon as the answer is known.
/// @param segments  are reordered
bool crossMoreOftenThan(std::size_t limit, std::vector<Segment2>& segments);

}  // namespace util
