#include <facetbox/util/math/PlanarPolygon.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace util {
namespace {

using Corners = std::vector<Vec2>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

bool plainTouches(const Corners& corners, Vec2 a, Vec2 b) {
  for (std::size_t i = 0; i < corners.size(); ++i) {
    if (segmentsTouch(corners[i], corners[(i + 1) % corners.size()], a, b)) return true;
  }
  return false;
}

class Random {
 public:
  explicit Random(unsigned seed) : mEngine(seed) {}
  double real(double low, double high) { return std::uniform_real_distribution<double>(low, high)(mEngine); }
  std::size_t below(std::size_t end) { return std::uniform_int_distribution<std::size_t>(0, end - 1)(mEngine); }
  int integer(int low, int high) { return std::uniform_int_distribution<int>(low, high)(mEngine); }

 private:
  std::mt19937_64 mEngine;
};

struct Shape {
  std::string name;
  Corners corners;
};

Corners transformed(Corners corners, double angle, double scale, Vec2 offset) {
  const double c = std::cos(angle) * scale, s = std::sin(angle) * scale;
  for (Vec2& p : corners) p = {c * p.x - s * p.y + offset.x, s * p.x + c * p.y + offset.y};
  return corners;
}

/// Radius by corner number.
template <typename Radius>
Corners ring(int count, double turns, Radius radius) {
  Corners corners;
  for (int i = 0; i < count; ++i) {
    const double angle = 2 * std::numbers::pi * turns * i / count;
    corners.push_back({radius(i) * std::cos(angle), radius(i) * std::sin(angle)});
  }
  return corners;
}

Corners spiral(int count, double turns) {
  Corners corners = ring(count / 2, turns, [&](int i) { return 1 + turns * i * 2 / count; });
  const Corners back = ring(count / 2, turns, [&](int i) { return 1.4 + turns * i * 2 / count; });
  corners.insert(corners.end(), back.rbegin(), back.rend());
  return corners;
}

/// Square spiral and comb on integers, so that queries on a grid tie.
Corners squareSpiral(int count) {
  Corners corners;
  for (int side = 0; side < 2; ++side) {
    for (int k = 0; k < count / 2; ++k) {
      const int i = side == 0 ? k : count / 2 - 1 - k;
      const double r = 4 * (i / 4) + 4 + side;
      corners.push_back({i % 4 == 0 || i % 4 == 3 ? r : -r, i % 4 < 2 ? r : -r});
    }
  }
  return corners;
}

Corners comb(int teeth, int length) {
  Corners corners;
  for (int i = 0; i < teeth; ++i) {
    const double x = 4 * i;
    corners.insert(corners.end(), {{x, 0}, {x + 1, double(length)}, {x + 2, double(length + i % 3)}, {x + 3, 0}});
  }
  corners.insert(corners.end(), {{4.0 * teeth, -3}, {0, -3}});
  return corners;
}

Corners gridWalk(Random& random, int count, int step) {
  Corners corners;
  Vec2 at{};
  for (int i = 0; i < count; ++i) {
    corners.push_back(at);
    at = {at.x + random.integer(-step, step), at.y + random.integer(-step, step)};
  }
  return corners;
}

/// Corners in any order on a line through the origin, every other one displaced.
Corners onLine(Random& random, int count, Vec2 direction, Vec2 displacement = {}) {
  Corners corners;
  for (int i = 0; i < count; ++i) {
    const double k = random.integer(-200, 200), shift = i % 2;
    corners.push_back({k * direction.x + shift * displacement.x, k * direction.y + shift * displacement.y});
  }
  return corners;
}

Corners scattered(Random& random, int count, int size) {
  Corners corners;
  for (int i = 0; i < count; ++i)
    corners.push_back({double(random.integer(-size, size)), double(random.integer(-size, size))});
  return corners;
}

std::vector<Shape> shapes() {
  Random random(7);
  std::vector<Shape> all{
      {"circle", ring(1500, 1, [](int) { return 100.; })},
      {"star", ring(1200, 1, [](int i) { return i % 2 ? 100. : 30.; })},
      {"thin star", ring(1200, 1, [](int i) { return i % 2 ? 100. : 1.; })},
      {"random star", ring(1200, 1, [&](int) { return random.real(1, 100); })},
      {"every ray into one corner", ring(1200, 1, [](int i) { return i % 2 ? 100. : 0.; })},
      {"crossing star", ring(301, 140, [](int) { return 50.; })},
      {"spiral", spiral(2000, 20)},
      {"coarse spiral", spiral(1000, 100)},
      {"square spiral", squareSpiral(1200)},
      {"comb", comb(400, 500)},
      {"comb of long teeth", comb(150, 100000)},
      {"comb lying down", transformed(comb(400, 500), std::numbers::pi / 2, 1, {})},
      {"slanted comb", transformed(comb(400, 500), 0.7, 1, {})},
      {"comb far away", transformed(comb(300, 500), 0.3, 1e-6, {1e6, -3e7})},
      {"comb beyond the resolution", transformed(comb(300, 500), 0.3, 1e-9, {1e6, 1e6})},
      {"tiny comb", transformed(comb(100, 50), 0.3, 1e-200, {})},
      {"denormal comb", transformed(comb(200, 300), 0.3, 3e-322, {})},
      {"huge comb", transformed(comb(100, 50), 0.3, 1e300, {})},
      {"enormous comb", transformed(comb(100, 50), 0.3, 3e305, {})},
      {"on a level line", onLine(random, 300, {1, 0})},
      {"on a slanted line", onLine(random, 300, {1, 2})},
      {"all corners equal", Corners(100, {3, 4})},
      {"one edge to and fro", onLine(random, 100, {0, 0}, {3, 2})},
      {"grid walk", gridWalk(random, 3000, 1)},
      {"coarse grid walk", gridWalk(random, 2000, 5)},
      {"scattered", scattered(random, 300, 20)},
      {"scattered on few points", scattered(random, 2000, 2)},
  };
  for (const int count : {0, 1, 2, 3, 31, 32, 33, 100})
    all.push_back({"scattered " + std::to_string(count), scattered(random, count, 8)});
  return all;
}

/// Points where mistakes are likely: on corners, on edges or a rounding beside them, level with corners, and anywhere.
Vec2 queryPoint(Random& random, const Corners& corners, const Box2& box) {
  const Vec2 a = corners[random.below(corners.size())], b = corners[random.below(corners.size())];
  const std::size_t edge = random.below(corners.size());
  const Vec2 from = corners[edge], to = corners[(edge + 1) % corners.size()];
  switch (random.integer(0, 6)) {
    case 0:
      return a;
    case 1:
      return {a.x, b.y};
    case 2:
      return {from.x / 2 + to.x / 2, from.y / 2 + to.y / 2};
    case 3: {
      const double t = random.real(0, 1);
      return {from.x + (to.x - from.x) * t, from.y + (to.y - from.y) * t};
    }
    case 4:
      return {std::round(random.real(box.min.x, box.max.x)), std::round(random.real(box.min.y, box.max.y))};
    case 5:
      return {std::nextafter(a.x, b.x), a.y};
    default:
      return {random.real(box.min.x / 2, box.max.x / 2) * 2, random.real(box.min.y / 2, box.max.y / 2) * 2};
  }
}

void expectPlainAnswers(const PlanarPolygon& polygon, const Corners& corners, unsigned seed, int queries) {
  Random random(seed);
  for (int i = 0; i < queries; ++i) {
    const Vec2 p = queryPoint(random, corners, polygon.box());
    ASSERT_EQ(polygon.containsStrictly(p), strictlyInside(corners, p))
        << i << std::hexfloat << ": " << p.x << ' ' << p.y;
    Vec2 q = queryPoint(random, corners, polygon.box());
    if (i % 4 != 0) {  // mostly short ones, which may well touch nothing
      const double t = std::ldexp(1, -random.integer(1, 20));
      q = {p.x + (q.x - p.x) * t, p.y + (q.y - p.y) * t};
    } else if (i % 16 == 0) {
      q = {q.x * 1e6, q.y * 1e9};
    }
    ASSERT_EQ(polygon.anyEdgeTouches(p, q), plainTouches(corners, p, q))
        << i << std::hexfloat << ": " << p.x << ' ' << p.y << ", " << q.x << ' ' << q.y;
  }
}

TEST(PlanarPolygon, answersLikeThePlainLoopsOnEveryShape) {
  PlanarPolygon polygon;  // one for all: nothing may be left over from the shape before
  unsigned seed = 0;
  for (const auto& [name, corners] : shapes()) {
    SCOPED_TRACE(name);
    polygon.assign(corners);
    if (corners.empty()) {
      EXPECT_FALSE(polygon.containsStrictly({0, 0}));
      EXPECT_FALSE(polygon.anyEdgeTouches({-1, 0}, {1, 0}));
      continue;
    }
    // The first few without an index, then across the moment when it is built, then with one from the start.
    expectPlainAnswers(polygon, corners, ++seed, 200);
    polygon.assign(corners);
    polygon.buildIndex();
    expectPlainAnswers(polygon, corners, ++seed, 800);
    if (HasFatalFailure()) return;
  }
}

TEST(PlanarPolygon, answersLikeThePlainLoopsOnRandomGrids) {
  PlanarPolygon polygon;
  for (unsigned seed = 0; seed < 150; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    const int count = random.integer(32, 400);
    const Corners corners = seed % 3 == 0 ? scattered(random, count, random.integer(3, 200))
                                          : gridWalk(random, count, random.integer(1, 8));
    polygon.assign(corners);
    polygon.buildIndex();
    expectPlainAnswers(polygon, corners, seed, 200);
    if (HasFatalFailure()) return;
  }
}

TEST(PlanarPolygon, agreesOnWhetherTwoPolygonsTouch) {
  int touching = 0;
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    const auto make = [&] {
      const double radius = random.real(1, 10);
      return transformed(ring(random.integer(1, 90), 1, [&](int i) { return radius * (1 + 0.3 * (i % 2)); }), 0, 1,
                         {random.real(-10, 10), random.real(-10, 10)});
    };
    const Corners a = make(), b = make();
    bool expected = false;
    for (std::size_t i = 0; i < a.size(); ++i) expected |= plainTouches(b, a[i], a[(i + 1) % a.size()]);
    touching += expected;
    const PlanarPolygon first(a), second(b);
    if (seed % 2) first.buildIndex();
    EXPECT_EQ(first.anyEdgeTouches(second), expected);
    EXPECT_EQ(second.anyEdgeTouches(first), expected);
  }
  EXPECT_GT(touching, 50);
  EXPECT_LT(touching, 250);
}

