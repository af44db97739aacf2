#include <facetbox/intersector/Intersector.h>

#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <facetbox/intersector/IntersectionRaster.h>
#include <facetbox/mesh/MeshStorage.h>
#include <tests/support/Meshes.h>
#include <tests/support/PlainIntersector.h>
#include <tests/support/Scenes.h>

namespace {

using support::Answers;
using support::kInfinity;
using support::kNaN;
using support::Matrix;
using support::oneIn;
using support::pick;
using support::PlainIntersector;
using support::Question;
using support::Raster;
using support::shifted;
using support::Vec3;
using testing::ElementsAre;

static_assert(std::is_destructible_v<Intersector> && !std::is_copy_assignable_v<Intersector>);

std::array<float, 16> narrowed(const Matrix& m) {
  std::array<float, 16> narrow;
  std::ranges::transform(m, narrow.begin(), [](double x) { return static_cast<float>(x); });
  return narrow;
}

struct IntersectorTest : testing::Test {
  std::unique_ptr<Intersector> intersector{Intersector::createIntersector()};
  util::Triangulator triangulator;
  support::SceneMeshes meshes;
  const std::array<float, 16> wide = narrowed(support::ortho(20));

  void add(std::size_t handle, const util::Mesh& mesh, const Matrix& matrix = shifted(0, 0, 0)) {
    intersector->addEntry(handle, mesh, matrix.data(), triangulator);
  }
  bool overlaps(std::size_t handle) { return intersector->intersectsFrustum(handle, wide.data(), false); }
};

/// Random triangles between grid points.
util::Mesh tangle(std::mt19937& random, std::uint32_t vertices, int faces) {
  std::vector<Vec3> points;
  for (std::uint32_t i = 0; i < vertices; ++i)
    points.push_back({1.0 * pick(random, -2, 2), 1.0 * pick(random, -2, 2), 1.0 * pick(random, -2, 2)});
  support::Faces corners;
  for (int f = 0; f < faces; ++f) corners.push_back(support::randomIndices(random, 3, vertices));
  return support::meshOf(points, corners);
}

std::vector<util::Mesh> meshesOfAllSizes(std::mt19937& random, const support::SceneMeshes& meshes) {
  std::vector<util::Mesh> all{meshes.cube(), support::meshOf({}, {}), support::meshOf({{0, 0, 0}}, {})};
  for (const std::uint32_t vertices : {3u, 15u, 16u}) all.push_back(tangle(random, vertices, 6));
  all.push_back(tangle(random, 15, 90));
  all.push_back(tangle(random, 60, 300));
  support::Surface grid = support::gridOf(14, 14, [](unsigned, unsigned) { return false; });
  for (Vec3& p : grid.mPoints) p = 0.5 * Vec3{p.x - 7, p.y - 7, 1.0 * pick(random, 0, 1)};
  all.push_back(support::meshOf(grid.mPoints, grid.mFaces));
  return all;
}

Raster randomRaster(std::mt19937& random) {
  Raster raster;
  raster.mWidth = oneIn(random, 20) ? pick(random, -1, 1) : pick(random, 2, 60);
  raster.mHeight = oneIn(random, 20) ? pick(random, -1, 1) : pick(random, 2, 60);
  raster.mCells.assign(static_cast<std::size_t>(std::max(0, raster.mWidth) * std::max(0, raster.mHeight)), 1);
  for (int holes = pick(random, 0, 3); holes > 1 && !raster.mCells.empty(); --holes)
    raster.mCells[random() % raster.mCells.size()] = 0;
  raster.mViewport = {pick(random, -3, 3), pick(random, -3, 3), raster.mWidth, raster.mHeight};
  raster.mOffsetX = pick(random, -3, 3);
  raster.mOffsetY = pick(random, -3, 3);
  if (oneIn(random, 20)) raster.mViewport[random() % 4] = std::array{0, -20, INT_MAX, INT_MIN}[random() % 4];
  if (oneIn(random, 20)) raster.mOffsetX = oneIn(random, 2) ? INT_MAX : INT_MIN;
  return raster;
}

void spoil(std::mt19937& random, Matrix& m, int rarity) {
  if (oneIn(random, rarity)) m[random() % 16] = std::array{kNaN, kInfinity, -1e300, 3e38, 1e-30, 0.0}[random() % 6];
}

/// Mostly all of the scene; behind the eye now and then.
Matrix randomQueryView(std::mt19937& random, int reach) {
  Matrix view = support::randomViewProjection(random, oneIn(random, 2) ? reach : 3 * reach);
  if (oneIn(random, 4)) view = support::ortho(pick(random, 1, 3) * reach);
  if (oneIn(random, 12))
    for (double& x : view) x = -x;
  spoil(random, view, 25);
  return view;
}

TEST_F(IntersectorTest, answersAsTheSlowTwinDoesOnRandomEntries) {
  std::array<int, 5> yes{}, no{};
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::vector<util::Mesh> all = meshesOfAllSizes(random, meshes);
    PlainIntersector plain;
    std::size_t handle = intersector->createHandle();
    const int reach = pick(random, 2, 8);
    for (int step = pick(random, 1, 7); step > 0; --step) {
      const util::Mesh& mesh = all[random() % all.size()];
      switch (pick(random, 0, 9)) {
        case 0: {
          const double d = pick(random, -4, 4) * (oneIn(random, 2) ? 1.0 : oneIn(random, 9) ? kInfinity : 1.0 / 3);
          intersector->relocate(handle, d, 1, -d);
          plain.relocate(d, 1, -d);
          break;
        }
        case 1: {
          // Around most of the scene, or anywhere.
          Vec3 scale{2.0 * reach, 2.0 * reach, 2.0 * reach};
          if (oneIn(random, 3)) scale = {1, 2, 0.5};
          util::Mesh box = oneIn(random, 6) ? mesh : meshes.cube();
          for (Vec3& p : box.storage().mVertices) p = {scale.x * p.x, scale.y * p.y, scale.z * p.z};
          intersector->setOABBox(handle, box, triangulator);
          plain.setBox(box);
          break;
        }
        case 2:
          if (!oneIn(random, 3)) break;
          intersector->dispose(handle);
          handle = intersector->createHandle();
          plain = {};
          break;
        default: {
          Matrix matrix = support::randomPlace(random, reach);
          spoil(random, matrix, 40);
          // A perspective of its own, which some vertices have no place in.
          if (oneIn(random, 6)) matrix[3] = oneIn(random, 2) ? 1 : 0.5;
          add(handle, mesh, matrix);
          plain.addEntry(mesh, matrix);
        }
      }
    }
    for (int q = 0; q < 15; ++q) {
      SCOPED_TRACE(q);
      // What a query has kept must not outlive a move.
      if (oneIn(random, 4)) {
        intersector->relocate(handle, 0.5, 0, q - 7);
        plain.relocate(0.5, 0, q - 7);
      }
      const auto number = [&] { return static_cast<float>(pick(random, -9, 9)); };
      Question question{narrowed(randomQueryView(random, reach)),
                        {number(), number(), number()},
                        {number() / 3, number(), number()},
                        randomRaster(random)};
      if (oneIn(random, 2)) question.mAlong = {0, 0, oneIn(random, 30) ? NAN : -1.0f};
      const Answers expected = plain.answers(question), answers = answersOf(*intersector, handle, question);
      ASSERT_EQ(answers.mYes, expected.mYes);
      ASSERT_TRUE(answers == expected) << testing::PrintToString(answers.mNumbers) << " instead of "
                                       << testing::PrintToString(expected.mNumbers);
      for (std::size_t i = 0; i < 5; ++i) ++(expected.mYes[i] ? yes : no)[i];
    }
    intersector->dispose(handle);
  }
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_GT(yes[i], 100) << i;
    EXPECT_GT(no[i], 100) << i;
  }
}

