#include <facetbox/math/Predicates.h>

#include <tests/support/ExactNumbers.h>
#include <tests/support/Meshes.h>

namespace util {
namespace {

using boost::multiprecision::cpp_int;

using support::exact;
using support::kInfinity;
using support::kNaN;
using support::nudged;
using support::pick;
using support::real;

int exactOrientation(Vec2 a, Vec2 b, Vec2 c) {
  const cpp_int cx = exact(c.x), cy = exact(c.y);
  const cpp_int left = (exact(a.x) - cx) * (exact(b.y) - cy), right = (exact(a.y) - cy) * (exact(b.x) - cx);
  return left.compare(right) > 0 ? 1 : left.compare(right) < 0 ? -1 : 0;
}

Vec2 gridPoint(std::mt19937& random, int size) {
  return {1.0 * pick(random, -size, size), 1.0 * pick(random, -size, size)};
}

void expectExact(Vec2 a, Vec2 b, Vec2 c) {
  ASSERT_EQ(orientation(a, b, c), exactOrientation(a, b, c))
      << std::hexfloat << a.x << ' ' << a.y << ", " << b.x << ' ' << b.y << ", " << c.x << ' ' << c.y;
}

TEST(Orientation, agreesWithIntegersOnNearlyCollinearPoints) {
  std::mt19937 random(1);
  constexpr std::array kExponents{0, 0, -480, -520, -700, -1000, 480, 505, 900};
  for (int i = 0; i < 60000; ++i) {
    // c is rounded onto the line ab, then all are moved by a few units in the last place.
    const int exponent = kExponents[i % kExponents.size()];
    const double scale = std::ldexp(1, exponent + pick(random, -40, 40));
    Vec2 a{real(random, -1, 1) * scale, real(random, -1, 1) * scale};
    Vec2 b{real(random, -1, 1) * scale, real(random, -1, 1) * scale};
    const double t = real(random, -2, 2);
    Vec2 c{a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t};
    for (double* v : {&a.x, &b.y, &c.x, &c.y}) *v = nudged(*v, pick(random, -2, 2));
    expectExact(a, b, c);
    if (HasFatalFailure()) return;
  }
}

TEST(Orientation, agreesWithIntegersAtEveryMagnitude) {
  std::mt19937 random(2);
  for (int i = 0; i < 30000; ++i) {
    std::array<double, 6> v{};  // any finite bit pattern: all magnitudes alike, some of them equal
    for (double& value : v) value = pick(random, 0, 2) == 0 ? v[0] : support::anyFinite(random);
    expectExact({v[0], v[1]}, {v[2], v[3]}, {v[4], v[5]});
    if (HasFatalFailure()) return;
  }
}

// Twins in integers: parameters on both segments instead of signs, a slanted ray that meets no corner.

std::int64_t crossOf(Vec2 a, Vec2 b) {
  return std::int64_t(a.x) * std::int64_t(b.y) - std::int64_t(a.y) * std::int64_t(b.x);
}
std::int64_t dotOf(Vec2 a, Vec2 b) {
  return std::int64_t(a.x) * std::int64_t(b.x) + std::int64_t(a.y) * std::int64_t(b.y);
}
Vec2 minus(Vec2 a, Vec2 b) { return {a.x - b.x, a.y - b.y}; }

bool isOnSegment(Vec2 p, Vec2 a, Vec2 b) {
  const Vec2 along = minus(b, a), to = minus(p, a);
  return crossOf(along, to) == 0 && dotOf(along, to) >= 0 && dotOf(along, to) <= dotOf(along, along) &&
         (along != Vec2{} || to == Vec2{});
}

bool isFractionWithin01(std::int64_t numerator, std::int64_t denominator) {
  return denominator > 0 ? numerator >= 0 && numerator <= denominator : numerator <= 0 && numerator >= denominator;
}

bool twinSegmentsTouch(Vec2 p, Vec2 q, Vec2 r, Vec2 s) {
  const Vec2 d = minus(q, p), e = minus(s, r), offset = minus(r, p);
  const std::int64_t denominator = crossOf(d, e);
  if (denominator != 0)
    return isFractionWithin01(crossOf(offset, e), denominator) && isFractionWithin01(crossOf(offset, d), denominator);
  return isOnSegment(p, r, s) || isOnSegment(q, r, s) || isOnSegment(r, p, q) || isOnSegment(s, p, q);
}

bool twinStrictlyInside(const std::vector<Vec2>& polygon, Vec2 p) {
  const Vec2 far{p.x + 1000003, p.y + 1};  // passes no other point of a small grid
  bool inside = false;
  for (std::size_t i = 0; i < polygon.size(); ++i) {
    const Vec2 a = polygon[i], b = polygon[(i + 1) % polygon.size()];
    if (isOnSegment(p, a, b)) return false;
    inside ^= twinSegmentsTouch(a, b, p, far);
  }
  return inside && polygon.size() >= 3;
}

TEST(SegmentsTouch, agreesWithIntegersOnASmallGrid) {
  std::mt19937 random(3);
  int touching = 0;
  for (int i = 0; i < 100000; ++i) {
    const int size = pick(random, 1, 6);
    const Vec2 p = gridPoint(random, size), q = gridPoint(random, size);
    const Vec2 r = gridPoint(random, size), s = gridPoint(random, size);
    const bool expected = twinSegmentsTouch(p, q, r, s);
    touching += expected;
    ASSERT_EQ(segmentsTouch(p, q, r, s), expected)
        << p.x << ' ' << p.y << ", " << q.x << ' ' << q.y << ", " << r.x << ' ' << r.y << ", " << s.x << ' ' << s.y;
    ASSERT_EQ(segmentsTouch(s, r, q, p), expected);
  }
  EXPECT_GT(touching, 20000);
  EXPECT_LT(touching, 80000);
}

TEST(StrictlyInside, agreesWithASlantedRayOnASmallGrid) {
  std::mt19937 random(4);
  int inside = 0;
  for (int i = 0; i < 30000; ++i) {
    const int size = pick(random, 1, 5);
    std::vector<Vec2> polygon(static_cast<std::size_t>(pick(random, 0, 12)));
    for (Vec2& corner : polygon) corner = gridPoint(random, size);
    for (int k = 0; k < 4; ++k) {
      const Vec2 p = gridPoint(random, size);
      const bool expected = twinStrictlyInside(polygon, p);
      inside += expected;
      ASSERT_EQ(strictlyInside(polygon, p), expected) << "case " << i << " at " << p.x << ' ' << p.y;
    }
  }
  EXPECT_GT(inside, 5000);
}

TEST(Predicates, areZeroOrFalseForNonFiniteInput) {
  const std::vector<Vec2> square{{0, 0}, {2, 0}, {2, 2}, {0, 2}};
  for (const double bad : {kNaN, kInfinity, -kInfinity}) {
    EXPECT_EQ(orientation({bad, 0}, {1, 0}, {0, 1}), 0);
    EXPECT_EQ(orientation({0, 0}, {1, bad}, {0, 1}), 0);
    EXPECT_FALSE(segmentsTouch({bad, 0}, {1, 0}, {0, 0}, {1, 0}));
    EXPECT_FALSE(segmentsTouch({0, bad}, {0, bad}, {0, bad}, {0, bad}));
    EXPECT_FALSE(strictlyInside(square, {bad, 1}));
    for (std::size_t i = 0; i < square.size(); ++i) {
      std::vector<Vec2> broken = square;
      broken[i].y = bad;
      EXPECT_FALSE(strictlyInside(broken, {1, 1})) << "corner " << i << ' ' << bad;
    }
  }
}

}  // namespace
}  // namespace util
