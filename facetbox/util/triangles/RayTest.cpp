#include <facetbox/util/triangles/RayTest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

#include <facetbox/util/Buffer.h>
#include <facetbox/util/math/Angle.h>
#include <facetbox/util/math/Matrix4.h>
#include <facetbox/util/math/Vec3.h>
#include <facetbox/util/triangles/RayDescent.h>
#include <facetbox/util/triangles/TriangleHierarchy.h>

// How far the boxes have to be widened so that no triangle that the plain loop accepts is passed over.
//
// Let u = 2^-53, |.| the largest absolute component, A and T the matrix's linear part and translation, a a bound of A's
// row sums of absolute values, L the largest coordinate of the mesh, D = |direction|.
//
// In the world. A corner P computed from x = A v + T is off by at most rho = 5u (a L + |T|) in each coordinate. With
// the computed edges e1, e2 (at most E) and s = origin - P0 (at most S), every triple product of the test has a
// rounding error of at most 32u times the product of its three bounds: 2 roundings in each component of the cross
// product and 3 in the sum, over 6 products. So the numerators of u and v are off by N = 32u S D E, that of t by M =
// 32u S E E, the determinant by Q = 32u E E D. The test only accepts |det| >= 1e-5; where Q <= 0.25e-5, the true
// determinant is at least three quarters of the computed one, and the true (u, v) of the ray and the computed triangle
// lies within delta = (N + Q) / 0.75e-5 + 4u of accepted ones, the true parameter t' of an accepted t within (M + t Q)
// / 0.75e-5 + 4u t. Hence the point origin + t' direction lies within eta = 2 delta E + rho + u S + 6u E of the
// transformed triangle, in each coordinate.
//
// In the mesh's space. With any matrix B, the map w -> B (w - T) takes that point to within b_i eta + r 3 L of the
// triangle, where b_i is B's row sum and r bounds the components of B A - 1. For B from cofactors, r <= 64u kappa with
// kappa = (largest |A_ij|)^3 / |det A|. The computed image of the origin is off by at most 6u (b_i (|o| + |T|) + L),
// that of the direction by 4u b_i D per unit of the parameter; the parameter of a point in the mesh is at most
// (|o'| + 2 h) / |d'|, with h the half size of the mesh.
//
// In floats. The origin is moved along the ray to the point next to the mesh's center, which keeps far origins from
// costing digits. With e = 2^-24 the plane distances (plane - origin) / direction carry relative errors of at
// most 4.1e, the origin one of e, and tiny directions are replaced by 2^-22 of the largest: 10e times the largest
// distance between origin and box planes covers all three.

