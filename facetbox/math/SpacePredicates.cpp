#include <facetbox/math/SpacePredicates.h>

#include <facetbox/math/ErrorFree.h>
#include <facetbox/math/Predicates.h>

namespace util {
namespace detail {
namespace {

/// Exponents within which no product of three differences below over- or underflows, its low parts included: a
/// difference of coordinates of at least 2^e is a multiple of 2^(e - 52), so a product is one of 2^(3 * (-300 - 52)).
constexpr int kMaxExponent = 300;

/// Differences to the fourth point.
struct Differences {
  Split ax, ay, az, bx, by, bz, cx, cy, cz;

  bool areExact() const {
    for (const Split& v : {ax, ay, az, bx, by, bz, cx, cy, cz})
      if (v.low != 0) return false;
    return true;
  }
};

/// For differences that are doubles: the usual case, coordinates that were floats or stand on a grid.
int signExactly(const Differences& d) {
  const auto minor = [](const Split& px, const Split& py, const Split& qx, const Split& qy) {
    Expansion<4> sum;
    sum.add(twoProduct(px.high, qy.high));
    sum.add(twoProduct(-qx.high, py.high));
    return sum;
  };
  Expansion<24> det;
  det.addScaled(minor(d.bx, d.by, d.cx, d.cy), d.az.high);
  det.addScaled(minor(d.cx, d.cy, d.ax, d.ay), d.bz.high);
  det.addScaled(minor(d.ax, d.ay, d.bx, d.by), d.cz.high);
  return det.sign();
}

// Twice the precision, after Dekker: each operation is off by at most 8 * 2^-106 of its operands' or factors'
// magnitude.

Split sumOf(const Split& a, const Split& b) {
  const Split high = twoSum(a.high, b.high), low = twoSum(a.low, b.low);
  const Split sum = twoSum(high.high, high.low + low.high);
  return twoSum(sum.high, sum.low + low.low);
}

Split productOf(const Split& a, const Split& b) {
  const Split product = twoProduct(a.high, b.high);
  return twoSum(product.high, product.low + (a.high * b.low + a.low * b.high));
}

/// The sign in twice the precision, or 0 where that does not tell.
int signInPairs(const Differences& d) {
  double permanent = 0;
  const auto term = [&](const Split& px, const Split& py, const Split& qx, const Split& qy, const Split& z) {
    const Split left = productOf(px, qy), right = productOf(qx, py);
    permanent += (std::fabs(left.high) + std::fabs(right.high)) * std::fabs(z.high);
    return productOf(sumOf(left, {-right.high, -right.low}), z);
  };
  const Split det = sumOf(sumOf(term(d.bx, d.by, d.cx, d.cy, d.az), term(d.cx, d.cy, d.ax, d.ay, d.bz)),
                          term(d.ax, d.ay, d.bx, d.by, d.cz));
  constexpr double kBound = 0x1p-98;  // five operations on the way of each product, of 2^-103 each, and room
  return std::fabs(det.high) > kBound * permanent ? signOf(det.high) : 0;
}

/// For any finite coordinates, as integers in units of 2^unitExponent, which must divide them all.
int signInIntegers(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d, int unitExponent) {
  using boost::multiprecision::cpp_int;
  const auto difference = [unitExponent](double v, double w) {
    return cpp_int(toInteger(v, unitExponent) - toInteger(w, unitExponent));
  };
  const cpp_int ax = difference(a.x, d.x), ay = difference(a.y, d.y), az = difference(a.z, d.z);
  const cpp_int bx = difference(b.x, d.x), by = difference(b.y, d.y), bz = difference(b.z, d.z);
  const cpp_int cx = difference(c.x, d.x), cy = difference(c.y, d.y), cz = difference(c.z, d.z);
  const cpp_int det = az * (bx * cy - cx * by) + bz * (cx * ay - ax * cy) + cz * (ax * by - bx * ay);
  return det.sign();
}

Differences differencesOf(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d) {
  return {twoSum(a.x, -d.x), twoSum(a.y, -d.y), twoSum(a.z, -d.z), twoSum(b.x, -d.x), twoSum(b.y, -d.y),
          twoSum(b.z, -d.z), twoSum(c.x, -d.x), twoSum(c.y, -d.y), twoSum(c.z, -d.z)};
}

}  // namespace

int orientationExact(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d) {
  if (!isFinite(a) || !isFinite(b) || !isFinite(c) || !isFinite(d)) return 0;
  // Planes along an axis, and points that are given twice: no arithmetic can be more certain.
  if ((a.x == d.x && b.x == d.x && c.x == d.x) || (a.y == d.y && b.y == d.y && c.y == d.y) ||
      (a.z == d.z && b.z == d.z && c.z == d.z) || a == b || a == c || a == d || b == c || b == d || c == d)
    return 0;

  ExponentRange range;
  for (const Vec3* p : {&a, &b, &c, &d})
    for (const double v : {p->x, p->y, p->z}) range.add(v);
  if (range.high - range.low <= 2 * kMaxExponent) {
    // Scaling by a power of two is exact and keeps the sign.
    const int shift = range.high <= kMaxExponent && range.low >= -kMaxExponent ? 0 : kMaxExponent - range.high;
    const auto scaled = [shift](const Vec3& p) {
      return shift == 0 ? p : Vec3{std::ldexp(p.x, shift), std::ldexp(p.y, shift), std::ldexp(p.z, shift)};
    };
    const Differences differences = differencesOf(scaled(a), scaled(b), scaled(c), scaled(d));
    if (differences.areExact()) return signExactly(differences);
    if (const int sign = signInPairs(differences); sign != 0) return sign;
  }
  return signInIntegers(a, b, c, d, range.unit());
}

}  // namespace detail

bool areCollinear(const Vec3& a, const Vec3& b, const Vec3& c) {
  if (!isFinite(a) || !isFinite(b) || !isFinite(c)) return false;
  for (int axis = 0; axis < 3; ++axis)
    if (orientation(project(a, axis), project(b, axis), project(c, axis)) != 0) return false;
  return true;
}

int projectionAxis(const Vec3& a, const Vec3& b, const Vec3& c) {
  const auto hasArea = [&](int axis) { return orientation(project(a, axis), project(b, axis), project(c, axis)) != 0; };
  const int likely = dominantAxis(cross(b - a, c - a));
  if (hasArea(likely)) return likely;
  int axis = 0;
  while (axis < 3 && !hasArea(axis)) ++axis;
  return axis;
}

}  // namespace util
