#include <facetbox/util/math/PlanarPolygon.h>

#include <numbers>

#include <tests/support/Meshes.h>

namespace util {
namespace {

using Corners = std::vector<Vec2>;

using support::below;
using support::kInfinity;
using support::kNaN;
using support::pick;

bool plainTouches(const Corners& corners, Vec2 a, Vec2 b) {
  for (std::size_t i = 0; i < corners.size(); ++i) {
    if (segmentsTouch(corners[i], corners[(i + 1) % corners.size()], a, b)) return true;
  }
  return false;
}

double real(std::mt19937& random, double low, double high) {
  return std::uniform_real_distribution<double>(low, high)(random);
}

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

Corners gridWalk(std::mt19937& random, int count, int step) {
  Corners corners;
  Vec2 at{};
  for (int i = 0; i < count; ++i) {
    corners.push_back(at);
    at = {at.x + pick(random, -step, step), at.y + pick(random, -step, step)};
  }
  return corners;
}

/// Corners in any order on a line through the origin, every other one displaced.
Corners onLine(std::mt19937& random, int count, Vec2 direction, Vec2 displacement = {}) {
  Corners corners;
  for (int i = 0; i < count; ++i) {
    const double k = pick(random, -200, 200), shift = i % 2;
    corners.push_back({k * direction.x + shift * displacement.x, k * direction.y + shift * displacement.y});
  }
  return corners;
}

Corners scattered(std::mt19937& random, int count, int size) {
  Corners corners;
  for (int i = 0; i < count; ++i)
    corners.push_back({double(pick(random, -size, size)), double(pick(random, -size, size))});
  return corners;
}

std::vector<std::pair<std::string, Corners>> shapes() {
  std::mt19937 random(7);
  std::vector<std::pair<std::string, Corners>> all{
      {"circle", ring(1500, 1, [](int) { return 100.; })},
      {"thin star", ring(1200, 1, [](int i) { return i % 2 ? 100. : 1.; })},
      {"random star", ring(1200, 1, [&](int) { return real(random, 1, 100); })},
      {"every ray into one corner", ring(1200, 1, [](int i) { return i % 2 ? 100. : 0.; })},
      {"crossing star", ring(301, 140, [](int) { return 50.; })},
      {"spiral", ring(1000, 100, [](int i) { return 1. + i; })},
      {"square spiral", squareSpiral(1200)},
      {"comb of long teeth", comb(150, 100000)},
      {"comb lying down", transformed(comb(400, 500), std::numbers::pi / 2, 1, {})},
      {"slanted comb", transformed(comb(400, 500), 0.7, 1, {})},
      {"comb beyond the resolution", transformed(comb(300, 500), 0.3, 1e-9, {1e6, 1e6})},
      {"denormal comb", transformed(comb(200, 300), 0.3, 3e-322, {})},
      {"enormous comb", transformed(comb(100, 50), 0.3, 3e305, {})},
      {"on a level line", onLine(random, 300, {1, 0})},
      {"on a slanted line", onLine(random, 300, {1, 2})},
      {"all corners equal", Corners(100, {3, 4})},
      {"one edge to and fro", onLine(random, 100, {0, 0}, {3, 2})},
      {"grid walk", gridWalk(random, 3000, 1)},
      {"scattered", scattered(random, 300, 20)},
      {"scattered on few points", scattered(random, 2000, 2)},
  };
  for (const int count : {0, 1, 2, 3, 31, 32, 33, 100, 200, 400})
    for (const int size : {3, 8, 200}) {
      all.push_back({"scattered " + std::to_string(count), scattered(random, count, size)});
      all.push_back({"grid walk " + std::to_string(count), gridWalk(random, count, 1 + size / 4)});
    }
  for (const double bad : {kNaN, kInfinity, -kInfinity}) {
    Corners& broken = all.emplace_back("broken circle", all[0].second).second;
    for (const std::size_t i : {0u, 77u, 78u, 1499u}) broken[i].x = bad;
  }
  return all;
}

/// Points where mistakes are likely: on corners, on edges or a rounding beside them, level with corners, and anywhere.
Vec2 queryPoint(std::mt19937& random, const Corners& corners, const Box2& box) {
  const Vec2 a = corners[below(random, corners.size())], b = corners[below(random, corners.size())];
  const std::size_t edge = below(random, corners.size());
  const Vec2 from = corners[edge], to = corners[(edge + 1) % corners.size()];
  const double t = pick(random, 0, 1) ? 0.5 : real(random, 0, 1);
  const Vec2 anywhere{real(random, box.min.x / 2, box.max.x / 2) * 2, real(random, box.min.y / 2, box.max.y / 2) * 2};
  const Vec2 points[] = {a,
                         {a.x, b.y},
                         {from.x + (to.x - from.x) * t, from.y + (to.y - from.y) * t},
                         {from.x / 2 + to.x / 2, from.y / 2 + to.y / 2},
                         {std::round(anywhere.x), std::round(anywhere.y)},
                         {std::nextafter(a.x, b.x), a.y},
                         anywhere};
  return points[below(random, 7)];
}

void expectPlainAnswers(const PlanarPolygon& polygon, const Corners& corners, unsigned seed, int queries) {
  std::mt19937 random(seed);
  for (int i = 0; i < queries; ++i) {
    const Vec2 p = queryPoint(random, corners, polygon.box());
    ASSERT_EQ(polygon.containsStrictly(p), strictlyInside(corners, p))
        << i << std::hexfloat << ": " << p.x << ' ' << p.y;
    Vec2 q = queryPoint(random, corners, polygon.box());
    if (i % 4 != 0) {  // mostly short ones, which may well touch nothing
      const double t = std::ldexp(1, -pick(random, 1, 20));
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

TEST(PlanarPolygon, agreesOnWhetherTwoPolygonsTouch) {
  int touching = 0;
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto make = [&] {
      const double radius = real(random, 1, 10);
      return transformed(ring(pick(random, 1, 90), 1, [&](int i) { return radius * (1 + 0.3 * (i % 2)); }), 0, 1,
                         {real(random, -10, 10), real(random, -10, 10)});
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

TEST(PlanarPolygon, boxHoldsTheFiniteCornersAndOthersTouchAndContainNothing) {
  PlanarPolygon polygon(Corners{{1, 5}, {kNaN, -9}, {-2, 3}, {kInfinity, 77}});
  EXPECT_EQ(polygon.box().min, (Vec2{-2, 3}));
  EXPECT_EQ(polygon.box().max, (Vec2{1, 5}));
  polygon.assign({});
  EXPECT_GT(polygon.box().min.x, polygon.box().max.x);
  for (const double bad : {kNaN, kInfinity, -kInfinity}) {
    polygon.assign(Corners(100, {bad, bad}));
    polygon.buildIndex();
    EXPECT_FALSE(polygon.anyEdgeTouches({-1, -1}, {1, 1}) || polygon.containsStrictly({0, 0}));
    polygon.assign(ring(500, 1, [](int) { return 10.; }));
    polygon.buildIndex();
    EXPECT_FALSE(polygon.containsStrictly({bad, 0}) || polygon.anyEdgeTouches({0, 0}, {bad, 0}));
  }
}

TEST(PlanarPolygon, takesSegmentsAsLongAsDoublesGo) {
  const Corners corners = transformed(comb(200, 300), 0.2, 1, {});
  PlanarPolygon polygon(corners);
  polygon.buildIndex();
  std::mt19937 random(11);
  for (int i = 0; i < 2000; ++i) {
    const double reach = i % 3 ? std::ldexp(1, pick(random, 10, 1023)) : std::numeric_limits<double>::max();
    const Vec2 through = queryPoint(random, corners, polygon.box());
    const Vec2 a{through.x - real(random, -1, 1) * reach, through.y - real(random, -1, 1) * reach};
    const Vec2 b = i % 2 ? through : Vec2{-a.x, -a.y};
    ASSERT_EQ(polygon.anyEdgeTouches(a, b), plainTouches(corners, a, b)) << i;
  }
}

}  // namespace
}  // namespace util
