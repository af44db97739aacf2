#include <facetbox/polygons/LoopShape.h>

#include <tests/support/Meshes.h>

namespace {

using namespace support;
using Loop = std::vector<Vec2>;

/// By integers, edge with edge.
struct PlainLoop {
  std::vector<std::array<std::int64_t, 2>> mPoints;

  explicit PlainLoop(const Loop& loop) {
    for (const Vec2& p : loop) mPoints.push_back({std::llround(p.x), std::llround(p.y)});
  }
  const auto& at(std::size_t i) const { return mPoints[i % mPoints.size()]; }
  std::int64_t turn(std::size_t a, std::size_t b, std::size_t c) const {
    return (at(b)[0] - at(a)[0]) * (at(c)[1] - at(a)[1]) - (at(b)[1] - at(a)[1]) * (at(c)[0] - at(a)[0]);
  }
  std::int64_t doubleArea() const {
    std::int64_t sum = 0;
    for (std::size_t i = 2; i < mPoints.size(); ++i) sum += turn(0, i - 1, i);
    return sum;
  }
  bool isOn(std::size_t p, std::size_t edge) const {
    const auto &a = at(edge), &b = at(edge + 1), &q = at(p);
    return turn(edge, edge + 1, p) == 0 && std::min(a[0], b[0]) <= q[0] && q[0] <= std::max(a[0], b[0]) &&
           std::min(a[1], b[1]) <= q[1] && q[1] <= std::max(a[1], b[1]);
  }
  bool touch(std::size_t i, std::size_t j) const {
    const std::size_t n = mPoints.size();
    if (j == (i + 1) % n) return isOn(i, j) || isOn(j + 1, i);
    if (i == (j + 1) % n) return isOn(j, i) || isOn(i + 1, j);
    const auto sign = [](std::int64_t v) { return (v > 0) - (v < 0); };
    return isOn(i, j) || isOn(i + 1, j) || isOn(j, i) || isOn(j + 1, i) ||
           (sign(turn(i, i + 1, j)) * sign(turn(i, i + 1, j + 1)) < 0 &&
            sign(turn(j, j + 1, i)) * sign(turn(j, j + 1, i + 1)) < 0);
  }
};

/// A circle, smooth or jagged, its points shifted now and then; a comb; a few points anywhere.
Loop randomLoop(std::mt19937& random) {
  const int n = oneIn(random, 3) ? pick(random, 65, 400) : pick(random, 3, 12);
  const int kind = pick(random, 0, 3), size = n > 64 ? 100000 : pick(random, 2, 60);
  Loop loop;
  for (int i = 0; i < n; ++i) {
    const double angle = 2 * 3.14159265358979 * i / n, radius = kind == 1 && i % 2 == 1 ? 0.7 * size : size;
    if (kind < 2)
      loop.push_back({std::round(radius * std::cos(angle)), std::round(radius * std::sin(angle))});
    else if (kind == 2)
      loop.push_back({10.0 * i, i % 2 == 0 ? 0.0 : i == n - 1 ? -5.0 : size});
    else
      loop.push_back({1.0 * pick(random, -size, size), 1.0 * pick(random, -size, size)});
  }
  if (oneIn(random, 3)) std::swap(loop[below(random, n)], loop[below(random, n)]);
  if (oneIn(random, 3)) loop[below(random, n)] = loop[below(random, n)];
  if (oneIn(random, 3)) {
    const std::uint32_t i = below(random, n);
    const Vec2 a = loop[i], b = loop[(i + 1) % n];
    loop[below(random, n)] = {std::round((a.x + b.x) / 2), std::round((a.y + b.y) / 2)};
  }
  if (oneIn(random, 2)) std::ranges::reverse(loop);
  std::rotate(loop.begin(), loop.begin() + below(random, n), loop.end());
  return loop;
}

TEST(LoopShape, isWhatIntegersSay) {
  int convex = 0, simple = 0, large = 0;
  for (unsigned seed = 0; seed < 4000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const Loop loop = randomLoop(random);
    const PlainLoop plain(loop);
    const std::size_t n = loop.size();
    std::vector<std::size_t> expected, found;
    bool turnsOneWay = true;
    const int side = plain.doubleArea() > 0 ? 1 : -1;
    for (std::size_t i = 0; i < n; ++i) {
      turnsOneWay = turnsOneWay && plain.turn(i, i + 1, i + 2) * side >= 0;
      for (std::size_t j = 0; j < n && (expected.empty() || expected.back() != i); ++j)
        if (i != j && plain.touch(i, j) && (i + j) % 3 != 0) expected.push_back(i);
    }
    util::findTouches(
        loop, [](std::size_t i, std::size_t j) { return (i + j) % 3 != 0; },
        [&](std::size_t i) { found.push_back(i); });
    EXPECT_EQ(found, expected);
    bool isSimple = true;
    for (std::size_t i = 0; i < n; ++i)
      for (std::size_t j = 0; j < i; ++j) isSimple = isSimple && !plain.touch(i, j);
    EXPECT_EQ(util::isSimple(loop), isSimple);
    EXPECT_EQ(util::signedArea(loop), 0.5 * static_cast<double>(plain.doubleArea()));
    EXPECT_EQ(util::convexTurn(loop), isSimple && turnsOneWay ? side : 0);
    convex += util::convexTurn(loop) != 0;
    simple += isSimple;
    large += isSimple && n > 64;
  }
  EXPECT_GT(convex, 500);
  EXPECT_GT(simple, 1000);
  EXPECT_GT(large, 200);
}

TEST(LoopShape, hasNoAreaWhereRoundingMayHaveMadeIt) {
  // On a slanted line, but for the rounding of the coordinates.
  std::mt19937 random(1);
  for (int turn = 0; turn < 1000; ++turn) {
    const double x = pick(random, 1, 99999) / 7.0, y = pick(random, 1, 99999) / 7.0;
    EXPECT_EQ(util::signedArea(Loop{{0, 0}, {x, y}, {x / 3, y / 3}, {x / 7, y / 7}}), 0.0);
  }
}

}  // namespace
