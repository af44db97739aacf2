#include <facetbox/viewVolume.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

#include <facetbox/util/math/Vec3.h>

namespace facetbox {

namespace {

using util::Vec3;

/// Determinant of the 3x3 matrix that is left of m without row `row` and column `column`.
double minorOf(const double m[16], int row, int column) {
  double v[9];
  int n = 0;
  for (int c = 0; c < 4; ++c)
    for (int r = 0; r < 4; ++r)
      if (c != column && r != row) v[n++] = m[4 * c + r];
  return v[0] * (v[4] * v[8] - v[5] * v[7]) - v[3] * (v[1] * v[8] - v[2] * v[7]) + v[6] * (v[1] * v[5] - v[2] * v[4]);
}

}  // namespace

bool viewVolumeCorners(const float matrix[16], float corners[24]) noexcept {
  double m[16], adjugate[16];
  std::copy_n(matrix, 16, m);
  for (int row = 0; row < 4; ++row)
    for (int column = 0; column < 4; ++column)
      adjugate[4 * row + column] = ((row + column) % 2 == 0 ? 1.0 : -1.0) * minorOf(m, row, column);
  double determinant = 0;
  for (int column = 0; column < 4; ++column) determinant += m[4 * column] * adjugate[column];
  if (!(std::fabs(determinant) > 0)) return false;

  constexpr double kCube[8][3] = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1},
                                  {-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1}};
  std::array<Vec3, 8> world;
  for (std::size_t k = 0; k < 8; ++k) {
    double h[4];
    for (int row = 0; row < 4; ++row)
      h[row] = adjugate[row] * kCube[k][0] + adjugate[4 + row] * kCube[k][1] + adjugate[8 + row] * kCube[k][2] +
               adjugate[12 + row];
    // The matrix gives the corner a w of determinant / h[3]: only before the eye it is above 0.
    if (!(h[3] != 0 && (h[3] > 0) == (determinant > 0))) return false;
    world[k] = Vec3{h[0], h[1], h[2]} / h[3];
  }
  const Vec3 outward = cross(world[1] - world[0], world[3] - world[0]);
  if (dot(outward, world[4] - world[0]) > 0) {
    std::swap(world[1], world[3]);
    std::swap(world[5], world[7]);
  }

  std::array<float, 24> narrowed;
  for (std::size_t k = 0; k < 8; ++k) {
    narrowed[3 * k] = static_cast<float>(world[k].x);
    narrowed[3 * k + 1] = static_cast<float>(world[k].y);
    narrowed[3 * k + 2] = static_cast<float>(world[k].z);
  }
  if (!std::ranges::all_of(narrowed, [](float x) { return std::isfinite(x); })) return false;
  std::ranges::copy(narrowed, corners);
  return true;
}

}  // namespace facetbox
