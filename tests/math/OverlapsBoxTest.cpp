#include <facetbox/math/OverlapsBox.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <tests/support/Meshes.h>

namespace {

using support::pick;
using util::overlapsBox;
using Point = std::array<std::int64_t, 3>;

/// Exact, on integers: the points p0 + u (p1 - p0) + v (p2 - p0) with u, v >= 0, u + v <= 1 that lie in the box form a
/// polygon in (u, v), bounded by nine half planes. If it is not empty, two of their lines cross in one of its corners.
bool overlapsExactly(const std::array<Point, 3>& p, const Point& center, const Point& half) {
  struct HalfPlane {
    std::int64_t u, v, limit;  // u * U + v * V <= limit
  };
  std::vector<HalfPlane> planes{{-1, 0, 0}, {0, -1, 0}, {1, 1, 1}};
  for (std::size_t a = 0; a < 3; ++a) {
    const std::int64_t u = p[1][a] - p[0][a], v = p[2][a] - p[0][a], from = p[0][a] - center[a];
    planes.push_back({u, v, half[a] - from});
    planes.push_back({-u, -v, half[a] + from});
  }
  for (std::size_t i = 0; i < planes.size(); ++i)
    for (std::size_t j = 0; j < i; ++j) {
      const std::int64_t det = planes[i].u * planes[j].v - planes[j].u * planes[i].v;
      if (det == 0) continue;
      const std::int64_t sign = det < 0 ? -1 : 1;
      const std::int64_t u = sign * (planes[i].limit * planes[j].v - planes[j].limit * planes[i].v);
      const std::int64_t v = sign * (planes[i].u * planes[j].limit - planes[j].u * planes[i].limit);
      bool holds = true;
      for (const HalfPlane& plane : planes) holds = holds && plane.u * u + plane.v * v <= plane.limit * sign * det;
      if (holds) return true;
    }
  return false;
}

TEST(OverlapsBox, agreesWithExactArithmeticOnAGrid) {
  std::mt19937 random(1);
  int overlapping = 0;
  constexpr int kRounds = 200000;
  for (int round = 0; round < kRounds; ++round) {
    const int reach = pick(random, 1, 9);
    std::array<Point, 3> p;
    Point center, half;
    for (std::size_t a = 0; a < 3; ++a) {
      for (Point& corner : p) corner[a] = pick(random, -reach, reach);
      center[a] = pick(random, -3, 3);
      half[a] = pick(random, 0, 4);
    }
    if (round % 16 == 0) p[2] = p[round % 32 == 0 ? 0 : 1];
    // Far from the origin the numbers are still integers without rounding.
    const double offset = round % 2 == 0 ? 0.0 : 1e9;
    double d[5][3];
    for (std::size_t a = 0; a < 3; ++a) {
      for (std::size_t k = 0; k < 3; ++k) d[k][a] = static_cast<double>(p[k][a]) + offset;
      d[3][a] = static_cast<double>(center[a]) + offset;
      d[4][a] = static_cast<double>(half[a]);
    }
    const bool expected = overlapsExactly(p, center, half);
    ASSERT_EQ(overlapsBox(d[0], d[1], d[2], d[3], d[4]), expected) << "round " << round;
    overlapping += expected;
  }
  EXPECT_GT(overlapping, kRounds / 20);
  EXPECT_LT(overlapping, kRounds / 2);
}

TEST(OverlapsBox, nothingOverlapsWhereACoordinateIsNan) {
  const double inside[5][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 0}, {2, 2, 2}};
  EXPECT_TRUE(overlapsBox(inside[0], inside[1], inside[2], inside[3], inside[4]));
  for (std::size_t k = 0; k < 5; ++k)
    for (std::size_t a = 0; a < 3; ++a) {
      double d[5][3];
      std::copy(&inside[0][0], &inside[0][0] + 15, &d[0][0]);
      d[k][a] = support::kNaN;
      EXPECT_FALSE(overlapsBox(d[0], d[1], d[2], d[3], d[4])) << k << ' ' << a;
    }
}

}  // namespace
