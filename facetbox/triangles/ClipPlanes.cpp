#include <facetbox/triangles/ClipPlanes.h>

#include <cmath>
#include <cstddef>
#include <limits>

#include <facetbox/triangles/ClipProjection.h>

namespace util {

namespace {

// For a row x of the view projection Q and its last row w, the vertex is inside two planes of the cube where the linear
// functions w - x and w + x are positive. Over a box, each is its value at the center, give or take a reach.
//
// The exact test, however, projects a vertex p of an object with the matrix M by the rounded product Q M. Let S be the
// largest coordinate of |M| |p| over all vertices, or 1, and A the largest sum of magnitudes of a row of Q. Then a row
// of Q M p, and the value of a row at the box's center, and its reach are each right to 8 ulp of A S; the box is right
// to an ulp of S. So a function, the sum of two rows, differs between the vertex and the box by no more than
// kRounding A S.
constexpr double kUlp = std::numeric_limits<double>::epsilon();
constexpr double kRounding = 2 * (8 + 8 + 8) * kUlp;
static_assert(ClipPlanes::kRelativeMargin > 4 * kRounding);
// Where w is above the absolute margin it is one that projects.
static_assert(ClipPlanes::kAbsoluteMargin > 1e4 * kSmallestW);

}  // namespace

ClipPlanes::ClipPlanes(const double viewProjection[16]) {
  const double* const q = viewProjection;
  for (std::size_t column = 0; column < 4; ++column)
    for (std::size_t row = 0; row < 3; ++row) {
      const double x = q[4 * column + row], w = q[4 * column + 3];
      mPlanes[row].coefficients[column] = Double2{w - x, w + x};
    }
  for (PlanePair& planes : mPlanes)
    for (std::size_t column = 0; column < 3; ++column)
      for (int k = 0; k < 2; ++k) planes.magnitudes[column][k] = std::fabs(planes.coefficients[column][k]);
  mLargestRowSum = 0;
  for (int row = 0; row < 4; ++row) {
    const double sum = std::fabs(q[row]) + std::fabs(q[4 + row]) + std::fabs(q[8 + row]) + std::fabs(q[12 + row]);
    // Once NaN or infinite, it stays so.
    mLargestRowSum = sum <= mLargestRowSum ? mLargestRowSum : sum + 0 * mLargestRowSum;
  }
}

/// The smallest w in a box.
double ClipPlanes::lowestW(const Vec3& center, const Vec3& half) const {
  // The sum of both functions is 2 w.
  const auto w = [this](std::size_t column) {
    return (mPlanes[0].coefficients[column][0] + mPlanes[0].coefficients[column][1]) / 2;
  };
  return w(0) * center.x + w(1) * center.y + w(2) * center.z + w(3) -
         (std::fabs(w(0)) * half.x + std::fabs(w(1)) * half.y + std::fabs(w(2)) * half.z);
}

}  // namespace util
