#include <facetbox/viewVolume.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>
#include <utility>

#include <facetbox/math/Vec3.h>

namespace facetbox {

// Corners that enclose.
//
// A query takes the plane of a face from three corners, and the face itself as two triangles. A box is found when one
// of the triangles touches it, or when its inner sphere is inside all planes. So a box that holds a point of the volume
// V is certainly found if
//   (a) the fourth corner of each face is not outside the plane of the other three: then no part of the surface is, and
//       a box that the surface encloses without touching it is inside all planes; and
//   (b) V lies behind the plane of each of the twelve triangles: then the surface encloses all of V.
// Rounding to floats destroys both. Thin volumes suffer most: an error e of a near corner tilts a side plane by e over
// the near edge, which a far edge a thousand times as long multiplies by a thousand.
//
// First, edges of a near or far face that are shorter than kShortestEdge times the error of their corners are made that
// long, by moving the side planes outward there. Then let q = l_p p + l_a a + l_b b be the fourth corner of a face in
// terms of the three others, with parts whose sum is 1. After rounding, q is off their plane by at most E = e_q + |l_p|
// e_p + |l_a| e_a + |l_b| e_b, and each of the three off the plane of the others by E / |l|. With every corner moved
// outward by 4 E / |l|, l_q being 1, the face stays flat, as the parts of the neighbors are positive and l_p is
// negative; then q is moved back by 2 E. So it stays behind the plane of the others by 2 E - E, for (a); and the plane
// of any three of them is beyond the fourth of V by at least (4 - 2 - 1) E / |l|, for (b). A corner goes where its
// three planes meet. All other rounding is smaller than this, except where planes meet at small angles. So (a) and (b)
// are verified with the floats that are returned; where they fail, the construction is repeated with twice the errors.

namespace {

using util::Vec3;
using Corners = std::array<Vec3, 8>;
using Real = long double;  // the corners of thin volumes far out are differences of large numbers

/// A corner, and a bound of its error.
struct Solved {
  Vec3 at;
  double error;
};

struct Face {
  std::size_t p, a, b, q;  // three corners that the plane is taken from, its normal outward, and the fourth
  std::array<std::array<std::size_t, 3>, 2> triangles;  // outward
};

constexpr std::array<Face, 6> kFaces{{{0, 1, 3, 2, {{{0, 1, 2}, {0, 2, 3}}}},
                                      {5, 4, 6, 7, {{{4, 6, 5}, {4, 7, 6}}}},
                                      {0, 3, 4, 7, {{{0, 3, 7}, {0, 7, 4}}}},
                                      {1, 5, 2, 6, {{{1, 6, 2}, {1, 5, 6}}}},
                                      {6, 7, 2, 3, {{{2, 7, 3}, {2, 6, 7}}}},
                                      {1, 0, 5, 4, {{{0, 4, 1}, {1, 4, 5}}}}}};
constexpr std::size_t kFacesOfCorner[8][3] = {{0, 2, 5}, {0, 3, 5}, {0, 3, 4}, {0, 2, 4},
                                              {1, 2, 5}, {1, 3, 5}, {1, 3, 4}, {1, 2, 4}};

constexpr double kShortestEdge = 512;  // of the near and far face, in errors of its corners
// How far the corners of a face move outward, and the fourth one back, in E: (a) and (b) keep what is asserted.
constexpr double kOutward = 4, kBack = 2;
static_assert(kBack - 1 > 0 && kOutward - kBack - 1 > 0);

// Half an ulp in each of three coordinates, in floats, in denormal floats and in doubles.
constexpr double kSqrt3 = std::numbers::sqrt3;
constexpr double kFloatRounding = 1.04e-7, kDenormalRounding = 1e-44, kDoubleRounding = 4e-16;
static_assert(kFloatRounding > kSqrt3 * 0x1p-24);
static_assert(kDenormalRounding > kSqrt3 * std::numeric_limits<float>::denorm_min() / 2);
static_assert(kDoubleRounding > kSqrt3 * 0x1p-53);
// Of a dot product with a cross product in doubles, relative to the product of the three lengths: some thirty
// roundings.
constexpr double kTripleProductRounding = 1e-14;
static_assert(kTripleProductRounding > 32 * std::numeric_limits<double>::epsilon());
// Of a sum of products of four matrix elements, relative to the sum of its terms' magnitudes: some thirty roundings.
constexpr Real kSumRounding = 32 * std::numeric_limits<Real>::epsilon();

double magnitudeOf(const Vec3& v) { return std::max({std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)}); }
/// The distance by which rounding to floats may move a point.
double roundingOf(const Vec3& v) { return kFloatRounding * magnitudeOf(v) + kDenormalRounding; }
Vec3 outwardOf(const Corners& c, const Face& face) { return cross(c[face.a] - c[face.p], c[face.b] - c[face.p]); }

/// A sum, and the sum of the absolute values of its terms.
struct Sum {
  Real value = 0, magnitude = 0;
};

/// Determinant of m without row `row` and column `column`.
Sum minorOf(const Real m[16], int row, int column) {
  Real v[9];
  int n = 0;
  for (int c = 0; c < 4; ++c)
    for (int r = 0; r < 4; ++r)
      if (c != column && r != row) v[n++] = m[4 * c + r];
  const Real terms[6] = {v[0] * v[4] * v[8], -v[0] * v[5] * v[7], -v[3] * v[1] * v[8],
                         v[3] * v[2] * v[7], v[6] * v[1] * v[5],  -v[6] * v[2] * v[4]};
  Sum sum;
  for (const Real term : terms) {
    sum.value += term;
    sum.magnitude += std::fabs(term);
  }
  return sum;
}

/// The adjugate of a matrix, row by row, and its determinant.
struct Inverse {
  Sum adjugate[16];
  Real determinant = 0;

