#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include <boost/multiprecision/cpp_int.hpp>

/// What exact predicates are made of; for their sources only. Error-free sums after Knuth, products after Dekker (A
/// Floating-Point Technique for Extending the Available Precision, 1971), expansions after Shewchuk (Adaptive Precision
/// Floating-Point Arithmetic and Fast Robust Geometric Predicates, 1997).

namespace util::detail {

inline int signOf(double v) { return (v > 0) - (v < 0); }

/// A value as the unevaluated sum of its rounding and the rest.
struct Split {
  double high, low;
};

inline Split twoSum(double a, double b) {
  const double sum = a + b;
  const double bPart = sum - a;
  const double aPart = sum - bPart;
  return {sum, (a - aPart) + (b - bPart)};
}

inline Split halves(double a) {
  constexpr double kSplitter = 134217729;  // 2^27 + 1: halves of at most 26 bits
  const double shifted = kSplitter * a;
  const double high = shifted - (shifted - a);
  return {high, a - high};
}

inline Split twoProduct(double a, double b) {
  const double product = a * b;
  const Split u = halves(a), v = halves(b);
  const double rest = ((product - u.high * v.high) - u.low * v.high) - u.high * v.low;
  return {product, u.low * v.low - rest};
}

/// Sum of up to kMost doubles without rounding: components that do not overlap, by growing magnitude.
template <std::size_t kMost>
class Expansion {
 public:
  void add(double v) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < mCount; ++i) {
      const Split sum = twoSum(v, mParts[i]);
      if (sum.low != 0) mParts[kept++] = sum.low;
      v = sum.high;
    }
    if (v != 0) mParts[kept++] = v;
    mCount = kept;
  }
  void add(Split v) {
    add(v.low);
    add(v.high);
  }
  /// Adds a product without rounding.
  template <std::size_t kOther>
  void addScaled(const Expansion<kOther>& terms, double factor) {
    for (const double term : terms) add(twoProduct(term, factor));
  }
  int sign() const { return mCount == 0 ? 0 : signOf(mParts[mCount - 1]); }

  const double* begin() const { return mParts.data(); }
  const double* end() const { return mParts.data() + mCount; }

 private:
  std::array<double, kMost> mParts;
  std::size_t mCount = 0;
};

/// The smallest and the largest binary exponent of some numbers other than zero.
struct ExponentRange {
  int low = std::numeric_limits<int>::max(), high = std::numeric_limits<int>::min();

  void add(double v) {
    if (v == 0) return;
    low = std::min(low, std::ilogb(v));
    high = std::max(high, std::ilogb(v));
  }
  /// The exponent of a unit that divides all numbers of the range.
  int unit() const {
    constexpr int kLowestBit = -1074;
    return std::max(low - 52, kLowestBit);
  }
};

/// A finite number in units of 2^unitExponent, which must divide it.
inline boost::multiprecision::cpp_int toInteger(double v, int unitExponent) {
  using boost::multiprecision::cpp_int;
  if (v == 0) return 0;
  int exponent = 0;
  const auto mantissa = static_cast<std::int64_t>(std::ldexp(std::frexp(v, &exponent), 53));
  const int shift = exponent - 53 - unitExponent;
  // A denormal's mantissa ends in as many zeros as its exponent is below the unit.
  return shift >= 0 ? cpp_int(cpp_int(mantissa) << shift) : cpp_int(mantissa / (std::int64_t{1} << -shift));
}

}  // namespace util::detail
