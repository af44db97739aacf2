#pragma once

#include <cmath>

namespace util {

constexpr double kSmallestW = 1e-25;  ///< a point is projected where its |w| lies above

/// The centre and the half-size of the cube that is visible in clip space.
constexpr double kClipCubeCentre[3] = {0, 0, 0}, kClipCubeHalf[3] = {1, 1, 1};

/// Projects a point into clip space as ClipTest.h says.
/// @return whether its w allows it; if not, `out` is untouched
inline bool projectToClipSpace(const double c[16], const double* point, double out[3]) {
  const double x = point[0], y = point[1], z = point[2];
  const double w = std::fabs(c[3] * x + c[7] * y + c[11] * z + c[15]);
  if (!(w > kSmallestW)) return false;
  out[0] = (c[0] * x + c[4] * y + c[8] * z + c[12]) / w;
  out[1] = (c[1] * x + c[5] * y + c[9] * z + c[13]) / w;
  out[2] = (c[2] * x + c[6] * y + c[10] * z + c[14]) / w;
  return true;
}

/// Whether a projected point lies in the closed cube; a NaN lies nowhere.
inline bool isInClipCube(const double p[3]) {
  return p[0] >= -1.0 && p[0] <= 1.0 && p[1] >= -1.0 && p[1] <= 1.0 && p[2] >= -1.0 && p[2] <= 1.0;
}

}  // namespace util
