#include <facetbox/scene/SurfaceTest.h>

#include <facetbox/math/ErrorFree.h>

namespace util {

double signedDifference(double a, double d, double b, double c) noexcept {
  const double left = a * d, right = b * c;
  if (left != right || left == 0) return left - right;
  return detail::twoProduct(a, d).low - detail::twoProduct(b, c).low;
}

}  // namespace util
