#pragma once

#include <facetbox/math/Vec3.h>

namespace util {

/// The point (x, y, z, 1) times a 4x4 matrix in column-major order (translation in m[12] to m[14]), without division
/// by w.
inline Vec3 transformPoint(const double* m, const Vec3& p) {
  return {m[0] * p.x + m[4] * p.y + m[8] * p.z + m[12], m[1] * p.x + m[5] * p.y + m[9] * p.z + m[13],
          m[2] * p.x + m[6] * p.y + m[10] * p.z + m[14]};
}

/// Whether the matrix turns right-handed into left-handed: the determinant of its upper left 3x3 block is below 0.
inline bool mirrors(const double* m) {
  return dot({m[0], m[1], m[2]}, cross({m[4], m[5], m[6]}, {m[8], m[9], m[10]})) < 0.0;
}

}  // namespace util
