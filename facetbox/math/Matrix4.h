#pragma once

#include <facetbox/math/Vec3.h>

namespace util {

// 4x4 matrices in column-major order: row r of column c at [4 c + r], the translation at [12] to [14].

inline constexpr double kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

/// product = a b; each element is the sum of its four products in order. `product` is neither of the others.
void multiply(const double a[16], const double b[16], double product[16]);

/// The matrix times the point (x, y, z, 1), without division by w.
inline Vec3 transformPoint(const double* m, const Vec3& p) {
  return {m[0] * p.x + m[4] * p.y + m[8] * p.z + m[12], m[1] * p.x + m[5] * p.y + m[9] * p.z + m[13],
          m[2] * p.x + m[6] * p.y + m[10] * p.z + m[14]};
}

/// Whether the matrix turns right-handed into left-handed: the determinant of its upper left 3x3 block is below 0.
inline bool mirrors(const double* m) {
  return dot({m[0], m[1], m[2]}, cross({m[4], m[5], m[6]}, {m[8], m[9], m[10]})) < 0.0;
}

}  // namespace util
