#include <facetbox/util/spatial/BBoxOctree.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/util/math/Box.h>
#include <facetbox/util/spatial/BoxForest.h>
#include <tests/support/Meshes.h>

namespace {

using support::pick;
using util::Box;
using util::Vec3;
using Octree = util::BBoxOctree<unsigned, double>;
using Cells = std::vector<std::uint32_t>;
using Items = std::vector<unsigned>;

std::array<double, 3> arrayOf(const Vec3& v) { return {v.x, v.y, v.z}; }

/// The records of a tree in one list, each with its cell; all looked at in every query.
class PlainTree {
 public:
  explicit PlainTree(double halfSize) : mHalfSize(halfSize) {}

  struct Record {
    Box box;
    unsigned item;
    std::uint32_t cell;
  };
  struct Cube {
    std::array<double, 3> center;
    double halfSize;
  };

  std::uint32_t cellOf(const Box& box) const {
    std::uint32_t cell = 0;
    std::array<double, 3> c = mCenter;
    double h = mHalfSize;
    const auto min = ::arrayOf(box.min), max = ::arrayOf(box.max);
    for (int descents = 0; descents < 4; ++descents) {
      std::array<bool, 3> low{}, high{};
      for (int a = 0; a < 3; ++a) {
        low[a] = c[a] >= max[a];
        high[a] = !low[a] && min[a] >= c[a];
        if (!low[a] && !high[a]) return cell;
      }
      h = h / 2;
      cell = 8 * cell + 1 + (high[2] ? 4 : 0) + (high[1] ? 2 : 0) + (high[0] ? 1 : 0);
      for (int a = 0; a < 3; ++a) c[a] += high[a] ? h : -h;
    }
    return cell;
  }

  /// The way from the root to a cell; comparing ways compares by depth first, children by number.
  static Cells wayTo(std::uint32_t cell) {
    Cells way;
    for (; cell != 0; cell = (cell - 1) / 8) way.insert(way.begin(), cell);
    return way;
  }

  Cube cubeOf(std::uint32_t cell) const {
    Cube cube{mCenter, mHalfSize};
    for (const std::uint32_t step : wayTo(cell)) {
      cube.halfSize /= 2;
      for (int a = 0; a < 3; ++a) cube.center[a] += ((step - 1) >> a & 1) != 0 ? cube.halfSize : -cube.halfSize;
    }
    return cube;
  }

  void insert(const Box& box, unsigned item) { mRecords.push_back({box, item, cellOf(box)}); }

  bool remove(const Box& box, unsigned item) {
    const auto found = std::ranges::find_if(mRecords, [&](const Record& r) { return r.item == item && r.box == box; });
    if (found == mRecords.end()) return false;
    mRecords.erase(found);
    return true;
  }

  std::vector<Record> sorted() const {
    std::vector<Record> records = mRecords;
    std::ranges::stable_sort(records, {}, [](const Record& r) { return wayTo(r.cell); });
    return records;
  }

  void ensureContains(const Box& box) {
    bool contained = true;
    for (int a = 0; a < 3; ++a)
      contained = contained && ::arrayOf(box.max)[a] <= mCenter[a] + mHalfSize &&
                  mCenter[a] - mHalfSize <= ::arrayOf(box.min)[a];
    if (contained) return;
    const std::vector<Record> records = sorted();
    Box all = box;
    for (const Record& r : records) all.extend(r.box);
    double half = 0;
    for (int a = 0; a < 3; ++a) {
      mCenter[a] = (::arrayOf(all.min)[a] + ::arrayOf(all.max)[a]) / 2;
      half = std::max(half, (::arrayOf(all.max)[a] - ::arrayOf(all.min)[a]) / 2);
    }
    while (half > mHalfSize) mHalfSize *= 2;
    mRecords.clear();
    for (const Record& r : records) insert(r.box, r.item);
  }

  Cells queryBox(const Box& box) const {
    const auto meets = [&](std::uint32_t cell) {
      const Cube cube = cubeOf(cell);
      for (int a = 0; a < 3; ++a)
        if (std::min(::arrayOf(box.max)[a], cube.center[a] + cube.halfSize) <
            std::max(::arrayOf(box.min)[a], cube.center[a] - cube.halfSize))
          return false;
      return true;
    };
    std::set<Cells> ways;
    for (const Record& r : mRecords) ways.insert(wayTo(r.cell));
    Cells found;
    for (const Cells& way : ways)
      if (meets(0) && std::ranges::all_of(way, meets)) found.push_back(way.empty() ? 0 : way.back());
    return found;
  }

