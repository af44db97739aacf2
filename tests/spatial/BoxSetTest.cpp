#include <facetbox/spatial/BoxSet.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/math/Box.h>
#include <facetbox/spatial/BBoxOctree.h>
#include <facetbox/spatial/BoxIndex.h>
#include <facetbox/spatial/Frustum.h>
#include <tests/support/Meshes.h>
#include <tests/support/PlainOctree.h>

namespace {

using support::arrayOf;
using support::Items;
using support::pick;
using support::PlainOctree;
using util::Box;
using util::BoxSet;
using util::Vec3;

/// Integer corners: plenty of boxes that touch midplanes and each other.
Box randomBox(std::mt19937& random, int reach, int size) {
  const auto point = [&](int low, int high) {
    const double x = pick(random, low, high), y = pick(random, low, high), z = pick(random, low, high);
    return Vec3{x, y, z};
  };
  const Vec3 min = point(-reach, reach);
  return {min, min + point(0, size)};
}

/// A set, and the slow octree that it is compared with.
struct Both {
  explicit Both(double halfSize) : set(halfSize), first(halfSize), plain(halfSize) {}

  void add(const Box& box) {
    set.add(box);
    plain.ensureContains(box);
    plain.insert(box, static_cast<unsigned>(set.size() - 1));
  }
  void moveAll(const Vec3& by) {
    const auto records = plain.sorted();
    std::vector<Box> boxes(records.size());
    plain = PlainOctree(first);
    for (const auto& record : records) {
      boxes[record.item] = {record.box.min + by, record.box.max + by};
      plain.ensureContains(boxes[record.item]);
      plain.insert(boxes[record.item], record.item);
    }
    set.moveAll([&](std::uint32_t number) { return boxes[number]; });
  }

  Items found(const std::array<Vec3, 8>& corners) {
    const util::Frustum volume(corners.data());
    Items items;
    for (const BoxSet::Candidate& candidate : set.queryFrustum(volume, scratch)) {
      const Box& box = set[candidate.number];
      const Vec3 half = (box.max - box.min) / 2;
      if (set.meets(candidate, box.min + half, half, volume, scratch)) items.push_back(candidate.number);
    }
    return items;
  }
  std::size_t expectSameIn(const std::array<Vec3, 8>& corners) {
    const Items expected = plain.queryFrustum(corners);
    EXPECT_EQ(found(corners), expected);
    return expected.size();
  }
  void expectSameOrder() const {
    EXPECT_EQ(arrayOf(set.order().root().center), plain.center());
    EXPECT_EQ(set.order().root().halfSize, plain.halfSize());
    Items items;
    for (const PlainOctree::Record& record : plain.sorted()) items.push_back(record.item);
    EXPECT_EQ(set.order().numbers(), items);
  }

  BoxSet set;
  BoxSet::Scratch scratch;
  double first;
  PlainOctree plain;
};

/// Boxes and truncated pyramids, on the grid or turned; now and then corners that span no volume.
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
    case 3:  // a face that is not quite flat, or clearly not
      corners[static_cast<std::size_t>(pick(random, 0, 7))].z += reach * std::ldexp(1.0, -pick(random, 1, 26));
      break;
    case 4:  // a face folded over
      corners[1] = corners[3] + 0.5 * (corners[2] - corners[0]);
      break;
    default:
      break;
  }
  return corners;
}

