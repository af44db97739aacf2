#pragma once

#include <array>
#include <cstdint>

#include <facetbox/math/Vec3.h>

namespace util {

/// A triangle with the numbers of its vertices, by which triangles share them. It may be degenerate: then it is the
/// segment or the point that its corners span.
struct NumberedTriangle {
  std::array<Vec3, 3> corners;
  std::array<std::uint32_t, 3> vertices;
};

/// Corners that count as shared, by the places of a triangle's corners.
using SharedCorners = std::array<bool, 3>;

/// Which corners of `a` are corners of `b`, by number.
inline SharedCorners sharedCorners(const NumberedTriangle& a, const NumberedTriangle& b) {
  SharedCorners shared;
  for (std::size_t i = 0; i < 3; ++i)
    shared[i] = a.vertices[i] == b.vertices[0] || a.vertices[i] == b.vertices[1] || a.vertices[i] == b.vertices[2];
  return shared;
}

/// Whether two closed triangles meet elsewhere than in what they share: whether their intersection is more than the
/// shared corner or edge, or has an area. In terms of sets, it is no part of the hull of the shared corners that lie in
/// it, or this hull has an area.
///
/// So two triangles of the same three corners meet elsewhere unless they are degenerate. Exact, for all finite
/// coordinates, and symmetric.
/// @param sharedOfA, sharedOfB  at least what sharedCorners() says
bool meetElsewhere(const NumberedTriangle& a, const NumberedTriangle& b, const SharedCorners& sharedOfA,
                   const SharedCorners& sharedOfB);

inline bool meetElsewhere(const NumberedTriangle& a, const NumberedTriangle& b) {
  return meetElsewhere(a, b, sharedCorners(a, b), sharedCorners(b, a));
}

}  // namespace util
