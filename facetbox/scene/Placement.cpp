#include <facetbox/scene/Placement.h>

#include <algorithm>
#include <cmath>

namespace util {
namespace {

constexpr double kUnit = 0x1p-53;
/// What is tolerated: of B A - 1, with B the computed inverse of A, and of the product of both matrices' row sums,
/// which is what rounding errors of a point in the world are multiplied by.
constexpr double kLargestInverseError = 0x1p-28, kLargestCondition = 0x1p20;
/// By how much a hit may lie outside of its object, per unit of the coordinates that went in and of the condition: the
/// image of the origin is off by 6u of both, the triangle test by 8u, and some more for the sums of a box.
constexpr double kErrorPerCondition = 32 * kUnit;
/// A component of B A - 1, per unit of (largest element)^3 / determinant: from cofactors.
constexpr double kInverseError = 64 * kUnit;

double sumOf(const Vec3& v) { return std::fabs(v.x) + std::fabs(v.y) + std::fabs(v.z); }
double largestRowSum(const Vec3 rows[3]) { return std::max({sumOf(rows[0]), sumOf(rows[1]), sumOf(rows[2])}); }

/// The rows' linear part, scaled.
void scaleInto(const Vec3 from[3], double factor, Vec3 to[3]) {
  for (int i = 0; i < 3; ++i) to[i] = factor * from[i];
}

/// An upper bound of the longest image of a unit vector: the root of the largest row sum of M^T M, which is exact for
/// rotations and uniform scalings.
double longestImage(const Vec3 rows[3]) {
  const Vec3 columns[3] = {
      {rows[0].x, rows[1].x, rows[2].x}, {rows[0].y, rows[1].y, rows[2].y}, {rows[0].z, rows[1].z, rows[2].z}};
  double most = 0;
  for (const Vec3& a : columns)
    most =
        std::max(most, std::fabs(dot(a, columns[0])) + std::fabs(dot(a, columns[1])) + std::fabs(dot(a, columns[2])));
  constexpr double kMargin = 1 + 32 * kUnit;
  return kMargin * std::sqrt(most);
}

}  // namespace

Placement::Placement(const facetbox::Transform& transform, double meshScale) {
  const auto& m = transform.rows;
  const Vec3 rows[3] = {toVec3(m[0]), toVec3(m[1]), toVec3(m[2])};
  mTranslation = {m[0][3], m[1][3], m[2][3]};
  scaleInto(rows, 1 / meshScale, mRows);

  // Scaled to about 1, so that no product overflows or vanishes.
  const double largest = std::max({largestMagnitude(rows[0]), largestMagnitude(rows[1]), largestMagnitude(rows[2])});
  int exponent = 0;
  std::frexp(largest, &exponent);
  constexpr int kMostExponent = 1000;
  mIsInvertible = largest > 0 && std::abs(exponent) < kMostExponent;
  if (!mIsInvertible) return;
  const double scale = std::ldexp(1.0, -exponent);
  Vec3 unit[3];
  scaleInto(rows, scale, unit);
  const Vec3 cofactors[3] = {cross(unit[1], unit[2]), cross(unit[2], unit[0]), cross(unit[0], unit[1])};
  const double determinant = dot(unit[0], cofactors[0]);
  const Vec3 inverse[3] = {Vec3{cofactors[0].x, cofactors[1].x, cofactors[2].x} / determinant,
                           Vec3{cofactors[0].y, cofactors[1].y, cofactors[2].y} / determinant,
                           Vec3{cofactors[0].z, cofactors[1].z, cofactors[2].z} / determinant};
  // Spelled so that NaN fails.
  mInverseError = kInverseError / std::fabs(determinant);
  const double condition = largestRowSum(unit) * largestRowSum(inverse);
  mIsInvertible = mInverseError < kLargestInverseError && condition <= kLargestCondition;
  if (!mIsInvertible) return;
  mOriginError = kErrorPerCondition * condition;
  Vec3 unscaled[3];
  scaleInto(inverse, scale, unscaled);
  scaleInto(unscaled, meshScale, mInverse);
  const double longest = longestImage(inverse);
  constexpr double kMargin = 1 - 2 * kLargestInverseError;
  mLeastStretch = kMargin / longest / scale / meshScale;
}

Box Placement::worldBox(const Box& meshBox) const {
  if (!(meshBox.min.x <= meshBox.max.x)) return {};
  const Vec3 center = 0.5 * (meshBox.min + meshBox.max), half = 0.5 * (meshBox.max - meshBox.min);
  const Vec3 middle = toWorld(center);
  const auto placed = [&](const Vec3& size) {
    const auto along = [&](const Vec3& row) {
      return std::fabs(row.x) * size.x + std::fabs(row.y) * size.y + std::fabs(row.z) * size.z;
    };
    return Vec3{along(mRows[0]), along(mRows[1]), along(mRows[2])};
  };
  const Vec3 reach = placed(half);
  const double size = largestMagnitude(reach) +
                      largestMagnitude(placed({std::fabs(center.x), std::fabs(center.y), std::fabs(center.z)}));
  // What the inverse may be off, and the rounding of rays that start near this object, and of the sums here.
  const double slack = 3 * mInverseError * size + mOriginError * (largestMagnitude(mTranslation) + size);
  const Vec3 outward = reach + Vec3{slack, slack, slack};
  return {middle - outward, middle + outward};
}

}  // namespace util