TEST(BoxSet, findsWhatTheFormulaFindsInTheOrderOfTheOctree) {
  std::size_t found = 0;
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    // Few boxes have no index; large ones crowd the upper cells.
    const int count = seed % 3 == 0 ? 40 : 500, reach = pick(random, 2, 20), size = pick(random, 0, 8);
    // Far off the origin rounding is coarse; near 1e-160 squares underflow.
    const double scale = std::array{1.0, 0.1, 1e-160, 1e80, 1.0}[seed % 5];
    const Vec3 offset = seed % 10 == 4 ? Vec3{1e9, -3e9, 7e8} : Vec3{0, 0, 0};
    const auto place = [&](const Vec3& p) { return scale * p + offset; };
    const auto volume = [&] {
      auto corners = randomVolume(random, reach);
      for (Vec3& corner : corners) corner = place(corner);
      return corners;
    };
    Both both((seed % 2 == 0 ? 10 : 0.75) * scale);
    for (int i = 0; i < count; ++i) {
      // Outward now and then, so that the root grows late as well.
      Box box = randomBox(random, seed % 4 == 1 ? 1 + reach * i / count : reach, size);
      box = {place(box.min), place(box.max)};
      if (i % 50 == 7) box = Box{};
      if (i % 50 == 8 && seed % 4 == 0) box.min.x = i % 100 == 8 ? -INFINITY : -1.7e308;
      if (i % 50 == 9) std::swap(box.min.y, box.max.y);
      both.add(box);
      if (i % 100 >= 90) found += both.expectSameIn(volume());  // with few appended since the last time, and with many
      if (i % 200 == 150) {
        both.moveAll(scale * Vec3{pick(random, -4, 4) / 3.0, 1, 2.0 * reach});
        both.moveAll(scale * Vec3{0, -1, -2.0 * reach});
      }
    }
    both.expectSameOrder();
    for (int q = 0; q < 10; ++q) found += both.expectSameIn(volume());
  }
  EXPECT_GT(found, 10000u);
}

// They stream in sorted, in heaps, at random, all in one place, or outward from the first.
TEST(BoxSet, keepsTheOrderAndFindsAllWhileBoxesStreamIn) {
  for (int kind = 0; kind < 5; ++kind) {
    SCOPED_TRACE(kind);
    std::mt19937 random(static_cast<unsigned>(kind));
    Both both(10);
    std::size_t found = 0;
    for (int i = 0; i < 3000; ++i) {
      const double a = pick(random, -999, 999) / 10.0, b = pick(random, -999, 999) / 10.0;
      const Vec3 at = std::array{Vec3{i / 30.0 - 50, a, b},
                                 Vec3{i / 100 * 37 % 200 - 100 + a / 100, b / 100, i / 100 * 91 % 200 - 100.0},
                                 Vec3{a, b, pick(random, -99, 99) + 0.5}, Vec3{1, 2, 3},
                                 i * 0.05 * Vec3{std::cos(i * 2.4), std::sin(i * 2.4), std::cos(i * 1.3)}}[kind];
      both.add({at, at + Vec3{1, 1.5, 2}});
      if (i % 61 != 0) continue;
      auto corners = randomVolume(random, 60);
      if (kind == 3 && i % 2 == 0)
        for (Vec3& corner : corners) corner = corner / 20 + at;
      found += both.expectSameIn(corners);
      if (i % 10 == 0) both.expectSameOrder();
    }
    both.moveAll({5, 6, 7});
    for (int q = 0; q < 5; ++q) found += both.expectSameIn(randomVolume(random, 60));
    EXPECT_GT(found, 500u);
  }
}