// Some floats on either side of where one cell ends: adding a half and rounding down is wrong for the last before it.
TEST(IntersectionRaster, roundsToTheNearestCellHalvesAwayFromZero) {
  const std::array<float, 16> identity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  for (int offset = -3; offset <= 3; ++offset) {
    const int viewport[4] = {0, 0, 1, 1};
    const util::IntersectionRaster raster(identity.data(), viewport, nullptr, 0, 0, offset, offset);
    float x = 0;
    for (int i = 0; i < 4; ++i) x = std::nextafterf(x - 0x1p-24f, -1);
    for (int i = 0; i < 16; ++i, x += 0x1p-24f) {
      const float share = x * 0.5f + 0.5f;
      const util::RasterPosition p = raster.project(x, -x, 0);
      EXPECT_EQ(p.mColumn, std::lroundf(share - static_cast<float>(offset))) << x;
      EXPECT_EQ(p.mRow, std::lroundf(1 - (-x * 0.5f + 0.5f) - static_cast<float>(offset))) << x;
    }
  }
}

TEST(Intersector, virtualSlotsFollowTheDestructorInTheOrderOfTheInterface) {
  // Itanium ABI: a pointer to a virtual member holds 1 plus the byte offset of its slot; a destructor takes two slots.
  const auto slotOf = [](auto member) {
    std::ptrdiff_t parts[2];
    static_assert(sizeof(member) == sizeof(parts));
    std::memcpy(parts, &member, sizeof(parts));
    return (parts[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
  };
  EXPECT_THAT(
      (std::array{slotOf(&Intersector::createHandle), slotOf(&Intersector::addEntry), slotOf(&Intersector::setOABBox),
                  slotOf(&Intersector::relocate), slotOf(&Intersector::dispose), slotOf(&Intersector::testRaster),
                  slotOf(&Intersector::intersectsFrustum), slotOf(&Intersector::findNearestInFrustum),
                  slotOf(&Intersector::intersectsRay), slotOf(&Intersector::getPendingCommandCount),
                  slotOf(&Intersector::applyPendingCommands), slotOf(&Intersector::discardPendingCommands)}),
      ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13));
}

TEST_F(IntersectorTest, aHandleLeadsToItsIntersectorAndStartsWithIt) {
  const std::unique_ptr<Intersector> other(Intersector::createIntersector());
  const std::size_t first = intersector->createHandle(), second = intersector->createHandle();
  EXPECT_EQ(Intersector::getAssociatedIntersector(first), intersector.get());
  EXPECT_EQ(Intersector::getAssociatedIntersector(other->createHandle()), other.get());
  const auto* record = reinterpret_cast<const std::uint64_t*>(second);
  EXPECT_EQ(record[0], reinterpret_cast<std::uintptr_t>(intersector.get()));
  EXPECT_EQ(record[1], 2u);
  EXPECT_FALSE(overlaps(first));
}

TEST_F(IntersectorTest, meshesOfSixteenVerticesAreSharedUntilNobodyHasThem) {
  std::mt19937 random(1);
  for (const std::uint32_t vertices : {15u, 16u}) {
    util::Mesh mesh = tangle(random, vertices, 20);
    const std::size_t first = intersector->createHandle(), second = intersector->createHandle();
    add(first, mesh);
    for (Vec3& p : mesh.storage().mVertices) p = p + Vec3{100, 0, 0};
    add(second, mesh);
    EXPECT_TRUE(overlaps(first));
    EXPECT_EQ(overlaps(second), vertices == 16);
    // Moving one leaves the other, also while both share their triangles.
    intersector->relocate(first, 100, 0, 0);
    EXPECT_FALSE(overlaps(first));
    EXPECT_EQ(overlaps(second), vertices == 16);
    intersector->dispose(first);
    intersector->applyPendingCommands();
    const std::size_t third = intersector->createHandle();
    add(third, mesh);
    EXPECT_EQ(overlaps(third), vertices == 16);
    intersector->dispose(second);
    intersector->dispose(third);
    intersector->applyPendingCommands();
    const std::size_t last = intersector->createHandle();
    add(last, mesh);
    EXPECT_FALSE(overlaps(last));
  }
}

TEST_F(IntersectorTest, commandsWaitUntilAQueryOrAreDiscarded) {
  const std::size_t handle = intersector->createHandle();
  EXPECT_TRUE(intersector->relocate(handle, 1, 0, 0));
  EXPECT_TRUE(intersector->setOABBox(handle, meshes.cube(), triangulator));
  add(handle, meshes.cube());
  EXPECT_EQ(intersector->getPendingCommandCount(), 3u);
  EXPECT_TRUE(overlaps(handle));
  EXPECT_EQ(intersector->getPendingCommandCount(), 0u);
  EXPECT_TRUE(intersector->dispose(handle));
  intersector->discardPendingCommands();
  EXPECT_EQ(intersector->getPendingCommandCount(), 0u);
  EXPECT_TRUE(overlaps(handle));
  // No box to move.
  const std::size_t bare = intersector->createHandle();
  add(bare, meshes.cube());
  intersector->relocate(bare, 100, 0, 0);
  EXPECT_FALSE(overlaps(bare));
}

TEST_F(IntersectorTest, aHandleDisposedOfInTheBatchFindsNothing) {
  const std::size_t handle = intersector->createHandle(), other = intersector->createHandle();
  add(handle, meshes.cube());
  intersector->dispose(handle);
  add(handle, meshes.cube());
  intersector->setOABBox(handle, meshes.cube(), triangulator);
  intersector->relocate(handle, 1, 1, 1);
  intersector->dispose(handle);
  add(other, meshes.cube());
  EXPECT_FALSE(overlaps(handle));
  EXPECT_TRUE(overlaps(other));
}

TEST_F(IntersectorTest, noHandleAndThatOfAnotherDoNothingAndFailuresQueueNothing) {
  const std::unique_ptr<Intersector> other(Intersector::createIntersector());
  const std::size_t mine = intersector->createHandle();
  for (const std::size_t handle : {std::size_t{0}, other->createHandle()}) {
    add(handle, meshes.cube());
    EXPECT_FALSE(intersector->setOABBox(handle, meshes.cube(), triangulator));
    EXPECT_FALSE(intersector->relocate(handle, 1, 0, 0));
    EXPECT_FALSE(intersector->dispose(handle));
    EXPECT_FALSE(overlaps(handle));
  }
  const util::Mesh tangled = support::tangledStar();
  EXPECT_THROW(add(mine, tangled), std::runtime_error);
  EXPECT_THROW(intersector->setOABBox(mine, tangled, triangulator), std::runtime_error);
  EXPECT_THROW(intersector->addEntry(mine, meshes.cube(), nullptr, triangulator), std::invalid_argument);
  EXPECT_EQ(intersector->getPendingCommandCount(), 0u);
  // The triangulator stays usable, and a normal is not asked for.
  add(mine, meshes.cube());
  const float origin[] = {0.25f, 0, 9}, direction[] = {0, 0, -2};
  float distance = 0;
  EXPECT_TRUE(intersector->intersectsRay(mine, origin, direction, &distance, nullptr));
  EXPECT_EQ(distance, 4);
}

TEST_F(IntersectorTest, canBeDeletedWithHandlesAliveAndCommandsPending) {
  const std::size_t handle = intersector->createHandle();
  add(handle, meshes.cube());
  intersector->applyPendingCommands();
  add(handle, meshes.cube());
  intersector->dispose(intersector->createHandle());
  intersector.reset();  // nothing leaks: the address sanitizer's leak check sees to that
}

}  // namespace