TEST(PlanarPolygon, asksAllPointsOrAny) {
  const PlanarPolygon square(Corners{{0, 0}, {4, 0}, {4, 4}, {0, 4}});
  const Corners inside{{1, 1}, {2, 3}}, mixed{{1, 1}, {0, 2}}, outside{{5, 5}, {4, 4}};
  EXPECT_TRUE(square.containsAllStrictly(inside));
  EXPECT_FALSE(square.containsAllStrictly(mixed));
  EXPECT_TRUE(square.containsAnyStrictly(mixed));
  EXPECT_FALSE(square.containsAnyStrictly(outside));
  EXPECT_TRUE(square.containsAllStrictly({}));
  EXPECT_FALSE(square.containsAnyStrictly({}));
}

TEST(PlanarPolygon, boxHoldsTheFiniteCorners) {
  PlanarPolygon polygon(Corners{{1, 5}, {kNan, -9}, {-2, 3}, {kInfinity, 77}});
  EXPECT_EQ(polygon.box().min, (Vec2{-2, 3}));
  EXPECT_EQ(polygon.box().max, (Vec2{1, 5}));
  polygon.assign({});
  EXPECT_GT(polygon.box().min.x, polygon.box().max.x);
}

TEST(PlanarPolygon, nonFiniteCornersTouchAndContainNothing) {
  for (const double bad : {kNan, kInfinity, -kInfinity}) {
    SCOPED_TRACE(bad);
    Corners corners = ring(500, 1, [](int) { return 10.; });
    for (const std::size_t i : {0u, 77u, 78u, 499u}) corners[i].x = bad;
    PlanarPolygon polygon(corners);
    polygon.buildIndex();
    expectPlainAnswers(polygon, corners, 5, 500);
    EXPECT_FALSE(polygon.containsStrictly({0, 0}));
    EXPECT_TRUE(polygon.anyEdgeTouches({-10, -20}, {-10, 20}));

    polygon.assign(Corners(100, {bad, bad}));
    polygon.buildIndex();
    EXPECT_FALSE(polygon.anyEdgeTouches({-1, -1}, {1, 1}));
    EXPECT_FALSE(polygon.containsStrictly({0, 0}));

    polygon.assign(ring(500, 1, [](int) { return 10.; }));
    polygon.buildIndex();
    EXPECT_FALSE(polygon.containsStrictly({bad, 0}));
    EXPECT_FALSE(polygon.anyEdgeTouches({0, 0}, {bad, 0}));
    EXPECT_FALSE(polygon.anyEdgeTouches({bad, bad}, {bad, bad}));
  }
}

TEST(PlanarPolygon, takesSegmentsAsLongAsDoublesGo) {
  const Corners corners = transformed(comb(200, 300), 0.2, 1, {});
  PlanarPolygon polygon(corners);
  polygon.buildIndex();
  Random random(11);
  for (int i = 0; i < 2000; ++i) {
    const double reach = i % 3 ? std::ldexp(1, random.integer(10, 1023)) : std::numeric_limits<double>::max();
    const Vec2 through = queryPoint(random, corners, polygon.box());
    const Vec2 a{through.x - random.real(-1, 1) * reach, through.y - random.real(-1, 1) * reach};
    const Vec2 b = i % 2 ? through : Vec2{-a.x, -a.y};
    ASSERT_EQ(polygon.anyEdgeTouches(a, b), plainTouches(corners, a, b)) << i;
  }
}

}  // namespace
}  // namespace util
