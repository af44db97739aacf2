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
// of Q M p, and the value of a row at the box's center, and its reach are each right to 8 ulp of A S. So a function,
// the sum of two rows, differs between the vertex and the box by no more than kRounding A S.
constexpr double kUlp = std::numeric_limits<double>::epsilon();
constexpr double kRounding = 2 * (8 + 8 + 8) * kUlp;
constexpr double kRelativeMargin = 1e-13;
static_assert(kRelativeMargin > 4 * kRounding);
// Where w is above the absolute margin it is one that projects.
constexpr double kAbsoluteMargin = 1e-20;
static_assert(kAbsoluteMargin > 1e4 * kSmallestW);
// Beyond these, sums might overflow.
constexpr double kLargestMargin = 1e80;

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

// Where all six functions exceed the margin all over the box, so does w, their mean, and each vertex projects into the
// cube. Where one is below the negative margin, and w above the margin, each vertex projects beyond that plane. NaN
// fails every comparison: unsure.
ClipSide ClipPlanes::sideOf(const Vec3& center, const Vec3& half, double magnitude) const {
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
