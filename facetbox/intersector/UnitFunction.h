#pragma once

#include <algorithm>
#include <cmath>

#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/TriangleBvh.h>

// Bounds of linear functions over the boxes of a hierarchy: w, the signed distances w - x, w + x, ... from the planes
// of a view volume, and the depth. They tell which subtrees a search may pass over.
//
// In unit coordinates a function is f0 + f . u with |u| <= 1 on every axis. Over a box of center m and half-size s it
// lies between f . m - |f| . s and f . m + |f| . s, plus f0.
//
// Rounding in doubles. Let S be the sum of the absolute values of a function's terms where x, y and z are as large as
// any of the mesh's. The exact test computes a vertex's clip coordinates, and its place in the world, to 4 ulp of S;
// each of the seven cuts may move a point out of the hull of the three by 3 ulp more of each coordinate; the difference
// of depths adds at most 4. kExactRounding of S covers that ten times over, and so the computation of f0 and f as well;
// kUnderflow covers underflow.
//
// Rounding in floats, in which boxes are looked at. f, m, s, products and sums are off by less than 8e |f|, with
// e = 2^-24 and |f| the sum of the absolute values of the coefficients. kFloatRounding is twice that. The limits that
// the results are compared with are rounded to the careful side.
//
// So, where a plane's distance is below -margin all over a box, the exact test computes all points of its triangles to
// lie outside of the plane: nothing is left of them. Where all distances are above the margin, and w above kSureW, all
// corners project strictly into the cube: they overlap it, and nothing is cut off. Where the depth is above the best by
// more than the margin, no triangle can have that depth or less.

namespace util {

constexpr double kExactRounding = 1e-13;
constexpr int kExactUlps = 4 + 7 * 3 + 4;  ///< a vertex, the cuts, the difference
static_assert(10 * kExactUlps * 0x1p-52 <= kExactRounding);

constexpr double kFloatRounding = 2 * 8 * 0x1p-24;
constexpr double kUnderflow = 1e-280;

/// A linear function of the mesh's coordinates: constant + f . p.
struct LinearFunction {
  double f[3], constant;

  /// Row r of a column-major 4x4 matrix.
  static LinearFunction row(const double m[16], int r) { return {{m[r], m[4 + r], m[8 + r]}, m[12 + r]}; }

  /// This function plus `factor` times another.
  LinearFunction plus(double factor, const LinearFunction& other) const {
    return {{f[0] + factor * other.f[0], f[1] + factor * other.f[1], f[2] + factor * other.f[2]},
            constant + factor * other.constant};
  }

  /// The sum of the absolute values of the terms, for coordinates up to `magnitude`.
  double size(double magnitude) const {
    return (std::fabs(f[0]) + std::fabs(f[1]) + std::fabs(f[2])) * magnitude + std::fabs(constant);
  }
};

/// The same of a hierarchy's unit coordinates, scaled so that the absolute values of the coefficients add up to 1.
class UnitFunction {
 public:
  UnitFunction() = default;
  /// @param margin  for rounding in doubles; that in floats is added
  UnitFunction(const LinearFunction& g, const TriangleBvh& hierarchy, double margin) {
    constexpr double kSmallestSize = 1e-290;  // its reciprocal is finite
    const double unit = 1 / hierarchy.scale();
    const Vec3& center = hierarchy.center();
    mOrigin = g.f[0] * center.x + g.f[1] * center.y + g.f[2] * center.z + g.constant;
    const double f[3] = {g.f[0] * unit, g.f[1] * unit, g.f[2] * unit};
    const double size = std::fabs(f[0]) + std::fabs(f[1]) + std::fabs(f[2]);
    mScale = size > kSmallestSize ? 1 / size : 1;
    mMargin = margin + kUnderflow + kFloatRounding * size;
    for (int a = 0; a < 3; ++a) {
      coefficients[a] = static_cast<float>(f[a] * mScale);
      sizes[a] = std::fabs(coefficients[a]);
    }
  }

  /// What the function is less than `value` below, for certain, and more than `value` above.
  float limitBelow(double value) const { return carefully((value - mOrigin - mMargin) * mScale, -1); }
  float limitAbove(double value) const { return carefully((value - mOrigin + mMargin) * mScale, 1); }

  float coefficients[3] = {0, 0, 0}, sizes[3] = {0, 0, 0};

 private:
  /// A float below (-1) or above (1) a limit: the computation and the conversion round by less than 4e of it.
  static float carefully(double limit, double side) {
    constexpr double kLimitRounding = 4 * 0x1p-24, kMost = 3e38;
    return static_cast<float>(std::clamp(limit + side * kLimitRounding * std::fabs(limit), -kMost, kMost));
  }

  double mOrigin = 0, mScale = 1, mMargin = 0;
};

}  // namespace util
