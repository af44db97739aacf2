#pragma once

#include <array>
#include <cstddef>

#include <facetbox/math/Lanes.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/FrustumCulling.h>

namespace util {

/// Frustum culling in the world: the six planes of the clip cube, for many axis-aligned boxes.
///
/// sideOfClipCube() asks the same of one box in its object's own coordinates, and has to multiply two matrices first.
class ClipPlanes {
 public:
  /// Larger magnitudes, of coordinates or of matrix elements, might overflow in a product of matrices.
  static constexpr double kLargestMagnitude = 1e100;
  /// Derived in ClipPlanes.cpp.
  static constexpr double kRelativeMargin = 1e-13, kAbsoluteMargin = 1e-20;

  /// @param viewProjection  column-major
  explicit ClipPlanes(const double viewProjection[16]);

  /// The side of the cube on which all vertices of an object lie, from the box around them in the world.
  ///
  /// The object's own matrix M must have the last row (0, 0, 0, 1).
  /// @param magnitude  at least 1, and at least |M| |p| in every coordinate, for every vertex p of the object
  ClipSide sideOf(const Vec3& center, const Vec3& half, double magnitude) const;

 private:
  /// The linear functions w - x and w + x: their coefficients of x, y, z and 1, and magnitudes of the first three.
  struct PlanePair {
    std::array<Double2, 4> coefficients;
    std::array<Double2, 3> magnitudes;
  };

  static constexpr double kLargestMargin = 1e80;  // beyond it, sums might overflow

  double lowestW(const Vec3& center, const Vec3& half) const;

  std::array<PlanePair, 3> mPlanes;  // for the rows x, y and z
  double mLargestRowSum;             // of the view projection's magnitudes
};

// Where all six functions exceed the margin all over the box, so does w, their mean, and each vertex projects into the
// cube. Where one is below the negative margin, and w above the margin, each vertex projects beyond that plane. NaN
// fails every comparison: unsure.
inline ClipSide ClipPlanes::sideOf(const Vec3& center, const Vec3& half, double magnitude) const {
  const double margin = kRelativeMargin * mLargestRowSum * magnitude + kAbsoluteMargin;
  if (!(margin <= kLargestMargin && magnitude <= kLargestMagnitude)) return ClipSide::unsure;
  Double2 lowest, highest;
  for (std::size_t row = 0; row < 3; ++row) {
    const auto& [of, sizes] = mPlanes[row];
    const Double2 middle = of[0] * center.x + of[1] * center.y + of[2] * center.z + of[3];
    const Double2 reach = sizes[0] * half.x + sizes[1] * half.y + sizes[2] * half.z;
    const Double2 low = middle - reach, high = middle + reach;
    if (row == 0) {
      lowest = low;
      highest = high;
    } else {
      lowest = low < lowest ? low : lowest;
      highest = high < highest ? high : highest;
    }
  }
  if (lowest[0] > margin && lowest[1] > margin) return ClipSide::inside;
  const bool isBeyond = highest[0] < -margin || highest[1] < -margin;
  return isBeyond && lowestW(center, half) > margin ? ClipSide::outside : ClipSide::unsure;
}

}  // namespace util