  explicit Inverse(const float matrix[16]) {
    Real m[16];
    std::copy_n(matrix, 16, m);
    for (int row = 0; row < 4; ++row)
      for (int column = 0; column < 4; ++column) {
        Sum& sum = adjugate[4 * row + column];
        sum = minorOf(m, row, column);
        if ((row + column) % 2 != 0) sum.value = -sum.value;
      }
    for (int column = 0; column < 4; ++column) determinant += m[4 * column] * adjugate[column].value;
  }
};

/// Maps a corner of the cube back into the world.
/// @return false where it is not in front of the eye
bool unproject(const Inverse& inverse, const int cubeCorner[4], Solved& corner) {
  Sum h[4];
  for (int row = 0; row < 4; ++row)
    for (int column = 0; column < 4; ++column) {
      const Sum& element = inverse.adjugate[4 * column + row];
      h[row].value += cubeCorner[column] * element.value;
      h[row].magnitude += element.magnitude;
    }
  // The matrix gives the corner a w of determinant / h[3], which is above 0 only in front of the eye.
  const Real w = std::fabs(h[3].value) - kSumRounding * h[3].magnitude;
  if (!(w > 0 && (h[3].value > 0) == (inverse.determinant > 0))) return false;
  const auto of = [&](int row) { return static_cast<double>(h[row].value / h[3].value); };
  corner.at = {of(0), of(1), of(2)};
  const Real off = kSumRounding *
                   (h[0].magnitude + h[1].magnitude + h[2].magnitude + 2 * magnitudeOf(corner.at) * h[3].magnitude) / w;
  corner.error = static_cast<double>(off) + kDoubleRounding * magnitudeOf(corner.at);
  return true;
}

/// The corners of the volume, counter-clockwise seen from outside.
/// @return false where there are no such corners
bool solve(const float matrix[16], std::array<Solved, 8>& corners) {
  constexpr int kCube[8][4] = {{-1, -1, -1, 1}, {1, -1, -1, 1}, {1, 1, -1, 1}, {-1, 1, -1, 1},
                               {-1, -1, 1, 1},  {1, -1, 1, 1},  {1, 1, 1, 1},  {-1, 1, 1, 1}};
  const Inverse inverse(matrix);
  if (!(std::fabs(inverse.determinant) > 0)) return false;
  for (std::size_t k = 0; k < 8; ++k)
    if (!unproject(inverse, kCube[k], corners[k])) return false;
  const Vec3 outward = cross(corners[1].at - corners[0].at, corners[3].at - corners[0].at);
  if (dot(outward, corners[4].at - corners[0].at) > 0) {
    std::swap(corners[1], corners[3]);
    std::swap(corners[5], corners[7]);
  }
  return true;
}

/// The distances by which each corner's three planes are moved outward there, in the order of kFacesOfCorner.
using Moves = std::array<std::array<double, 3>, 8>;

double& moveOf(Moves& moves, std::size_t corner, std::size_t face) {
  std::size_t i = 0;
  while (kFacesOfCorner[corner][i] != face) ++i;
  return moves[corner][i];
}

/// The corners after the planes of the faces have moved; each is where its three planes meet.
Corners moved(const Corners& corners, const Moves& moves) {
  std::array<Vec3, 6> normals;
  for (std::size_t face = 0; face < 6; ++face) {
    const Vec3 normal = outwardOf(corners, kFaces[face]);
    normals[face] = normal / length(normal);
  }
  Corners result;
  for (std::size_t k = 0; k < 8; ++k) {
    const Vec3 &l = normals[kFacesOfCorner[k][0]], &m = normals[kFacesOfCorner[k][1]],
               &n = normals[kFacesOfCorner[k][2]];
    const Vec3 sum = moves[k][0] * cross(m, n) + moves[k][1] * cross(n, l) + moves[k][2] * cross(l, m);
    result[k] = corners[k] + sum / dot(l, cross(m, n));
  }
  return result;
}

/// Makes the edges of the near and the far face long enough for rounding.
Corners widened(const Corners& corners, const std::array<double, 8>& errors) {
  // Two edges that run between two sides, and these sides.
  constexpr std::size_t kAcross[4][6] = {
      {0, 1, 3, 2, 2, 3}, {0, 3, 1, 2, 5, 4}, {4, 5, 7, 6, 2, 3}, {4, 7, 5, 6, 5, 4}};
  Moves moves{};
  for (const auto& [from, to, otherFrom, otherTo, low, high] : kAcross) {
    const double shortest =
        std::min(length(corners[to] - corners[from]), length(corners[otherTo] - corners[otherFrom]));
    const double error = std::max({errors[from], errors[to], errors[otherFrom], errors[otherTo]});
    const double missing = std::max(0.0, kShortestEdge * error - shortest) / 2;
    for (const std::size_t k : {from, otherFrom}) moveOf(moves, k, low) = missing;
    for (const std::size_t k : {to, otherTo}) moveOf(moves, k, high) = missing;
  }
  return moved(corners, moves);
}

/// Moves the planes of the faces outward, so that (a) and (b) survive rounding.
Corners movedOutward(const Corners& corners, const std::array<double, 8>& errors) {
  Moves moves{};
  for (std::size_t i = 0; i < 6; ++i) {
    const auto& [p, a, b, q, triangles] = kFaces[i];
    const Vec3 toA = corners[a] - corners[p], toB = corners[b] - corners[p], toQ = corners[q] - corners[p];
    const Vec3 normal = cross(toA, toB);
    const double s = dot(cross(toQ, toB), normal) / lengthSq(normal),
                 t = dot(cross(toA, toQ), normal) / lengthSq(normal);
    const double ofP = std::fabs(1 - s - t), ofA = std::fabs(s), ofB = std::fabs(t);
    const double off = errors[q] + ofP * errors[p] + ofA * errors[a] + ofB * errors[b];
    moveOf(moves, p, i) = kOutward * off / ofP;
    moveOf(moves, a, i) = kOutward * off / ofA;
    moveOf(moves, b, i) = kOutward * off / ofB;
    moveOf(moves, q, i) = (kOutward - kBack) * off;
  }
  return moved(corners, moves);
}

/// Whether (a) and (b) hold.
bool encloses(const Corners& c, const std::array<Solved, 8>& volume) {
  for (const Face& face : kFaces)
    if (!(dot(outwardOf(c, face), c[face.q] - c[face.p]) <= 0)) return false;
  for (const Face& face : kFaces)
    for (const auto& t : face.triangles) {
      const Vec3 first = c[t[1]] - c[t[0]], second = c[t[2]] - c[t[0]], outward = cross(first, second);
      const double size = length(outward), doubt = kTripleProductRounding * length(first) * length(second);
      for (const Solved& corner : volume) {
        const Vec3 way = corner.at - c[t[0]];
        if (!(dot(outward, way) < -(size * corner.error + doubt * length(way)))) return false;
      }
    }
  return true;
}

/// The corners moved outward for errors that are `factor` times as large as estimated.
Corners enclosing(const std::array<Solved, 8>& volume, double factor) {
  Corners at;
  std::array<double, 8> errors;
  const auto estimate = [&] {
    for (std::size_t k = 0; k < 8; ++k) errors[k] = factor * (roundingOf(at[k]) + volume[k].error);
  };
  for (std::size_t k = 0; k < 8; ++k) at[k] = volume[k].at;
  estimate();
  at = widened(at, errors);
  estimate();
  return movedOutward(at, errors);
}

std::array<float, 24> floatsOf(const Corners& corners) {
  std::array<float, 24> floats;
  for (std::size_t k = 0; k < 8; ++k) {
    floats[3 * k] = static_cast<float>(corners[k].x);
    floats[3 * k + 1] = static_cast<float>(corners[k].y);
    floats[3 * k + 2] = static_cast<float>(corners[k].z);
  }
  return floats;
}

Corners cornersOf(const std::array<float, 24>& floats) {
  Corners corners;
  for (std::size_t k = 0; k < 8; ++k) corners[k] = {floats[3 * k], floats[3 * k + 1], floats[3 * k + 2]};
  return corners;
}

}  // namespace

bool viewVolumeCorners(const float matrix[16], float corners[24]) noexcept {
  std::array<Solved, 8> volume;
  if (!solve(matrix, volume)) return false;
  constexpr int kTries = 20;
  double factor = 1;
  for (int i = 0; i < kTries; ++i, factor *= 2) {
    const std::array<float, 24> floats = floatsOf(enclosing(volume, factor));
    if (!std::ranges::all_of(floats, [](float x) { return std::isfinite(x); })) return false;
    if (!encloses(cornersOf(floats), volume)) continue;
    std::ranges::copy(floats, corners);
    return true;
  }
  return false;
}

}  // namespace facetbox
