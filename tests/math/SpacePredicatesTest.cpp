#include <facetbox/math/SpacePredicates.h>

#include <tests/support/ExactNumbers.h>
#include <tests/support/Meshes.h>

namespace util {
namespace {

using boost::multiprecision::cpp_int;

using support::exact;
using support::nudged;
using support::pick;
using support::real;

int exactOrientation(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d) {
  const auto row = [&](const Vec3& p) {
    return std::array<cpp_int, 3>{exact(p.x) - exact(d.x), exact(p.y) - exact(d.y), exact(p.z) - exact(d.z)};
  };
  const auto u = row(a), v = row(b), w = row(c);
  const cpp_int det =
      u[0] * (v[1] * w[2] - v[2] * w[1]) - u[1] * (v[0] * w[2] - v[2] * w[0]) + u[2] * (v[0] * w[1] - v[1] * w[0]);
  return det.sign();
}

void expectExact(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d) {
  const int sign = exactOrientation(a, b, c, d);
  ASSERT_EQ(orientation(a, b, c, d), sign)
      << std::hexfloat << a.x << ' ' << a.y << ' ' << a.z << ", " << b.x << ' ' << b.y << ' ' << b.z << ", " << c.x
      << ' ' << c.y << ' ' << c.z << ", " << d.x << ' ' << d.y << ' ' << d.z;
  ASSERT_EQ(orientation(b, a, c, d), -sign);
  ASSERT_EQ(orientation(a, b, d, c), -sign);
}

Vec3 randomPoint(std::mt19937& random, double size) {
  return {real(random, -size, size), real(random, -size, size), real(random, -size, size)};
}

TEST(SpaceOrientation, pointsBelowACounterclockwiseTriangleArePositive) {
  EXPECT_EQ(orientation(Vec3{0, 0, 0}, Vec3{1, 0, 0}, Vec3{0, 1, 0}, Vec3{0, 0, -1}), 1);
  EXPECT_EQ(orientation(Vec3{0, 0, 0}, Vec3{1, 0, 0}, Vec3{0, 1, 0}, Vec3{0, 0, 1}), -1);
  EXPECT_EQ(orientation(Vec3{0, 0, 0}, Vec3{1, 0, 0}, Vec3{0, 1, 0}, Vec3{0, 0, support::kNaN}), 0);
  EXPECT_EQ(orientation(Vec3{0, 0, 0}, Vec3{1, 0, 0}, Vec3{0, 1, 0}, Vec3{0, 0, support::kInfinity}), 0);
}

TEST(SpaceOrientation, agreesWithIntegersOnNearlyCoplanarPoints) {
  std::mt19937 random(1);
  constexpr std::array kExponents{0, 0, 0, -290, -340, -700, -1000, 290, 340, 900};
  for (int i = 0; i < 40000; ++i) {
    // d is rounded onto the plane abc, far from the origin at times; then some move by a few units in the last place.
    const double scale = std::ldexp(1, kExponents[i % kExponents.size()] + pick(random, -30, 30));
    const Vec3 place = pick(random, 0, 1) ? randomPoint(random, 1e6 * scale) : Vec3{0, 0, 0};
    Vec3 a = place + randomPoint(random, scale), b = place + randomPoint(random, scale);
    Vec3 c = pick(random, 0, 3) ? place + randomPoint(random, scale) : a + real(random, -1, 2) * (b - a);
    Vec3 d = a + real(random, -1, 2) * (b - a) + real(random, -1, 2) * (c - a);
    for (double* v : {&a.x, &b.y, &c.z, &d.x, &d.z}) *v = nudged(*v, pick(random, -1, 1));
    expectExact(a, b, c, d);
    if (HasFatalFailure()) return;
  }
}

TEST(SpaceOrientation, agreesWithIntegersOnShortNumbers) {
  std::mt19937 random(2);
  for (int i = 0; i < 40000; ++i) {
    // Slanted planes of a grid, where all four often are coplanar exactly.
    const double unit = std::ldexp(1.0, pick(random, -360, 360));
    std::array<Vec3, 4> p;
    for (Vec3& v : p) {
      const int x = pick(random, -9, 9), y = pick(random, -9, 9);
      v = {x * unit, y * unit, (pick(random, 0, 9) ? 3 * x - 2 * y + 7 : x) * unit};
    }
    expectExact(p[0], p[1], p[2], p[3]);
    if (HasFatalFailure()) return;
  }
}

TEST(SpaceOrientation, agreesWithIntegersAtEveryMagnitude) {
  std::mt19937 random(3);
  for (int i = 0; i < 5000; ++i) {
    std::array<double, 12> v{};
    for (double& value : v)
      value = pick(random, 0, 2) == 0 ? v[support::below(random, v.size())] : support::anyFinite(random);
    expectExact({v[0], v[1], v[2]}, {v[3], v[4], v[5]}, {v[6], v[7], v[8]}, {v[9], v[10], v[11]});
    if (HasFatalFailure()) return;
  }
}

TEST(SpaceOrientation, productsThatVanishDoNotDecide) {
  // The product of the small differences underflows; the third factor is large enough to bring it back.
  const double small = 0x1p-600, large = 0x1p900;
  expectExact({small, 0, large}, {0, small, -large}, {small, small, large}, {0, 0, 0});
  expectExact({small, small, large}, {small, nudged(small, 1), -large}, {small, nudged(small, -1), large}, {0, 0, 0});
}

TEST(ProjectionAxis, isOneOnWhichTheTriangleHasAnArea) {
  std::mt19937 random(4);
  for (int i = 0; i < 3000; ++i) {
    std::array<Vec3, 3> p;
    for (Vec3& v : p) v = {1.0 * pick(random, 0, 2), 1.0 * pick(random, 0, 2), 1.0 * pick(random, 0, 1)};
    const Vec3 normal = cross(p[1] - p[0], p[2] - p[0]);
    const int axis = projectionAxis(p[0], p[1], p[2]);
    EXPECT_EQ(areCollinear(p[0], p[1], p[2]), normal == (Vec3{0, 0, 0}));
    EXPECT_EQ(axis == 3, normal == (Vec3{0, 0, 0}));
    EXPECT_TRUE(axis == 3 || (axis == 0 ? normal.x : axis == 1 ? normal.y : normal.z) != 0);
  }
}

}  // namespace
}  // namespace util
