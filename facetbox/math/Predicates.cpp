#include <facetbox/math/Predicates.h>

#include <utility>

#include <facetbox/math/ErrorFree.h>

namespace util::detail {
namespace {

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
  Expansion<12> det;
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
  const auto integer = [unitExponent](double v) { return toInteger(v, unitExponent); };
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

  ExponentRange range;
  for (const double v : {a.x, a.y, b.x, b.y, c.x, c.y}) range.add(v);
  if (range.high <= kMaxExponent && range.low >= -kMaxExponent) return orientationOrdinary(a, b, c);
  if (range.high - range.low <= 2 * kMaxExponent) {
    // Scaling by a power of two is exact and keeps the sign.
    const int shift = kMaxExponent - range.high;
    const auto scaled = [shift](Vec2 p) { return Vec2{std::ldexp(p.x, shift), std::ldexp(p.y, shift)}; };
    return orientationOrdinary(scaled(a), scaled(b), scaled(c));
  }
  return orientationInteger(a, b, c, range.unit());
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
