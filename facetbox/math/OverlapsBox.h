#pragma once

namespace util {

/// Whether a triangle and an axis-parallel box share a point; touching counts, and no tolerance is added. A triangle
/// may have shrunk to a segment or a point, a box to a plate or a point.
///
/// Where a coordinate of either is NaN the answer is no.
///
/// @param boxHalfSize  half of the box's edges, none below 0
/// Pure. O(1), some tens of operations.
bool overlapsBox(const double p0[3], const double p1[3], const double p2[3], const double boxCenter[3],
                 const double boxHalfSize[3]);

}  // namespace util