namespace util {
namespace {

constexpr double kUnit = 0x1p-53;
constexpr double kFloatUnit = 0x1p-24;
constexpr double kFarthest = 3.4028234663852886e38;
/// Determinants strictly between -kSmallestDeterminant and kSmallestDeterminant mean a parallel ray.
constexpr double kSmallestDeterminant = 1e-5;
constexpr double kPerDeterminant = 1 / (0.75 * kSmallestDeterminant);
/// Magnitudes up to this can be multiplied four at a time without overflow.
constexpr double kLargestMagnitude = 1e70;

Vec3 toVec3(const double* p) { return {p[0], p[1], p[2]}; }

/// The test itself, on one triangle. A hit replaces an equal one where `winsTies` says so.
template <class WinsTies>
inline void testTriangle(const Vec3& p0, const Vec3& p1, const Vec3& p2, const Vec3& origin, const Vec3& direction,
                         std::uint32_t triangle, WinsTies winsTies, ExactSearch& search) {
  const Vec3 e1 = p1 - p0, e2 = p2 - p0;
  const Vec3 pvec = cross(direction, e2);
  const double det = dot(e1, pvec);
  if (-kSmallestDeterminant < det && det < kSmallestDeterminant) return;
  const double inverse = 1.0 / det;
  const Vec3 s = origin - p0;
  const double u = dot(s, pvec) * inverse;
  if (!(0.0 <= u && u <= 1.0)) return;
  const Vec3 qvec = cross(s, e1);
  const double v = dot(direction, qvec) * inverse;
  if (v < 0.0 || u + v > 1.0) return;
  const double t = dot(e2, qvec) * inverse;
  if (!(t >= 0.0 && (t < search.best || (t == search.best && winsTies())))) return;
  search.best = t;
  search.triangle = triangle;
  search.edge1 = e1;
  search.edge2 = e2;
}

bool report(const ExactSearch& search, double* t, double* normalOut) {
  if (!(search.best < kFarthest)) return false;
  *t = search.best;
  if (normalOut != nullptr) {
    const Vec3 normal = normalised(cross(search.edge1, search.edge2));
    normalOut[0] = normal.x;
    normalOut[1] = normal.y;
    normalOut[2] = normal.z;
  }
  return true;
}

double largestOf(const Vec3& v) { return std::max(std::max(std::fabs(v.x), std::fabs(v.y)), std::fabs(v.z)); }
/// Unlike the largest, this is NaN where a component is.
double sumOf(const Vec3& v) { return std::fabs(v.x) + std::fabs(v.y) + std::fabs(v.z); }

RayDescent& descentFor(Instructions instructions) {
#if defined(FACETBOX_HAS_AVX2)
  static const bool hasAvx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  if (instructions == Instructions::best && hasAvx2) return descendAvx2;
#endif
  static_cast<void>(instructions);
  return descendBase;
}

}  // namespace

void testExact(const TriangleHierarchy::Exact& exact, ExactSearch& search) {
  const double* m = search.matrix;
  testTriangle(
      transformPoint(m, toVec3(exact.corner)), transformPoint(m, toVec3(exact.corner + 3)),
      transformPoint(m, toVec3(exact.corner + 6)), toVec3(search.origin), toVec3(search.direction), exact.triangle,
      [&] { return exact.triangle < search.triangle; }, search);
}

RayPlacement::RayPlacement(const TriangleMesh& mesh, const double matrix[16]) {
  const TriangleHierarchy* hierarchy = mesh.hierarchy();
  if (hierarchy == nullptr || !hierarchy->isUsable()) return;
  const double* m = matrix;
  const Vec3 row[3] = {{m[0], m[4], m[8]}, {m[1], m[5], m[9]}, {m[2], m[6], m[10]}};
  mTranslation = {m[12], m[13], m[14]};
  const double largest = std::max({largestOf(row[0]), largestOf(row[1]), largestOf(row[2])});
  const double a = std::max({sumOf(row[0]), sumOf(row[1]), sumOf(row[2])});
  const double sum = sumOf(row[0]) + sumOf(row[1]) + sumOf(row[2]) + sumOf(mTranslation);
  mTranslationSize = largestOf(mTranslation);
  mWorldSize = a * hierarchy->magnitude() + mTranslationSize;
  // Spelt so that NaN fails, here and below.
  if (!(mWorldSize < kLargestMagnitude && sum < kLargestMagnitude)) return;
  mCornerError = 5 * kUnit * mWorldSize;
  mEdge = 1.01 * (a * hierarchy->longestEdge() + 2 * mCornerError);

  const Vec3 cofactors[3] = {cross(row[1], row[2]), cross(row[2], row[0]), cross(row[0], row[1])};
  const double determinant = dot(row[0], cofactors[0]);
  const double inverse = 1.0 / determinant;
  mInverseError = 64 * kUnit * largest * largest * largest * std::fabs(inverse);
  if (!(mInverseError < 1e-3) || !(std::fabs(determinant) > 1e-280)) return;
  const double scale = hierarchy->scale();
  for (int k = 0; k < 3; ++k) mColumns[k] = (scale * inverse) * cofactors[k];
  mRowSums = {std::fabs(mColumns[0].x) + std::fabs(mColumns[1].x) + std::fabs(mColumns[2].x),
              std::fabs(mColumns[0].y) + std::fabs(mColumns[1].y) + std::fabs(mColumns[2].y),
              std::fabs(mColumns[0].z) + std::fabs(mColumns[1].z) + std::fabs(mColumns[2].z)};
  mLargestRowSum = largestOf(mRowSums);
  mCenter = scale * hierarchy->center();
  mGrowth = a / scale;
  mCommonWidth = scale * (3 * mInverseError + 10 * kUnit) * hierarchy->magnitude();
  mIsUsable = sumOf(mRowSums) < 1e100 && mGrowth < 1e100 && mCommonWidth < 1e30;
}

/// What a descent needs to know about one ray, or why there cannot be one.
class RayFrame {
 public:
  enum class Outlook { descend, noHit, unknown };

  Outlook prepare(const RayPlacement& placement, const Vec3& origin, const Vec3& direction);