  std::int32_t subtreeCount(std::uint32_t cell) const {
    return static_cast<std::int32_t>(std::ranges::count_if(mRecords, [&](const Record& r) {
      const Cells way = wayTo(r.cell);
      return cell == 0 || std::ranges::find(way, cell) != way.end();
    }));
  }

  const std::vector<Record>& records() const { return mRecords; }
  std::array<double, 3> center() const { return mCenter; }
  double halfSize() const { return mHalfSize; }

 private:
  std::vector<Record> mRecords;
  std::array<double, 3> mCenter{0, 0, 0};
  double mHalfSize;
};

/// Integer corners: plenty of boxes that touch midplanes and each other.
Box randomBox(std::mt19937& random, int reach, int size) {
  const auto point = [&](int low, int high) {
    const double x = pick(random, low, high), y = pick(random, low, high), z = pick(random, low, high);
    return Vec3{x, y, z};
  };
  const Vec3 min = point(-reach, reach);
  return {min, min + point(0, size)};
}

Items collected(const Octree& tree) {
  Items items;
  tree.collectAll(items);
  return items;
}

Cells queried(const Octree& tree, const Box& box) {
  Cells cells;
  tree.queryBox(box, cells);
  return cells;
}

void expectSame(const Octree& tree, const PlainTree& plain) {
  EXPECT_EQ(::arrayOf(tree.center()), plain.center());
  EXPECT_EQ(tree.halfSize(), plain.halfSize());
  Items items;
  for (const PlainTree::Record& r : plain.sorted()) items.push_back(r.item);
  EXPECT_EQ(collected(tree), items);
  std::map<std::uint32_t, Items> byCell;
  for (const PlainTree::Record& r : plain.records()) byCell[r.cell].push_back(r.item);
  for (std::uint32_t cell = 0; cell < Octree::kCellCount; ++cell) {
    Items inCell;
    for (const auto& record : tree.records(cell)) inCell.push_back(record.item);
    if (byCell.contains(cell) || !inCell.empty()) {
      EXPECT_EQ(inCell, byCell[cell]) << "cell " << cell;
    }
    if (cell < 73) {
      EXPECT_EQ(tree.subtreeCount(cell), plain.subtreeCount(cell)) << "cell " << cell;
    }
  }
}

TEST(BBoxOctree, doesWhatALinearListDoes) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const double halfSize = pick(random, 1, 3) * 0.75;
    Octree tree(halfSize);
    PlainTree plain(halfSize);
    const int reach = pick(random, 1, 60), size = pick(random, 0, 6);
    for (unsigned item = 0; item < 120; ++item) {
      const Box box = randomBox(random, reach, size);
      if (pick(random, 0, 9) > 0) {  // now and then a box is stored beyond the root
        tree.ensureContains(box);
        plain.ensureContains(box);
      }
      tree.insert(box, item);
      plain.insert(box, item);
      if (pick(random, 0, 3) == 0) {
        const auto victim = plain.records()[random() % plain.records().size()];
        EXPECT_TRUE(tree.remove(victim.box, victim.item));
        EXPECT_TRUE(plain.remove(victim.box, victim.item));
        EXPECT_FALSE(tree.remove(victim.box, victim.item));
      }
      const Box query = randomBox(random, reach + 3, 2 * size);
      EXPECT_EQ(queried(tree, query), plain.queryBox(query));
    }
    expectSame(tree, plain);

    std::vector<Octree::Record> records;
    tree.extractAll(records);
    ASSERT_EQ(records.size(), plain.records().size());
    const auto sorted = plain.sorted();
    for (std::size_t i = 0; i < records.size(); ++i) EXPECT_EQ(records[i].item, sorted[i].item);
    EXPECT_TRUE(collected(tree).empty());
    EXPECT_TRUE(queried(tree, randomBox(random, 0, 100)).empty());
  }
}

TEST(BBoxOctree, sendsABoxFlatOnTheMidplaneLow) {
  Octree tree(10);
  tree.insert({{0, 5, -5}, {0, 6, -4}}, 1);  // low in x, high in y, low in z
  EXPECT_EQ(tree.subtreeCount(Octree::childOf(0, 2)), 1);
}

TEST(BBoxOctree, keepsAStraddlingBoxInTheRoot) {
  Octree tree(10);
  tree.insert({{-1, 5, 5}, {1, 6, 6}}, 7);
  ASSERT_EQ(tree.records(0).size(), 1u);
  EXPECT_EQ(queried(tree, {{9, -9, -9}, {9, -9, -9}}), Cells{0});
  EXPECT_EQ(queried(tree, {{10.5, 0, 0}, {11, 1, 1}}), Cells{});
}

