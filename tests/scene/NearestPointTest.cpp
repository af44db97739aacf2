#include <facetbox/scene/NearestPoint.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <random>
#include <span>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/scene/ClosestOnTriangle.h>
#include <tests/support/SceneStates.h>

namespace {

using facetbox::Nearest;
using support::pick;
using util::Vec3;

/// By bisection of the two directions in which a triangle extends: the distance is convex along each.
long double distanceTo(const std::array<Vec3, 3>& t, const Vec3& p) {
  using Number = long double;
  const auto at = [&](Number v, Number w) {
    const auto along = [&](double a, double b, double c, double q) {
      return a + v * (Number{b} - a) + w * (Number{c} - a) - q;
    };
    const Number x = along(t[0].x, t[1].x, t[2].x, p.x), y = along(t[0].y, t[1].y, t[2].y, p.y),
                 z = along(t[0].z, t[1].z, t[2].z, p.z);
    return x * x + y * y + z * z;
  };
  const auto least = [](Number low, Number high, auto value) {
    constexpr int kSteps = 130;
    for (int i = 0; i < kSteps; ++i) {
      const Number a = low + (high - low) / 3, b = high - (high - low) / 3;
      (value(a) < value(b) ? high : low) = value(a) < value(b) ? b : a;
    }
    return value(low);
  };
  return std::sqrt(least(0, 1, [&](Number v) { return least(0, 1 - v, [&](Number w) { return at(v, w); }); }));
}

TEST(ClosestOnTriangle, IsRightForAnyShape) {
  std::mt19937 random(1);
  const auto coordinate = [&] { return pick(random, -1000, 1000) / 1000.0; };
  for (int round = 0; round < 400; ++round) {
    std::array<Vec3, 3> t;
    for (Vec3& corner : t) corner = {coordinate(), coordinate(), coordinate()};
    const int kind = pick(random, 0, 4);
    const Vec3 normal = cross(t[1] - t[0], t[2] - t[0]);
    const double sliver = std::ldexp(1.0, -pick(random, 2, 60));
    if (kind == 1) t[2] = t[0] + 0.375 * (t[1] - t[0]) + sliver * (t[2] - t[0]);
    if (kind == 2) t[2] = t[1] + sliver * (t[2] - t[1]);
    if (kind == 3) t[2] = t[1];
    if (kind == 4) t[2] = t[1] = t[0];
    Vec3 p{2 * coordinate(), 2 * coordinate(), 2 * coordinate()};
    const int where = pick(random, 0, 2);
    if (where == 1) p = t[0] + 0.5 * (t[1] - t[0]) + 0.25 * (t[2] - t[0]) + coordinate() / length(normal) * normal;
    if (where == 2) p = t[0] + 0.25 * (t[1] - t[0]) + 0.5 * (t[2] - t[0]) + 1e-4 * p;
    const util::ClosestPoint closest = util::closestOnTriangle(p, t[0], t[1], t[2]);
    const auto right = static_cast<double>(distanceTo(t, p));
    ASSERT_NEAR(std::sqrt(closest.distanceSq), right, kind == 1 || kind == 2 ? 2e-8 : 1e-9) << round;
    ASSERT_NEAR(length(closest.point - p), std::sqrt(closest.distanceSq), 1e-15 + 1e-14 * right);
    std::ranges::sort(t, {}, &Vec3::x);
    do {
      const util::ClosestPoint other = util::closestOnTriangle(p, t[0], t[1], t[2]);
      ASSERT_TRUE(other.distanceSq == closest.distanceSq && other.point == closest.point);
    } while (std::ranges::next_permutation(t, {}, &Vec3::x).found);
  }
}

std::optional<Nearest> plainNearest(const support::StateOfScene& scene, double unit, const Vec3& point) {
  std::optional<Nearest> nearest;
  double least = 0;
  for (const support::PlacedTriangle& t : scene.triangles) {
    const util::ClosestPoint closest = util::closestOnTriangle(1 / unit * point, 1 / unit * t.corner[0],
                                                               1 / unit * t.corner[1], 1 / unit * t.corner[2]);
    const auto number = [](facetbox::Id id, std::uint32_t triangle) { return std::uint64_t{id} << 32 | triangle; };
    if (nearest && !(closest.distanceSq < least) &&
        !(closest.distanceSq == least && number(t.id, t.triangle) < number(nearest->id, nearest->triangle)))
      continue;
    least = closest.distanceSq;
    nearest = {t.id,
               t.face,
               t.triangle,
               {unit * closest.point.x, unit * closest.point.y, unit * closest.point.z},
               unit * std::sqrt(least)};
  }
  return nearest;
}

struct NearestCase {
  int exponent;  // of the unit
  double origin;
};

class NearestPoint : public testing::TestWithParam<NearestCase> {};

TEST_P(NearestPoint, IsThatOfThePlainLoop) {
  const double unit = std::ldexp(1.0, GetParam().exponent), origin = GetParam().origin;
  std::mt19937 random(static_cast<unsigned>(GetParam().exponent + 1000));
  for (int round = 0; round < 40; ++round) {
    const int reach = pick(random, 1, 12);
    support::StateOfScene scene = support::randomState(random, pick(random, 0, 24), reach, unit, origin);
    for (int i = 0; i < 60; ++i) {
      const int away = std::array{1, 2, 50, 1'000'000}[static_cast<std::size_t>(pick(random, 0, 3))];
      Vec3 p{origin + pick(random, -16 * reach, 16 * reach) / 16.0 * away, pick(random, -999, 999) / 999.0 * reach,
             pick(random, -16 * reach, 16 * reach) / 16.0 * away};
      p = unit * p;
      const int where = pick(random, 0, 3);  // on or near a corner; between two; anywhere
      if (where < 2 && !scene.triangles.empty()) {
        const auto& corner = scene.triangles[random() % scene.triangles.size()].corner;
        p = where == 0 ? corner[0] + 1e-9 * std::floor(i / 8.0) * p : 0.5 * (corner[0] + corner[1]);
      }
      const std::optional<Nearest> plain = plainNearest(scene, unit, p);
      for (const auto instructions : {util::Instructions::best, util::Instructions::base})
        ASSERT_EQ(util::nearestPoint(scene.state, p, instructions), plain) << round << " " << i;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Scenes, NearestPoint,
                         testing::Values(NearestCase{0, 0}, NearestCase{-332, 0}, NearestCase{332, 0},
                                         NearestCase{0, 1e6}, NearestCase{20, 1e11}),
                         [](const auto& scene) { return std::to_string(scene.index); });

TEST(NearestPoints, AreThoseOfEachPoint) {
  std::mt19937 random(3);
  const support::StateOfScene scene = support::randomState(random, 9, 5, 1, 0);
  std::vector<double> points(3 * 2000);
  for (double& x : points) x = pick(random, -600, 600) / 100.0;
  points[7] = std::nan("");
  const auto nearest = util::nearestPoints(scene.state, points);
  ASSERT_EQ(nearest.size(), points.size() / 3);
  for (std::size_t i = 0; i < nearest.size(); ++i)
    ASSERT_EQ(nearest[i], util::nearestPoint(scene.state, util::toVec3(&points[3 * i])));
  EXPECT_THROW(util::nearestPoints(scene.state, std::span(points).first(4)), std::invalid_argument);
}

TEST(NearestPointOfNothing, IsNone) {
  std::mt19937 random(2);
  support::StateOfScene scene;
  EXPECT_EQ(util::nearestPoint(scene.state, {0, 0, 0}), std::nullopt);
  scene = support::randomState(random, 3, 2, 1, 0);
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double x : {kInfinity, -kInfinity, std::nan("")})
    EXPECT_EQ(util::nearestPoint(scene.state, {0, x, 0}), std::nullopt);
  EXPECT_NE(util::nearestPoint(scene.state, {1e300, 0, 0}), std::nullopt);
}

}  // namespace
