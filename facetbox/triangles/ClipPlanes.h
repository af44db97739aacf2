#pragma once

#include <array>

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

  double lowestW(const Vec3& center, const Vec3& half) const;

  std::array<PlanePair, 3> mPlanes;  // for the rows x, y and z
  double mLargestRowSum;             // of the view projection's magnitudes
};

}  // namespace util
