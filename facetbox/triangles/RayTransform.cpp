#include <facetbox/triangles/RayTransform.h>

#include <algorithm>
#include <cmath>

#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/RayMargins.h>
#include <facetbox/triangles/TriangleBvh.h>
#include <facetbox/util/TriangleMesh.h>

namespace util {
namespace {

// Where the numbers of a matrix leave these bounds, the plain loop serves.
constexpr double kLargestInverseError = 1e-3;
constexpr double kSmallestMatrixDeterminant = 1e-280;  // its reciprocal is finite
constexpr double kLargestSum = 1e100, kSmallestVolume = 1e-200, kLargestVolume = 1e200;

/// Unlike the largest, this is NaN where a component is.
double sumOf(const Vec3& v) { return std::fabs(v.x) + std::fabs(v.y) + std::fabs(v.z); }

/// A matrix's linear part and its sizes; a, |T| and a L + |T| of the derivation.
struct Sizes {
  Vec3 row[3], translation;
  double largest, rowSum, translationSize, world;

  Sizes(const double m[16], const TriangleBvh& hierarchy)
      : row{{m[0], m[4], m[8]}, {m[1], m[5], m[9]}, {m[2], m[6], m[10]}},
        translation{m[12], m[13], m[14]},
        largest(std::max({largestMagnitude(row[0]), largestMagnitude(row[1]), largestMagnitude(row[2])})),
        rowSum(std::max({sumOf(row[0]), sumOf(row[1]), sumOf(row[2])})),
        translationSize(largestMagnitude(translation)),
        world(rowSum * hierarchy.magnitude() + translationSize) {}

  /// Spelled so that NaN fails.
  bool areModest() const {
    const double sum = sumOf(row[0]) + sumOf(row[1]) + sumOf(row[2]) + sumOf(translation);
    return world < kLargestMagnitude && sum < kLargestMagnitude;
  }
};

void store(const Vec3& v, double to[4]) {
  to[0] = v.x;
  to[1] = v.y;
  to[2] = v.z;
}

/// Stores the inverse of the linear part, from cofactors, times `scale`; the sums of its rows; and the determinant.
/// @return a bound of the inverse's error, NaN or infinite where there is none to speak of
double invert(const Sizes& sizes, double scale, RayTransform& out) {
  const Vec3* row = sizes.row;
  const Vec3 cofactors[3] = {cross(row[1], row[2]), cross(row[2], row[0]), cross(row[0], row[1])};
  const double determinant = dot(row[0], cofactors[0]);
  const double inverse = 1.0 / determinant;
  for (int k = 0; k < 3; ++k) {
    const double column[3] = {cofactors[k].x, cofactors[k].y, cofactors[k].z};
    for (int i = 0; i < 3; ++i) {
      out.columns[k][i] = scale * inverse * column[i];
      out.rowSums[i] += std::fabs(out.columns[k][i]);
    }
  }
  out.largestRowSum = largestMagnitude({out.rowSums[0], out.rowSums[1], out.rowSums[2]});
  out.volume = std::fabs(determinant) / (scale * scale * scale);
  if (!(std::fabs(determinant) > kSmallestMatrixDeterminant)) return INFINITY;
  return kInverseError * sizes.largest * sizes.largest * sizes.largest * std::fabs(inverse);
}

/// Sets what no ray changes of the margins.
void setMargins(const Sizes& sizes, double inverseError, const TriangleBvh& hierarchy, RayTransform& out) {
  for (int i = 0; i < 3; ++i) out.rowSums[i] += kPlaneErrorPerWidth * out.largestRowSum;
  out.growth = kMargin * (sizes.rowSum / hierarchy.scale());
  out.worldReach = kMargin * sizes.world + out.edge;
  out.meshReach = out.growth +
                  kMargin * (kImageErrorPerInverseError * inverseError * sizes.translationSize + out.cornerError) +
                  out.edge;
  out.pointError = out.cornerError + kEdgeError * out.edge + kImageError * sizes.translationSize;
  out.imageError = kMargin * (kImageErrorPerInverseError * inverseError);
  out.determinantError = kTripleProductError * out.edge * out.edge;
  out.commonWidth =
      hierarchy.scale() * (kInverseErrorPerRow * inverseError + kUnitPositionError) * hierarchy.magnitude();
}

}  // namespace

RayTransform::RayTransform(const TriangleMesh& mesh, const double matrix[16]) {
  const TriangleBvh* hierarchy = mesh.hierarchy();
  if (hierarchy == nullptr || !hierarchy->isUsable()) return;
  const Sizes sizes(matrix, *hierarchy);
  if (!sizes.areModest()) return;
  store(sizes.translation, translation);
  store(hierarchy->scale() * hierarchy->center(), center);
  cornerError = kCornerError * sizes.world;
  edge = kMargin * (sizes.rowSum * hierarchy->longestEdge() + 2 * cornerError);
  const double inverseError = invert(sizes, hierarchy->scale(), *this);
  if (!(inverseError < kLargestInverseError)) return;
  setMargins(sizes, inverseError, *hierarchy, *this);
  isUsable = rowSums[0] + rowSums[1] + rowSums[2] < kLargestSum && volume > kSmallestVolume &&
             volume < kLargestVolume && growth < kLargestSum && commonWidth < kLargestFloat;
}

}  // namespace util
