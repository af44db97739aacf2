#include <facetbox/polygons/LoopPartition.h>

#include <set>

#include <tests/support/Meshes.h>

namespace util {
namespace {

using Corners = std::vector<Vec2>;

using support::below;
using support::oneIn;
using support::pick;

/// Slits side by side whose long edges have many integer points, and a field of small triangles above them.
std::vector<Corners> loopsApart(std::mt19937& random) {
  std::vector<Corners> loops;
  const double dx = pick(random, 3, 13), dy = pick(random, -13, 13), length = 100;
  const int slits = pick(random, 10, 150);
  for (int i = 0; i < slits; ++i) {
    const double at = 40.0 * i;
    loops.push_back({{0, at}, {length * dx, length * dy + at}, {length * dx, length * dy + at + 1}, {0, at + 1}});
  }
  for (int i = 0; i < 100; ++i) {
    const double x = 20 * (i % 10), y = -3000 + 20 * (i / 10);
    loops.push_back({{x, y}, {x + 7, y + 3}, {x, y + 5}});
  }
  return loops;
}

bool touch(const Corners& a, const Corners& b) {
  for (std::size_t i = 0; i < a.size(); ++i)
    for (std::size_t j = 0; j < b.size(); ++j)
      if (segmentsTouch(a[i], a[(i + 1) % a.size()], b[j], b[(j + 1) % b.size()])) return true;
  return false;
}

TEST(LoopPartition, missesNoLoopThatTouchesContainsOrIsContained) {
  std::size_t touching = 0, containing = 0, contained = 0, tested = 0, found = 0;
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::vector<Corners> loops = loopsApart(random);
    LoopPartition partition;
    ASSERT_TRUE(partition.plan({{-9000.1, -9000.7}, {9e3, 9e3}}, loops.size(),
                               [&](std::uint32_t loop) { return std::span<const Vec2>(loops[loop]); }));
    std::vector<bool> isIn(loops.size());
    for (std::uint32_t loop = 0; loop < loops.size(); ++loop)
      if ((isIn[loop] = !oneIn(random, 4))) partition.insert(loop, PlanarPolygon(loops[loop]));
    for (int search = 0; search < 200; ++search) {
      // A point or a triangle, with a corner on an edge at an integer point, in or around a loop.
      const Corners& near = loops[below(random, loops.size())];
      const Vec2 from = near[0], to = near[1];
      const double t = 0.01 * pick(random, 0, 100), size = std::array{0.25, 3.0, 45.0, 500.0}[below(random, 4)];
      Vec2 at{from.x + std::round((to.x - from.x) * t), from.y + std::round((to.y - from.y) * t)};
      if (oneIn(random, 2)) at.x += 0.5 * pick(random, -1, 1);
      if (oneIn(random, 2)) at.y += 0.5 * pick(random, -1, 1);
      const double up = oneIn(random, 2) ? size : -size;
      Corners sought{at, {at.x + size * pick(random, -4, 4), at.y + up}, {at.x + size / 8, at.y + 2 * up}};
      if (oneIn(random, 2)) sought.resize(1);
      const PlanarPolygon polygon(sought);
      std::set<std::uint32_t> seen;
      const auto note = [&](std::uint32_t loop) {
        EXPECT_TRUE(seen.insert(loop).second && isIn[loop]);
        return false;
      };
      partition.any(polygon, LoopPartition::Inner::sought, note);
      for (std::uint32_t loop = 0; loop < loops.size(); ++loop) {
        if (!isIn[loop]) continue;
        const bool touches = touch(sought, loops[loop]), contains = strictlyInside(loops[loop], at);
        const bool isContained = strictlyInside(sought, loops[loop][0]);
        EXPECT_TRUE(seen.contains(loop) || !(touches || contains || isContained)) << loop;
        touching += touches;
        containing += contains && !touches;
        contained += isContained && !touches;
        ++tested;
      }
      found += seen.size();
    }
    if (HasFailure()) return;
  }
  EXPECT_GT(touching, 5000u);
  EXPECT_GT(containing, 100u);
  EXPECT_GT(contained, 300u);
  EXPECT_LT(found, tested / 4);
}

/// A corner on an edge, beside a cutting line along other edges in line with it: only the margins make up for rounding.
TEST(LoopPartition, findsEdgesBesideTheCuttingLineAlongThem) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const double dx = pick(random, 3, 13), dy = pick(random, -13, 13);
    const int side = pick(random, 5, 16);
    std::vector<Corners> loops;
    for (int i = 0; i < side * side; ++i) {
      const double x = 10 * dx * (i % side), y = 10 * dy * (i % side) + 40.0 * (i / side);
      loops.push_back({{x, y}, {x + 8 * dx, y + 8 * dy}, {x + 8 * dx, y + 8 * dy + 39}, {x, y + 39}});
    }
    LoopPartition partition;
    ASSERT_TRUE(partition.plan({{-9000.1, -9000.7}, {9e3, 9e3}}, loops.size(),
                               [&](std::uint32_t loop) { return std::span<const Vec2>(loops[loop]); }));
    for (std::uint32_t loop = 0; loop < loops.size(); ++loop) partition.insert(loop, PlanarPolygon(loops[loop]));
    for (std::uint32_t loop = 0; loop < loops.size(); ++loop) {
      for (int i = 0; i <= 256; ++i) {  // points that are exactly on one of the long edges
        const Vec2 from = loops[loop][i % 2 == 0 ? 0 : 3];
        const double t = i / 2 / 16.0;
        const PlanarPolygon point(Corners{{from.x + t * dx, from.y + t * dy}});
        ASSERT_TRUE(
            partition.any(point, LoopPartition::Inner::ignored, [=](std::uint32_t other) { return other == loop; }))
            << loop << " at " << t;
      }
    }
  }
}

TEST(LoopPartition, findsFewAmongNestedLoops) {
  constexpr std::uint32_t kCount = 4000;
  std::vector<Corners> loops;
  for (double a = 2 * kCount; loops.size() < kCount; a -= 2) {  // of the shape of a C
    const double b = a + 1;
    loops.push_back({{-b, -b}, {a, -b}, {a, -a}, {-a, -a}, {-a, a}, {a, a}, {a, b}, {-b, b}});
  }
  LoopPartition partition;
  ASSERT_TRUE(partition.plan({{-9000, -9000}, {9e3, 9e3}}, kCount,
                             [&](std::uint32_t loop) { return std::span<const Vec2>(loops[loop]); }));
  std::size_t found = 0;
  for (std::uint32_t loop = 0; loop < kCount; ++loop) {
    const PlanarPolygon polygon(loops[loop]);
    partition.any(polygon, LoopPartition::Inner::sought, [&](std::uint32_t) { return ++found == 0; });
    partition.insert(loop, polygon);
  }
  EXPECT_LT(found, 10 * kCount);
}

}  // namespace
}  // namespace util
