#include <facetbox/spatial/BoxJoin.h>

#include <tests/support/Meshes.h>

namespace util {
namespace {

using support::pick;

GridBox randomBox(std::mt19937& random, int size, int extent) {
  GridBox box;
  for (int axis = 0; axis < 3; ++axis) {
    box.min[axis] = pick(random, 0, size);
    box.max[axis] = box.min[axis] + pick(random, 0, extent);
  }
  return box;
}

bool meet(const GridBox& a, const GridBox& b) {
  for (int axis = 0; axis < 3; ++axis)
    if (a.min[axis] > b.max[axis] || b.min[axis] > a.max[axis]) return false;
  return true;
}

std::vector<std::uint32_t> inOrder(std::size_t count) {
  std::vector<std::uint32_t> order(count);
  std::iota(order.begin(), order.end(), 0u);
  return order;
}

TEST(BoxJoin, findsThePairsThatAComparisonOfAllFinds) {
  std::mt19937 random(1);
  for (const std::size_t count : {0, 1, 2, 7, 8, 9, 16, 63, 64, 65, 130, 511, 513, 700}) {
    std::vector<GridBox> boxes;
    for (std::size_t i = 0; i < count; ++i) boxes.push_back(randomBox(random, 40, 6));
    const Buffer<std::uint32_t> order = BoxJoin::orderOnCurve(boxes);
    EXPECT_TRUE(std::ranges::is_permutation(order, inOrder(count)));
    std::vector<std::pair<std::size_t, std::size_t>> expected, found;
    for (std::size_t a = 0; a < count; ++a)
      for (std::size_t b = a + 1; b < count; ++b)
        if (meet(boxes[order[a]], boxes[order[b]])) expected.emplace_back(a, b);
    BoxJoin(boxes, order).forEachPair([&](std::size_t a, std::size_t b) {
      found.emplace_back(a, b);
      return true;
    });
    std::ranges::sort(found);
    EXPECT_EQ(found, expected) << count << " boxes";
  }
}

TEST(BoxJoin, findsThePairsOfTwoSets) {
  std::mt19937 random(2);
  for (const std::size_t count : {0, 1, 9, 65, 600})
    for (const std::size_t otherCount : {1, 8, 70, 513}) {
      std::vector<GridBox> boxes, others;
      for (std::size_t i = 0; i < count; ++i) boxes.push_back(randomBox(random, 30, 8));
      for (std::size_t i = 0; i < otherCount; ++i) others.push_back(randomBox(random, 30, 2));
      std::vector<std::pair<std::size_t, std::size_t>> expected, found;
      for (std::size_t a = 0; a < count; ++a)
        for (std::size_t b = 0; b < otherCount; ++b)
          if (meet(boxes[a], others[b])) expected.emplace_back(a, b);
      BoxJoin(boxes, inOrder(count))
          .forEachPair(BoxJoin(others, inOrder(otherCount)), [&](std::size_t a, std::size_t b) {
            found.emplace_back(a, b);
            return true;
          });
      std::ranges::sort(found);
      EXPECT_EQ(found, expected) << count << " and " << otherCount << " boxes";
    }
}

TEST(BoxJoin, findsTheBoxesOnTheWayOfASegment) {
  std::mt19937 random(4);
  std::uniform_real_distribution<double> place(0, 1e9);
  std::size_t met = 0, visited = 0;
  for (const std::size_t count : {0, 1, 9, 65, 600, 5000}) {
    std::vector<GridBox> boxes;
    for (std::size_t i = 0; i < count; ++i) boxes.push_back(randomBox(random, 900'000'000, 100'000'000));
    const BoxJoin join(boxes, BoxJoin::orderOnCurve(boxes));
    const Buffer<std::uint32_t> order = BoxJoin::orderOnCurve(boxes);
    for (int round = 0; round < 50; ++round) {
      double from[3], to[3];
      for (int axis = 0; axis < 3; ++axis)
        from[axis] = place(random), to[axis] = random() % 4 ? place(random) : from[axis];
      std::vector<bool> isFound(count, false);
      EXPECT_TRUE(join.forEachMeeting(GridSegment(from, to, 1e5), [&](std::size_t box) {
        ++visited;
        return isFound[order[box]] = true;
      }));
      for (std::size_t box = 0; box < count; ++box)
        for (int step = 0; step <= 1000 && !isFound[box]; ++step) {
          bool isInside = true;
          for (int axis = 0; axis < 3; ++axis) {
            const double x = from[axis] + step / 1000.0 * (to[axis] - from[axis]);
            isInside = isInside && x >= boxes[box].min[axis] && x <= boxes[box].max[axis];
          }
          EXPECT_FALSE(isInside) << "box " << box << " of " << count;
        }
      met += static_cast<std::size_t>(std::ranges::count(isFound, true));
    }
  }
  EXPECT_EQ(met, visited);
  EXPECT_GT(met, 500u);
  EXPECT_LT(met, 50u * 5000u / 10u) << "hardly any are passed over";
}

TEST(BoxJoin, manyOfOneCellAreSortedByTheLowerBits) {
  // 2000 boxes within a cell of the upper bits, and one that makes this cell small.
  std::mt19937 random(3);
  std::vector<GridBox> boxes{{{0, 0, 0}, {1 << 30, 1 << 30, 1 << 30}}};
  for (int i = 0; i < 2000; ++i) boxes.push_back(randomBox(random, 1 << 19, 1 << 12));
  const Buffer<std::uint32_t> order = BoxJoin::orderOnCurve(boxes);
  EXPECT_TRUE(std::ranges::is_sorted(order, {}, [&](std::uint32_t i) { return BoxJoin::curveKey(boxes[i]); }));
}

TEST(BoxJoin, stopsWhenToldTo) {
  const std::vector<GridBox> boxes(100, GridBox{{0, 0, 0}, {1, 1, 1}});
  for (const int limit : {1, 5, 500}) {
    int visits = 0;
    BoxJoin(boxes, inOrder(100)).forEachPair([&](std::size_t, std::size_t) { return ++visits < limit; });
    EXPECT_EQ(visits, limit);
  }
}

TEST(BoxJoin, theKeyHasTheBitsOfAllThreeAxes) {
  const auto keyOf = [](std::int32_t x, std::int32_t y, std::int32_t z) {
    return BoxJoin::curveKey({{x, y, z}, {x, y, z}});
  };
  constexpr std::int32_t kLast = BoxJoin::kGridSize - 1;
  EXPECT_EQ(keyOf(0, 0, 0), 0u);
  EXPECT_EQ(keyOf(kLast, 0, 0), 0x1249249249249249u);
  EXPECT_EQ(keyOf(kLast, kLast, kLast), (std::uint64_t{1} << 63) - 1);
  for (int bit = 10; bit < 31; ++bit) {
    EXPECT_EQ(keyOf(1 << bit, 0, 0), std::uint64_t{1} << 3 * (bit - 10));
    EXPECT_EQ(keyOf(0, 1 << bit, 0), std::uint64_t{2} << 3 * (bit - 10));
    EXPECT_EQ(keyOf(0, 0, 1 << bit), std::uint64_t{4} << 3 * (bit - 10));
  }
}

}  // namespace
}  // namespace util