TEST(BoxIndex, decidesOnlyWhatIsCertainAndTheSameWithAnyInstructions) {
  constexpr std::uint32_t kRange = util::BoxIndex::Found::kPlaneRange;
  std::size_t inside = 0, doubtful = 0, crossed = 0;
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const double scale = std::array{1.0, 0.1, 1e-160, 1e30}[seed % 4];
    const int reach = pick(random, 2, 20), count = seed % 2 == 0 ? 300 : 1200;
    util::ChunkedVector<Box> boxes;
    util::BoxIndex index;
    index.build(boxes);
    for (int i = 0; i < count; ++i) {
      Box box = randomBox(random, reach, pick(random, 0, 6));
      box = {scale * box.min, scale * box.max};
      if (i % 50 == 7) box.min.x = NAN;
      boxes.push_back(box);
      if (i == count / 2)
        index.build(boxes);
      else
        index.append(boxes);
    }
    auto corners = randomVolume(random, reach);
    for (Vec3& corner : corners) corner = scale * corner;
    const util::Frustum volume(corners.data());
    const double largestMargin = util::Frustum::kLargestMargin * volume.magnitude();
    std::array<std::vector<std::uint32_t>, 2> found;
    util::BoxIndex::Found room;
    for (const bool isBase : {false, true}) {
      index.find(volume, volume.isConvex(), room, isBase ? util::Instructions::base : util::Instructions::best);
      found[isBase].assign(room.boxes.begin(), room.boxes.end());
      std::ranges::sort(found[isBase]);
    }
    EXPECT_EQ(found[0], found[1]);
    auto next = found[0].begin();
    for (std::uint32_t i = 0; i < boxes.size(); ++i) {
      const bool isFound = next != found[0].end() && *next / kRange == i;
      const bool isInside = isFound && *next % kRange == 0;
      const bool isCrossed = isFound && *next % kRange == util::BoxIndex::Found::kCrossed;
      next += isFound ? 1 : 0;
      const bool meets = support::meetsVolume(corners, boxes[i]);
      EXPECT_EQ(isInside || (meets && isFound), meets) << i;
      inside += isInside, doubtful += isFound && !isInside && !isCrossed, crossed += isCrossed;
      if (!isInside && !isCrossed) continue;
      // What is concluded for boxes around, whose margins are not too large: with its surface in the box, the volume
      // meets those as well, and with the box inside if they reach out.
      const double most = scale * std::ldexp(reach, -pick(random, 0, 20));
      const Vec3 less{pick(random, 0, 1) * most, pick(random, 0, 1) * most, pick(random, 0, 1) * most};
      const Vec3 more{pick(random, 0, 1) * most, pick(random, 0, 1) * most, pick(random, 0, 1) * most};
      const Box around{boxes[i].min - less, boxes[i].max + more};
      const Vec3 half = (around.max - around.min) / 2, center = around.min + half;
      const double margin = volume.marginFor(center, half);
      if (margin > largestMargin || !volume.isConvex()) continue;
      if (isCrossed || volume.reachesOut(center, half, margin)) {
        EXPECT_TRUE(support::meetsVolume(corners, around)) << i;
      }
    }
    EXPECT_EQ(next, found[0].end());
  }
  EXPECT_GT(std::min({inside, doubtful, crossed}), 500u);
}

// Boxes are moved until they touch a face, an edge or a corner of the volume to within some ulps. There, all shortcuts
// have to agree with the formula, however it rounds.
TEST(BoxSet, findsBoxesThatTouchWithinRounding) {
  std::size_t touching = 0, apart = 0;
  for (unsigned seed = 0; seed < 400; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> unit(-1, 1);
    const auto point = [&] { return Vec3{unit(random), unit(random), unit(random)}; };
    // Thin volumes, turned, some of them far from the origin.
    const Vec3 back = point() / 0.5, across = cross(back, point()), up = cross(back, across);
    const double width = std::exp2(-6 * std::fabs(unit(random))), far = 1 + std::fabs(unit(random));
    const Vec3 offset = (seed % 3 == 0 ? 100 : seed % 3) * point();
    std::array<Vec3, 8> corners;
    for (std::size_t k = 0; k < 8; ++k) {
      const double size = width * (k < 4 ? 1 : far), x = k % 4 == 1 || k % 4 == 2 ? size : -size,
                   y = k % 4 >= 2 ? size : -size;
      corners[k] = offset + x * across + y * up - (k < 4 ? 1.0 : 3.0) * back;
    }
    Both both(10);
    constexpr std::size_t kFaces[6][3] = {{0, 1, 2}, {4, 7, 6}, {0, 3, 7}, {1, 5, 6}, {2, 6, 7}, {0, 4, 5}};
    for (int i = 0; i < 40; ++i) {
      // A box outside, beside a point of a face, an edge or a corner.
      const auto& face = kFaces[random() % 6];
      const double u = i % 3 == 0 ? 0 : std::fabs(unit(random)), v = i % 3 != 2 ? 0 : (1 - u) * std::fabs(unit(random));
      const Vec3 &a = corners[face[0]], &b = corners[face[1]], &c = corners[face[2]];
      const Vec3 p = a + u * (b - a) + v * (c - a), normal = cross(b - a, c - a);
      const Vec3 half = Vec3{1.01, 1.01, 1.01} / 20 + point() / 20;
      const double side = dot(normal, offset - 2 * back - p) < 0 ? 1 : -1;
      const Vec3 sign{std::copysign(1, side * normal.x), std::copysign(1, side * normal.y),
                      std::copysign(1, side * normal.z)};
      const auto boxAt = [&](double away) {
        const Vec3 middle = p + Vec3{sign.x * half.x, sign.y * half.y, sign.z * half.z} + away * side * normal;
        return Box{middle - half, middle + half};
      };
      double in = -0.1, out = 0.1;
      if (!support::meetsVolume(corners, boxAt(in)) || support::meetsVolume(corners, boxAt(out))) continue;
      while ((in + out) / 2 != in && (in + out) / 2 != out && out - in > 1e-17)
        (support::meetsVolume(corners, boxAt((in + out) / 2)) ? in : out) = (in + out) / 2;
      for (const double away : {in, out, in - 1e-16, out + 1e-16}) both.add(boxAt(away));
    }
    const std::size_t met = both.expectSameIn(corners);
    touching += met, apart += both.set.size() - met;
    // With boxes enough for an index, of which the volume meets none.
    for (int i = 0; i < 20; ++i) both.add({{500, 500, 500}, {500, 501, 502}});
    both.expectSameIn(corners);
  }
  EXPECT_GT(std::min(touching, apart), 5000u);
}

