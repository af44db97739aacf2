#include <facetbox/polygons/PlanarPolygon.h>

#include <numbers>
#include <numeric>

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

/// Radius by corner number.
template <typename Radius>
Corners ring(int count, Radius radius) {
  Corners corners;
  for (int i = 0; i < count; ++i) {
    const double angle = 2 * std::numbers::pi * i / count;
    corners.push_back({radius(i) * std::cos(angle), radius(i) * std::sin(angle)});
  }
  return corners;
}

/// Teeth that lean by `slant` times their length.
Corners comb(int teeth, int length, double slant, double scale, Vec2 offset) {
  Corners corners;
  for (int i = 0; i < teeth; ++i) {
    const double x = 4 * i;
    corners.insert(corners.end(), {{x, 0}, {x + 1, double(length)}, {x + 2, double(length + i % 3)}, {x + 3, 0}});
  }
  corners.insert(corners.end(), {{4.0 * teeth, -3}, {0, -3}});
  for (Vec2& p : corners) p = {scale * (p.x + slant * p.y) + offset.x, scale * p.y + offset.y};
  return corners;
}

/// Long edges that many integer points lie on exactly.
Corners latticeZigzag(int count, double dx, double dy) {
  Corners corners;
  for (int i = 0; i < count; ++i)
    corners.insert(corners.end(), {{2.0 * i, i % 3 * dy}, {2.0 * i + 100 * dx, (100 - i % 5) * dy}});
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
      {"circle", ring(1500, [](int) { return 100.; })},
      {"star", ring(1200, [&](int) { return real(random, 1, 100); })},
      {"every ray into one corner", ring(1200, [](int i) { return i % 2 ? 100. : 0.; })},
      {"comb of long teeth", comb(150, 100000, 0, 1, {})},
      {"slanted comb", comb(400, 500, 0.7, 1, {})},
      {"comb beyond the resolution", comb(300, 500, 0.3, 1e-9, {1e6, 1e6})},
      {"denormal comb", comb(200, 300, 0.3, 3e-322, {})},
      {"enormous comb", comb(100, 50, 0.3, 3e305, {})},
      {"zigzag between integers", latticeZigzag(300, 7, 3)},
      {"other zigzag between integers", latticeZigzag(300, 11, -13)},
      {"all corners equal", Corners(100, {3, 4})},
      {"scattered on few points", scattered(random, 2000, 2)},
  };
  for (const int count : {0, 1, 2, 3, 31, 32, 33, 100, 200, 400})
    for (const int size : {3, 8, 200})
      all.push_back({"scattered " + std::to_string(count), scattered(random, count, size)});
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
  // Often a point that is exactly on the edge, if that is possible.
  const double size = std::max(std::fabs(to.x - from.x), std::fabs(to.y - from.y));
  const bool isLattice =
      size < 1e9 && from.x == std::round(from.x) && from.y == std::round(from.y) && size == std::round(size);
  const auto steps = isLattice ? std::gcd(std::llround(to.x - from.x), std::llround(to.y - from.y)) : 0;
  if (steps > 1 && pick(random, 0, 1)) {
    const double step = 1 + static_cast<double>(random() % static_cast<unsigned>(steps - 1)),
                 n = static_cast<double>(steps);
    return {from.x + (to.x - from.x) / n * step, from.y + (to.y - from.y) / n * step};
  }
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
      q = {std::ldexp(q.x, pick(random, 10, 1000)), std::ldexp(q.y, pick(random, 10, 1000))};
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

}  // namespace
}  // namespace util
