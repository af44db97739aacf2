#include <facetbox/polygons/Crossings.h>

#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <tests/support/Meshes.h>

namespace {

using support::oneIn;
using support::pick;
using util::Segment2;
using util::Vec2;

/// In integers: twice the area of abc.
double turn(Vec2 a, Vec2 b, Vec2 c) { return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x); }

TEST(Crossings, areCountedAsByComparingAllPairs) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::vector<Segment2> segments;
    const int size = pick(random, 1, 12);
    for (int n = pick(random, 0, 40); n > 0; --n) {
      const auto next = [&] { return static_cast<double>(pick(random, -size, size)); };
      const Vec2 from{next(), next()};
      segments.push_back({from, oneIn(random, 3) ? Vec2{from.x, next()} : Vec2{next(), next()}});
    }
    std::size_t count = 0;
    for (std::size_t i = 0; i < segments.size(); ++i)
      for (std::size_t j = 0; j < i; ++j) {
        const auto [a, b] = segments[i];
        const auto [c, d] = segments[j];
        count += turn(a, b, c) * turn(a, b, d) < 0 && turn(c, d, a) * turn(c, d, b) < 0;
      }
    EXPECT_FALSE(crossMoreOftenThan(count, segments));
    EXPECT_EQ(count > 0 && crossMoreOftenThan(count - 1, segments), count > 0);
  }
}

}  // namespace