TEST(BBoxOctree, growsByDoublingAroundTheMiddleOfAll) {
  Octree tree(10);
  tree.ensureContains({{1, 1, 1}, {2, 2, 2}});
  EXPECT_EQ(tree.center(), (Vec3{0, 0, 0}));
  tree.insert({{1, 1, 1}, {2, 2, 2}}, 1);
  tree.ensureContains({{0, 0, 0}, {51, 3, 4}});
  EXPECT_EQ(tree.center(), (Vec3{25.5, 1.5, 2}));
  EXPECT_EQ(tree.halfSize(), 40);
  EXPECT_EQ(collected(tree), Items{1});
}

TEST(BBoxOctree, storesAnEmptyBoxInTheLowestOfTheDeepestCells) {
  Octree tree(10);
  tree.ensureContains(Box{});
  EXPECT_EQ(tree.halfSize(), 10);
  tree.insert(Box{}, 4);
  EXPECT_EQ(tree.records(585).size(), 1u);
}

TEST(BBoxOctree, survivesBoxesWithoutAPlace) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  for (const double bad : {kInfinity, kNan, 1.7e308}) {
    Octree tree(10);
    for (const Box& box : {Box{{-bad, 0, 0}, {bad, 1, 1}}, Box{{0, 0, bad}, {1, 1, bad}}, Box{{1, 1, 1}, {2, 2, 2}}}) {
      tree.ensureContains(box);
      tree.insert(box, 3);
    }
    EXPECT_EQ(collected(tree).size(), 3u);
    std::size_t found = 0;
    for (const std::uint32_t cell : queried(tree, {{1, 1, 1}, {2, 2, 2}}))
      found += static_cast<std::size_t>(
          std::ranges::count(tree.records(cell), Box{{1, 1, 1}, {2, 2, 2}}, &Octree::Record::box));
    EXPECT_EQ(found, 1u);
  }
}

TEST(BBoxOctree, holdsSharesOfItsItems) {
  const auto item = std::make_shared<int>(1);
  util::BBoxOctree<std::shared_ptr<int>, double> tree(1);
  tree.insert({{0, 0, 0}, {1, 1, 1}}, item);
  tree.ensureContains({{5, 5, 5}, {6, 6, 6}});
  EXPECT_EQ(item.use_count(), 2);
  EXPECT_TRUE(tree.remove({{0, 0, 0}, {1, 1, 1}}, item));
  EXPECT_EQ(item.use_count(), 1);
}

TEST(BoxForest, findsWhatALinearSearchFinds) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (unsigned seed = 0; seed < 24; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const int count = seed % 2 == 0 ? 4000 : 300;
    // Fractions without an end in binary, so that cells have rounded places; far off the origin, or all but flat.
    const double scale = std::array{0.1, 1e-300, 1e290, 1.0 / 3}[seed % 4];
    const Vec3 offset = seed % 3 == 0 ? Vec3{1e6 * scale, -3e6 * scale, 0} : Vec3{0, 0, 0};
    std::vector<Box> boxes;
    for (int i = 0; i < count; ++i) {
      const Box box = randomBox(random, 40, 3);
      boxes.push_back({scale * box.min + offset, scale * box.max + offset});
      if (i % 50 == 7) boxes.back() = Box{};
      if (i % 50 == 8) boxes.back().max.x = kInfinity;
      if (i % 50 == 9) boxes.back().min.y = -1.7e308;
    }
    util::BoxForest<unsigned> forest;
    forest.plan(boxes, pick(random, 0, 2));
    Items inserted;
    for (unsigned i = 0; i < boxes.size(); ++i) {
      if (pick(random, 0, 3) == 0) continue;
      forest.insert(i, i);
      inserted.push_back(i);
    }
    for (int q = 0; q < 200; ++q) {
      Box query = boxes[random() % boxes.size()];
      if (q % 3 == 0) query.max = query.min;
      if (q % 4 == 0) query = util::columnAlong(q / 4 % 3, query);
      Items found, expected;
      EXPECT_FALSE(forest.any(query, [&](unsigned item) {
        found.push_back(item);
        return false;
      }));
      std::ranges::sort(found);
      std::ranges::copy_if(inserted, std::back_inserter(expected),
                           [&](unsigned item) { return util::boxesMeet(boxes[item], query); });
      EXPECT_EQ(found, expected);
      EXPECT_EQ(forest.any(query, [](unsigned) { return true; }), !expected.empty());
    }
  }
}

}  // namespace