  UnitRay mRay;
  ParameterMap mLimits;
};

RayFrame::Outlook RayFrame::prepare(const RayPlacement& placement, const Vec3& origin, const Vec3& direction) {
  if (!placement.mIsUsable) return Outlook::unknown;
  const double D = largestOf(direction), O = largestOf(origin), E = placement.mEdge;
  if (!(D < kLargestMagnitude && O < kLargestMagnitude)) return Outlook::unknown;
  if (7 * E * E * D < kSmallestDeterminant) return Outlook::noHit;
  const double Q = 32 * kUnit * E * E * D;
  if (!(Q <= 0.25 * kSmallestDeterminant)) return Outlook::unknown;

  // The ray in unit coordinates, its origin moved next to the center.
  const auto toUnit = [&](const Vec3& v) {
    return v.x * placement.mColumns[0] + v.y * placement.mColumns[1] + v.z * placement.mColumns[2];
  };
  const Vec3 o = toUnit(origin - placement.mTranslation) - placement.mCenter;
  const Vec3 d = toUnit(direction);
  const double oSize = largestOf(o), dSize = largestOf(d);
  // Per unit of a row sum, the error of d.
  const double drift = 4 * kUnit * D;
  if (!(drift * placement.mLargestRowSum < 0.01 * dSize) || !(dSize > 1e-100 && dSize < 1e100)) return Outlook::unknown;
  const double shift = -dot(o, d) / dot(d, d);
  const Vec3 n = o + shift * d;

  const double OT = O + placement.mTranslationSize, rho = placement.mCornerError;
  const double S = 1.01 * std::min(O + placement.mWorldSize,
                                   placement.mGrowth * (oSize + 1) + 4 * placement.mInverseError * OT + rho);
  const double delta = kPerDeterminant * (32 * kUnit * S * D * E + Q) + 4 * kUnit;
  const double eta = 2 * delta * E + rho + kUnit * S + 6 * kUnit * E;
  const double unit = 1 / dSize;
  const double common = placement.mCommonWidth + 10 * kUnit * oSize;
  const double perRow = eta + 6 * kUnit * OT + 1.02 * drift * (oSize + 2) * unit;
  const double widest = common + placement.mLargestRowSum * perRow;
  const double size = 1 + largestOf(n) + widest;
  // A NaN or an infinity anywhere in the ray ends up in n.
  if (!(sumOf(n) + widest < 1e30)) return Outlook::unknown;

  const double margin = common + 10 * kFloatUnit * size;
  const double origins[3] = {n.x, n.y, n.z};
  const double widths[3] = {placement.mRowSums.x * perRow, placement.mRowSums.y * perRow,
                            placement.mRowSums.z * perRow};
  const double along[3] = {d.x * unit, d.y * unit, d.z * unit};
  for (int i = 0; i < 3; ++i) {
    mRay.origin[i] = static_cast<float>(origins[i]);
    mRay.direction[i] = static_cast<float>(along[i]);
    const double step = std::copysign(std::max(std::fabs(along[i]), 0x1p-22), along[i]);
    const double outward = std::copysign(margin + widths[i], along[i]);
    mRay.inverse[i] = 1.0F / static_cast<float>(step);
    mRay.nearOrigin[i] = static_cast<float>(origins[i] + outward);
    mRay.farOrigin[i] = static_cast<float>(origins[i] - outward);
  }
  mRay.tolerance = static_cast<float>(1.001 * (6 * widest + 160 * kFloatUnit * size));
  const double M = kPerDeterminant * 32 * kUnit * S * E * E;
  mLimits = {1 + 1.01 * (kPerDeterminant * Q + 4 * kUnit), M, shift, dSize};
  // The least parameter is, but for its sign, the largest one of the ray in the other direction.
  mRay.first = -ParameterMap{0, M, -shift, dSize}.limit(0);
  mRay.last = mLimits.limit(kFarthest);
  return Outlook::descend;
}

bool intersectRay(const TriangleMesh& mesh, const RayPlacement& placement, const double matrix[16],
                  const double origin[3], const double direction[3], double* t, double* normalOut,
                  Instructions instructions) {
  RayFrame frame;
  const RayFrame::Outlook outlook = frame.prepare(placement, toVec3(origin), toVec3(direction));
  if (outlook == RayFrame::Outlook::noHit) return false;
  if (outlook == RayFrame::Outlook::unknown) return intersectRayPlain(mesh, matrix, origin, direction, t, normalOut);
  ExactSearch search{matrix, origin, direction, kFarthest, 0, {}, {}};
  descentFor(instructions)(mesh.hierarchy()->view(), frame.mRay, frame.mLimits, search);
  return report(search, t, normalOut);
}

bool intersectRay(const TriangleMesh& mesh, const double matrix[16], const double origin[3], const double direction[3],
                  double* t, double* normalOut) {
  return intersectRay(mesh, RayPlacement(mesh, matrix), matrix, origin, direction, t, normalOut);
}

bool intersectRayPlain(const TriangleMesh& mesh, const double matrix[16], const double origin[3],
                       const double direction[3], double* t, double* normalOut) {
  const std::span<const std::uint32_t> indices = mesh.indices();
  const std::span<const double> coordinates = mesh.vertexCoordinates();
  constexpr std::size_t kFewVertices = 32;
  const std::size_t count = coordinates.size() / 3;
  Vec3 few[kFewVertices];
  Buffer<Vec3> many;
  Vec3* world = few;
  if (count > kFewVertices) {
    many.resize(count);
    world = many.data();
  }
  for (std::size_t v = 0; v < count; ++v) world[v] = transformPoint(matrix, toVec3(coordinates.data() + 3 * v));
  ExactSearch search{matrix, origin, direction, kFarthest, 0, {}, {}};
  for (std::size_t i = 0; i + 2 < indices.size(); i += 3)
    testTriangle(
        world[indices[i]], world[indices[i + 1]], world[indices[i + 2]], toVec3(origin), toVec3(direction),
        static_cast<std::uint32_t>(i / 3), [] { return false; }, search);
  return report(search, t, normalOut);
}

}  // namespace util
