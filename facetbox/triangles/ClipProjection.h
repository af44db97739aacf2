#pragma once

#include <cmath>

#include <facetbox/math/Lanes.h>

namespace util {

constexpr double kSmallestW = 1e-25;  ///< a point is projected where its |w| lies above

// Where bounds of w and of sums of terms decide for a whole box: far enough from the smallest w, whatever the rounding,
// and from overflow.
constexpr double kSureW = 1e-20;
constexpr double kLargestClipSum = 1e100;
static_assert(kSureW > 1e4 * kSmallestW);

/// The center and the half-size of the cube that is visible in clip space.
constexpr double kClipCubeCenter[3] = {0, 0, 0}, kClipCubeHalf[3] = {1, 1, 1};

/// What a point's coordinates in clip space are before the division, as FrustumCulling.h says.
struct ClipSums {
  Double2 xy;
  double z, w;

  ClipSums(const double c[16], const double* point) {
    const double x = point[0], y = point[1];
    xy = loadTwo(c) * x + loadTwo(c + 4) * y + loadTwo(c + 8) * point[2] + loadTwo(c + 12);
    const Double2 zw = loadTwo(c + 2) * x + loadTwo(c + 6) * y + loadTwo(c + 10) * point[2] + loadTwo(c + 14);
    z = zw[0];
    w = std::fabs(zw[1]);
  }
};

/// Projects a point into clip space as FrustumCulling.h says.
/// @return whether its w allows it; if not, `out` is untouched
inline bool projectToClipSpace(const double c[16], const double* point, double out[3]) {
  const ClipSums sums(c, point);
  if (!(sums.w > kSmallestW)) return false;
  const Double2 xy = sums.xy / sums.w;
  out[0] = xy[0];
  out[1] = xy[1];
  out[2] = sums.z / sums.w;
  return true;
}

/// Whether a projected point lies in the closed cube; a NaN lies nowhere.
inline bool isInClipCube(const double p[3]) {
  return p[0] >= -1.0 && p[0] <= 1.0 && p[1] >= -1.0 && p[1] <= 1.0 && p[2] >= -1.0 && p[2] <= 1.0;
}

}  // namespace util