TEST(OctreeRoot, aFlatBoxOnAMidplaneGoesLowAndOneThatStraddlesItStays) {
  const util::OctreeRoot root{{0, 0, 0}, 10};
  EXPECT_EQ(root.cellOf({{-1, 5, 5}, {1, 6, 6}}), 0u);
  EXPECT_EQ(root.cellOf({{0, -5, -5}, {0, 5, -5}}), 0u);
  EXPECT_EQ(root.cellOf({{0, 4, -6}, {0, 6, -4}}), 1 + 2 * util::OctreeRoot::kCells[1]);  // low in x, high in y
  EXPECT_EQ(root.cellOf(Box{}), 4u);  // empty: the lowest of the deepest
}

TEST(OctreeRoot, growsByDoublingAroundTheMiddleOfAll) {
  BoxSet set(10);
  set.add({{1, 1, 1}, {2, 2, 2}});
  EXPECT_EQ(set.order().root().center, (Vec3{0, 0, 0}));
  set.add({{0, 0, 0}, {51, 3, 4}});
  EXPECT_EQ(set.order().root().center, (Vec3{25.5, 1.5, 2}));
  EXPECT_EQ(set.order().root().halfSize, 40);
}

TEST(OctreeRoot, ignoresBoxesThatReachTooFar) {
  Box box;
  box.max.y = INFINITY;  // empty on the other axes
  for (const Box& bad : {box, Box{{-INFINITY, 0, 0}, {INFINITY, 1, 1}}, Box{{NAN, 0, 0}, {1, 1, 1}},
                         Box{{0, 0, 1.7e308}, {1, 1, 1.7e308}}}) {
    BoxSet set(10);
    for (int i = 0; i < 20; ++i) set.add(bad);
    set.add({{1, 1, 1}, {2, 2, 2}});
    EXPECT_EQ(set.order().root().center, (Vec3{0, 0, 0}));
    EXPECT_EQ(set.order().root().halfSize, 10);
  }
}

TEST(BBoxOctree, findsWhatALinearSearchFinds) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (unsigned seed = 0; seed < 24; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const int count = seed % 2 == 0 ? 4000 : 300;
    // Scales that make the places of cells round; far from the origin, or very small.
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
    util::BBoxOctree<unsigned> octree;
    octree.plan(boxes, pick(random, 0, 2));
    Items inserted;
    for (unsigned i = 0; i < boxes.size(); ++i) {
      if (pick(random, 0, 3) == 0) continue;
      octree.insert(i, boxes[i], i);
      inserted.push_back(i);
    }
    for (int q = 0; q < 200; ++q) {
      Box query = boxes[random() % boxes.size()];
      if (q % 3 == 0) query.max = query.min;
      if (q % 4 == 0) query = util::columnAlong(q / 4 % 3, query);
      Items found, expected;
      EXPECT_FALSE(octree.any(query, [&](unsigned item) {
        found.push_back(item);
        return false;
      }));
      std::ranges::sort(found);
      std::ranges::copy_if(inserted, std::back_inserter(expected),
                           [&](unsigned item) { return util::boxesMeet(boxes[item], query); });
      EXPECT_EQ(found, expected);
      EXPECT_EQ(octree.any(query, [](unsigned) { return true; }), !expected.empty());
    }
  }
}

}  // namespace
