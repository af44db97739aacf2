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
#include <facetbox/util/spatial/BoxIndex.h>
#include <facetbox/util/spatial/ViewVolume.h>
#include <tests/support/Meshes.h>
#include <tests/support/PlainOctree.h>

namespace {

using support::arrayOf;
using support::Cells;
using support::Items;
using support::pick;
using support::PlainOctree;
using util::Box;
using util::Vec3;
using Octree = util::BBoxOctree<unsigned, double>;

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

void expectSame(const Octree& tree, const PlainOctree& plain) {
  EXPECT_EQ(arrayOf(tree.center()), plain.center());
  EXPECT_EQ(tree.halfSize(), plain.halfSize());
  Items items;
  for (const PlainOctree::Record& r : plain.sorted()) items.push_back(r.item);
  EXPECT_EQ(collected(tree), items);
  std::map<std::uint32_t, Items> byCell;
  for (const PlainOctree::Record& r : plain.records()) byCell[r.cell].push_back(r.item);
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
    PlainOctree plain(halfSize);
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

Items foundIn(Octree& tree, const std::array<Vec3, 8>& corners) {
  const util::ViewVolume volume(corners.data());
  std::vector<Octree::Candidate> candidates;
  tree.queryFrustum(volume, candidates);
  Items items;
  for (const Octree::Candidate& candidate : candidates)
    if (tree.meets(candidate, volume)) items.push_back(candidate.record->item);
  return items;
}

/// Boxes and pyramids cut off, on the grid or turned; now and then corners without any sense.
std::array<Vec3, 8> randomVolume(std::mt19937& random, int reach) {
  const auto point = [&](int r) {
    const double x = pick(random, -r, r), y = pick(random, -r, r), z = pick(random, -r, r);
    return Vec3{x, y, z};
  };
  const Vec3 origin = point(reach);
  Vec3 across{1, 0, 0}, up{0, 1, 0}, back{0, 0, 1};
  if (pick(random, 0, 1) == 0) {
    back = point(5);
    across = cross({1, 2, 4}, back);
    up = cross(back, across);
    if (across == Vec3{0, 0, 0}) return randomVolume(random, reach);
    across = across / length(across);
    up = up / length(up);
    back = back / length(back);
  }
  const double nearSize = pick(random, 0, reach) / 2.0, depth = pick(random, 1, 3 * reach),
               farSize = nearSize * pick(random, 1, 3);
  std::array<Vec3, 8> corners;
  for (int k = 0; k < 8; ++k) {
    const double size = k < 4 ? nearSize : farSize;
    const double x = k % 4 == 1 || k % 4 == 2 ? size : -size, y = k % 4 >= 2 ? size : -size;
    corners[static_cast<std::size_t>(k)] = origin + x * across + y * up + (k < 4 ? 0.0 : -depth) * back;
  }
  switch (pick(random, 0, 11)) {
    case 0:
      std::ranges::shuffle(corners, random);
      break;
    case 1:
      for (Vec3& corner : corners) corner = point(reach);
      break;
    case 2:
      corners[static_cast<std::size_t>(pick(random, 0, 7))].y = pick(random, 0, 1) == 0 ? NAN : INFINITY;
      break;
    default:
      break;
  }
  return corners;
}

TEST(BBoxOctree, findsInAViewVolumeWhatTheWrittenOutTestFindsInItsOrder) {
  std::size_t foundInAll = 0;
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    // Few records leave cells without an index; large boxes crowd the upper ones.
    const unsigned count = seed % 3 == 0 ? 40 : 500;
    const int reach = pick(random, 2, 20), size = pick(random, 0, 8);
    // Far off the origin rounding is coarse; near 1e-160 squares underflow.
    const double scale = std::array{1.0, 0.1, 1e-160, 1e80, 1.0}[seed % 5];
    const Vec3 offset = seed % 10 == 4 ? Vec3{1e9, -3e9, 7e8} : Vec3{0, 0, 0};
    const auto place = [&](const Vec3& p) { return scale * p + offset; };
    Octree tree(10 * scale);
    PlainOctree plain(10 * scale);
    for (unsigned item = 0; item < count; ++item) {
      Box box = randomBox(random, reach, size);
      box = {place(box.min), place(box.max)};
      if (item % 50 == 7) box = Box{};
      if (item % 50 == 8 && seed % 4 == 0) box.min.x = item % 100 == 8 ? -INFINITY : -1.7e308;
      if (item % 50 == 9) std::swap(box.min.y, box.max.y);
      tree.ensureContains(box);
      plain.ensureContains(box);
      tree.insert(box, item);
      plain.insert(box, item);
      if (item % 100 == 95) {
        const auto victim = plain.records()[random() % plain.records().size()];
        EXPECT_EQ(tree.remove(victim.box, victim.item), plain.remove(victim.box, victim.item));
      }
      if (item % 100 >= 90) {  // with few appended since the last time, and with many
        auto corners = randomVolume(random, reach);
        for (Vec3& corner : corners) corner = place(corner);
        const Items expected = plain.queryFrustum(corners);
        foundInAll += expected.size();
        EXPECT_EQ(foundIn(tree, corners), expected);
      }
    }
    for (int q = 0; q < 10; ++q) {
      auto corners = randomVolume(random, reach);
      for (Vec3& corner : corners) corner = place(corner);
      const Items expected = plain.queryFrustum(corners);
      foundInAll += expected.size();
      EXPECT_EQ(foundIn(tree, corners), expected);
    }
    if (seed % 4 != 0) expectSame(tree, plain);
  }
  EXPECT_GT(foundInAll, 10000u);
}

TEST(BoxIndex, saysOnlyWhatIsCertainAndTheSameWithAnyInstructions) {
  std::size_t firm = 0, inside = 0, doubtful = 0;
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const double scale = std::array{1.0, 0.1, 1e-160, 1e30}[seed % 4];
    const int reach = pick(random, 2, 20);
    std::vector<Box> boxes;
    for (int i = 0; i < 300; ++i) {
      const Box box = randomBox(random, reach, pick(random, 0, 6));
      boxes.push_back({scale * box.min, scale * box.max});
      if (i % 50 == 7) boxes.back().min.x = NAN;
    }
    util::BoxIndex index;
    index.build(boxes);
    auto corners = randomVolume(random, reach);
    for (Vec3& corner : corners) corner = scale * corner;
    const util::ViewVolume volume(corners.data());
    util::BoxIndex::Found found, base;
    index.find(volume, found);
    index.find(volume, base, util::Instructions::base);
    EXPECT_EQ(found.inside, base.inside);
    EXPECT_EQ(found.firm, base.firm);
    EXPECT_EQ(found.doubtful, base.doubtful);
    for (std::size_t i = 0; i < boxes.size(); ++i) {
      const auto has = [i](const std::vector<std::uint64_t>& bits) { return (bits[i / 64] >> i % 64 & 1) != 0; };
      const bool isCertain = has(found.inside) || has(found.firm), meets = support::meetsVolume(corners, boxes[i]);
      EXPECT_EQ(isCertain || (meets && has(found.doubtful)), meets) << i;
      // What is firm holds for larger boxes, too.
      if (isCertain && volume.isHull()) {
        const Vec3 more = scale * Vec3{random() % 5 / 2.0, random() % 3 / 2.0, 1 / 2.0};
        const Box around{boxes[i].min - more, boxes[i].max + more};
        const Vec3 half = (around.max - around.min) / 2;
        if (has(found.firm) || volume.reachesOut(around.min + half, half)) {
          EXPECT_TRUE(support::meetsVolume(corners, around)) << i;
        }
      }
      firm += has(found.firm), inside += has(found.inside), doubtful += has(found.doubtful);
    }
  }
  EXPECT_GT(std::min({firm, inside, doubtful}), 200u);
}

TEST(ViewVolume, isNotMetByABoxWhosePointInsideLiesBesideIt) {
  // The way to a point inside ends at a corner of the box, less its rim, and an ulp beyond it.
  const std::array<Vec3, 8> corners{
      {{1, -2, -2}, {1, -4, -4}, {-1, -2, 0}, {-1, 0, 2}, {3, 0, 0}, {3, -2, -2}, {1, 0, 2}, {1, 2, 4}}};
  const Vec3 centre{3.6162946682408057, -1.678979038516083, 0.39214199512582321}, half{1.5, 0.5625, 0.625};
  ASSERT_FALSE(support::meetsVolume(corners, centre, half));
  EXPECT_FALSE(util::ViewVolume(corners.data()).meets(centre, half));
}

TEST(BBoxOctree, keepsItsRootWhereABoxIsWithoutEndOnOneAxisAndEmptyOnAnother) {
  Octree tree(10);
  Box box;
  box.max.y = INFINITY;
  tree.ensureContains(box);
  EXPECT_EQ(tree.center(), (Vec3{0, 0, 0}));
  EXPECT_EQ(tree.halfSize(), 10);
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
      forest.insert(i, boxes[i], i);
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
