#pragma once

#include <facetbox/math/Vec3.h>

namespace util {

/// A corner of a clipped triangle.
struct ClipPoint {
  double h[4];  ///< x, y, z, w in clip space
  Vec3 world;
};

/// As many points as so many planes can leave of a triangle. Each adds at most half as many again: each run of points
/// outside becomes two, and runs are apart. (A convex polygon gains one at most; with rounding, nothing is quite
/// convex.)
constexpr int mostClipPoints(int planes) {
  int count = 3;
  for (; planes > 0; --planes) count += count / 2;
  return count;
}

/// A triangle, clipped against the view volume in homogeneous coordinates after Sutherland and Hodgman, Reentrant
/// polygon clipping, 1974: by w > 1e-25, then by x <= w, x >= -w, and so on for y and z.
///
/// A point where an edge is cut lies at the same share of the edge in clip space and in the world.
class ClipPolygon {
 public:
  /// w, and the two faces of the cube on each axis.
  static constexpr int kPlanes = 7;

  /// @param c         the way into clip space
  /// @param vertices  the corners' coordinates, three each; `corners` are their places in the world
  ClipPolygon(const double c[16], const double* const (&vertices)[3], const Vec3 (&corners)[3]) : mCount(3) {
    for (int k = 0; k < 3; ++k) {
      const double x = vertices[k][0], y = vertices[k][1], z = vertices[k][2];
      for (int r = 0; r < 4; ++r) mPoints[k].h[r] = c[r] * x + c[4 + r] * y + c[8 + r] * z + c[12 + r];
      mPoints[k].world = corners[k];
    }
  }
  ClipPolygon(const ClipPolygon&) = delete;
  ClipPolygon& operator=(const ClipPolygon&) = delete;

  /// Cuts off what lies outside of the volume. O(1).
  void clip();

  /// What is left, in the triangle's winding, its first corner first. May be nothing.
  const ClipPoint* begin() const { return mPoints; }
  const ClipPoint* end() const { return mPoints + mCount; }

 private:
  static constexpr int kMostPoints = mostClipPoints(kPlanes);

  void clipBy(int plane);
  void cutOff(int plane, const double* distances);

  ClipPoint mPoints[kMostPoints];
  int mCount;
};

}  // namespace util
