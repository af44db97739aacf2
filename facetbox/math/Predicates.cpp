#include <facetbox/math/Predicates.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include <boost/multiprecision/cpp_int.hpp>

// Error-free sums after Knuth, products after Dekker (A Floating-Point Technique for Extending the Available
// Precision, 1971), expansions after Shewchuk (see the header).

namespace util::detail {
namespace {

int signOf(double v) { return (v > 0) - (v < 0); }

/// A value as the unevaluated sum of its rounding and the rest.
struct Split {
  double high, low;
};

Split twoSum(double a, double b) {
  const double sum = a + b;
  const double bPart = sum - a;
  const double aPart = sum - bPart;
  return {sum, (a - aPart) + (b - bPart)};
}

Split halves(double a) {
  constexpr double kSplitter = 134217729;  // 2^27 + 1: halves of at most 26 bits
  const double shifted = kSplitter * a;
  const double high = shifted - (shifted - a);
  return {high, a - high};
}

Split twoProduct(double a, double b) {
  const double product = a * b;
  const Split u = halves(a), v = halves(b);
  const double rest = ((product - u.high * v.high) - u.low * v.high) - u.high * v.low;
  return {product, u.low * v.low - rest};
}

/// Sum of up to twelve doubles without rounding: components that do not overlap, by growing magnitude.
class Expansion {
 public:
  void add(double v) {
    for (std::size_t i = 0; i < mCount; ++i) {
      const Split sum = twoSum(v, mParts[i]);
      mParts[i] = sum.low;
      v = sum.high;
    }
    mParts[mCount++] = v;
  }
  void add(Split v) {
    add(v.low);
    add(v.high);
  }
  int sign() const {
    for (std::size_t i = mCount; i-- > 0;) {
      if (mParts[i] != 0) return signOf(mParts[i]);
    }
    return 0;
  }

 private:
  std::array<double, 12> mParts;
  std::size_t mCount = 0;
};

/// Exponents within which no product below over- or underflows, its low part included: a coordinate of 2^e is a
/// multiple of 2^(e - 52), so a product is a multiple of 2^(2 * -450 - 104).
constexpr int kMaxExponent = 450;

/// For coordinates that are 0 or lie within 2^-kMaxExponent and 2^(kMaxExponent + 1).
int orientationOrdinary(Vec2 a, Vec2 b, Vec2 c) {
  const Split acx = twoSum(a.x, -c.x), bcx = twoSum(b.x, -c.x);
  const Split acy = twoSum(a.y, -c.y), bcy = twoSum(b.y, -c.y);
  if (acx.low == 0 && bcx.low == 0 && acy.low == 0 && bcy.low == 0) {
    // The usual case, coordinates that were floats or stand on a grid. Rounding keeps order, so unequal heads decide.
    const Split left = twoProduct(acx.high, bcy.high), right = twoProduct(acy.high, bcx.high);
    return left.high != right.high ? signOf(left.high - right.high) : signOf(left.low - right.low);
  }
  Expansion det;
  det.add(twoProduct(a.x, b.y));
  det.add(twoProduct(-a.y, b.x));
  det.add(twoProduct(b.x, c.y));
  det.add(twoProduct(-b.y, c.x));
  det.add(twoProduct(c.x, a.y));
  det.add(twoProduct(-c.y, a.x));
  return det.sign();
}

/// For any finite coordinates, as integers in units of 2^unitExponent, which must divide them all.
int orientationInteger(Vec2 a, Vec2 b, Vec2 c, int unitExponent) {
  using boost::multiprecision::cpp_int;
  const auto integer = [unitExponent](double v) {
    if (v == 0) return cpp_int(0);
    int exponent = 0;
    const auto mantissa = static_cast<std::int64_t>(std::ldexp(std::frexp(v, &exponent), 53));
    const int shift = exponent - 53 - unitExponent;
    // A denormal's mantissa ends in as many zeros as its exponent is below the unit.
    return shift >= 0 ? cpp_int(cpp_int(mantissa) << shift) : cpp_int(mantissa / (std::int64_t{1} << -shift));
  };
  const cpp_int cx = integer(c.x), cy = integer(c.y);
  const cpp_int left = (integer(a.x) - cx) * (integer(b.y) - cy);
  const cpp_int right = (integer(a.y) - cy) * (integer(b.x) - cx);
  return left.compare(right) > 0 ? 1 : left.compare(right) < 0 ? -1 : 0;
}

}  // namespace

int orientationExact(Vec2 a, Vec2 b, Vec2 c) {
  if (!isFinite(a) || !isFinite(b) || !isFinite(c)) return 0;

  // A rounded difference has the sign of the true one, so the signs of both products are known; unless they agree,
  // that is the answer. It settles every axis-parallel case.
  const int leftSign = signOf(a.x - c.x) * signOf(b.y - c.y);
  const int rightSign = signOf(a.y - c.y) * signOf(b.x - c.x);
  if (leftSign != rightSign) return leftSign > rightSign ? 1 : -1;
  if (leftSign == 0) return 0;

  int low = std::numeric_limits<int>::max(), high = std::numeric_limits<int>::min();
  for (const double v : {a.x, a.y, b.x, b.y, c.x, c.y}) {
    if (v == 0) continue;
    low = std::min(low, std::ilogb(v));
    high = std::max(high, std::ilogb(v));
  }
  if (high <= kMaxExponent && low >= -kMaxExponent) return orientationOrdinary(a, b, c);
  if (high - low <= 2 * kMaxExponent) {
    // Scaling by a power of two is exact and keeps the sign.
    const int shift = kMaxExponent - high;
    const auto scaled = [shift](Vec2 p) { return Vec2{std::ldexp(p.x, shift), std::ldexp(p.y, shift)}; };
    return orientationOrdinary(scaled(a), scaled(b), scaled(c));
  }
  constexpr int kLowestBit = -1074;
  return orientationInteger(a, b, c, std::max(low - 52, kLowestBit));
}

bool segmentsTouchInBox(Vec2 p, Vec2 q, Vec2 r, Vec2 s) {
  if (!isFinite(p) || !isFinite(q) || !isFinite(r) || !isFinite(s)) return false;
  // Neither lies on one side of the other's line. Where all four are on one line, the boxes that meet decide.
  return orientation(p, q, r) * orientation(p, q, s) <= 0 && orientation(r, s, p) * orientation(r, s, q) <= 0;
}

}  // namespace util::detail

namespace util {

bool strictlyInside(std::span<const Vec2> polygon, Vec2 p) {
  if (polygon.size() < 3 || !isFinite(p)) return false;
  bool inside = false, finite = true;
  Vec2 a = polygon.back();
  for (const Vec2 b : polygon) {
    const Vec2 from = std::exchange(a, b);
    finite &= isFinite(b);
    if ((from.y > p.y && b.y > p.y) || (from.y < p.y && b.y < p.y) || (from.x < p.x && b.x < p.x)) continue;
    // Half open: an end at the height of p counts as below it.
    const bool spansHeight = (from.y > p.y) != (b.y > p.y);
    if (from.x > p.x && b.x > p.x) {
      inside ^= spansHeight;
      continue;
    }
    const int side = orientation(from, b, p);
    if (side == 0) return false;  // on the edge, since p is also within its box
    if (spansHeight) inside ^= (side > 0) == (b.y > from.y);
  }
  return inside && finite;
}

}  // namespace util
