#include <facetbox/util/mesh/PolygonArea.h>

#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

#include <gtest/gtest.h>

#include <tests/support/Meshes.h>

namespace {

using support::Indices;
using support::pick;
using util::Vec3;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// Bit for bit; NaN equals NaN.
bool same(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b) || (std::isnan(a) && std::isnan(b));
}

double areaSlowly(const std::vector<Vec3>& vertices, const Indices& corners, const Vec3& normal) {
  const std::size_t n = corners.size();
  if (n < 3) return 0.0;
  std::vector<double> x(n + 2), y(n + 2), z(n + 2);
  for (std::size_t i = 0; i < n; ++i) {
    x[i] = vertices[corners[i]].x;
    y[i] = vertices[corners[i]].y;
    z[i] = vertices[corners[i]].z;
  }
  const double nx = std::abs(normal.x), ny = std::abs(normal.y), nz = std::abs(normal.z);
  std::vector<double>*a = &x, *b = &y;
  double divisor = normal.z;
  if (nx > ny && nx > nz) {
    a = &y, b = &z, divisor = normal.x;
  } else if (nx <= ny && ny > nz) {
    a = &z, b = &x, divisor = normal.y;
  }
  for (auto* array : {a, b}) {
    (*array)[n] = (*array)[0];
    (*array)[n + 1] = (*array)[1];
  }
  double sum = 0.0;
  for (std::size_t i = 1; i <= n; ++i) sum += (*a)[i] * ((*b)[i + 1] - (*b)[i - 1]);
  return std::abs(0.5 * sum * (1.0 / divisor));
}

bool normalSlowly(const std::vector<Vec3>& vertices, const Indices& corners, Vec3& normal) {
  double x = 0, y = 0, z = 0;
  for (std::size_t i = 1; i + 1 < corners.size(); ++i) {
    const Vec3 &o = vertices[corners[0]], &p = vertices[corners[i]], &q = vertices[corners[i + 1]];
    const double ax = p.x - o.x, ay = p.y - o.y, az = p.z - o.z, bx = q.x - o.x, by = q.y - o.y, bz = q.z - o.z;
    x += ay * bz - az * by;
    y += az * bx - ax * bz;
    z += ax * by - ay * bx;
  }
  const double size = std::sqrt(x * x + y * y + z * z);
  if (size > 1e-25) {
    normal = {x / size, y / size, z / size};
    return true;
  }
  normal = {0.0, 1.0, 0.0};
  return false;
}

TEST(PolygonArea, areaAndNormalEqualTheWrittenFormulasBitForBit) {
  for (unsigned seed = 0; seed < 5000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const bool hostile = seed % 8 == 0;
    const double scale = seed % 3 == 0 ? 1.0 / 3 : 1.0;
    std::vector<Vec3> vertices(static_cast<std::size_t>(pick(random, 1, 50)));
    const auto coordinate = [&]() -> double {
      if (hostile && pick(random, 0, 30) == 0) return pick(random, 0, 1) ? kNaN : -kInfinity;
      return scale * pick(random, -4, 4);
    };
    for (Vec3& v : vertices) v = {coordinate(), coordinate(), coordinate()};
    // Around 31 corners the stated form changes its storage.
    Indices corners(static_cast<std::size_t>(seed % 2 ? pick(random, 0, 8) : pick(random, 28, 34)));
    for (auto& c : corners) c = static_cast<std::uint32_t>(pick(random, 0, static_cast<int>(vertices.size()) - 1));

    Vec3 normal, expected;
    EXPECT_EQ(util::computeFaceNormal(vertices, corners, normal), normalSlowly(vertices, corners, expected));
    EXPECT_TRUE(same(normal.x, expected.x) && same(normal.y, expected.y) && same(normal.z, expected.z));
    EXPECT_TRUE(same(util::computePolygonArea(vertices, corners, normal), areaSlowly(vertices, corners, normal)));

    // Any stored normal: ties in the choice of the plane, components that are zero or no numbers.
    const double choices[] = {0.0, -0.0, 1.0, -1.0, 0.5, -0.5, 1.0 / 3, kNaN, kInfinity};
    const auto choice = [&] { return choices[pick(random, 0, 8)]; };
    const Vec3 stored{choice(), choice(), choice()};
    EXPECT_TRUE(same(util::computePolygonArea(vertices, corners, stored), areaSlowly(vertices, corners, stored)))
        << stored.x << ' ' << stored.y << ' ' << stored.z;
  }
}

TEST(PolygonArea, faceWithoutAnAreaGetsTheStandInNormalAndIsMeasuredAlongIt) {
  const std::vector<Vec3> line{{0, 0, 0}, {1, 1, 1}, {2, 2, 2}, {kNaN, 0, 0}};
  Vec3 normal{};
  EXPECT_FALSE(util::computeFaceNormal(line, Indices({0, 1, 2}), normal));
  EXPECT_EQ(normal, (Vec3{0.0, 1.0, 0.0}));
  EXPECT_EQ(util::computePolygonArea(line, Indices({0, 1, 2}), normal), 0.0);
  EXPECT_FALSE(util::computeFaceNormal(line, Indices({0, 1, 3}), normal));
  EXPECT_FALSE(util::computeFaceNormal(line, Indices({0, 1}), normal));

  // A triangle's cross product is the product of its legs; the length 1e-25 itself is not enough.
  for (const double leg : {1e-26, std::nextafter(1e-25, 0.0), 1e-25, std::nextafter(1e-25, 1.0), 1e-24}) {
    const std::vector<Vec3> corner{{0, 0, 0}, {leg, 0, 0}, {0, 1, 0}};
    EXPECT_EQ(util::computeFaceNormal(corner, Indices({0, 1, 2}), normal), std::sqrt(leg * leg) > 1e-25) << leg;
  }
}

}  // namespace
