#pragma once

#include <cstdint>
#include <span>

#include <facetbox/math/Vec3.h>

namespace util {

/// Unit normal of a polygon, its direction by the right-hand rule: half the polygon's area vector, summed as the cross
/// products of the edges relative to the first corner, divided by its length. O(corners).
///
/// @param vertices  coordinates, addressed by `corners`
/// @param normal    receives the normal, or (0, 1, 0) when the sum's length is not above 1e-25 (NaN included)
/// @return whether the polygon has a normal of its own
bool computeFaceNormal(std::span<const Vec3> vertices, std::span<const std::uint32_t> corners, Vec3& normal);

/// Area of a polygon, never negative; 0 below three corners. O(corners), no allocation.
///
/// The polygon is projected along the largest component of `normal` (x, or y, only when strictly the largest; z in
/// every other case), measured there by the shoelace formula and divided by that component. A zero component is not
/// guarded and gives infinity or NaN; a polygon that got the stand-in normal (0, 1, 0) is measured in the (z, x) plane.
/// Source of the formula: D. Sunday, Fast Polygon Area and Newell Normal Computation, 2002.
double computePolygonArea(std::span<const Vec3> vertices, std::span<const std::uint32_t> corners, const Vec3& normal);

}  // namespace util
