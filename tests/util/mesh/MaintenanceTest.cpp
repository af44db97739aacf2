#include <facetbox/util/mesh/Maintenance.h>

#include <gtest/gtest.h>

#include <facetbox/util/mesh/MeshStorage.h>
#include <tests/support/PlainMesh.h>

namespace {

using support::describe;
using support::expectConsistent;
using support::facesOf;
using support::holesOf;
using support::Indices;
using support::kEnd;
using support::meshOf;
using support::pick;
using support::PlainFace;
using support::PlainMesh;
using support::plainOf;
using util::PrimitiveList;
using util::Vec3;

/// The face after removeRepeatedIndices, with what it returned.
std::pair<bool, PlainFace> withoutRepeats(const PlainFace& face) {
  PrimitiveList list;
  list.append(support::polygonOf(face));
  const bool changed = util::removeRepeatedIndices(list, 0);
  return {changed, plainOf(list.record(0))};
}

TEST(RemoveRepeatedIndices, removesOnlyConsecutiveRepeatsAndClearsWhatIsLeftWithTwo) {
  const auto cornersAfter = [](const Indices& corners) {
    PlainFace face;
    face.mCorners = corners;
    return withoutRepeats(face).second.mCorners;
  };
  EXPECT_EQ(cornersAfter({4, 4, 5, 6, 4}), Indices({4, 5, 6}));
  EXPECT_EQ(cornersAfter({4, 5, 4, 5}), Indices({4, 5, 4, 5}));
  for (const Indices& corners : {Indices{4, 4, 5}, Indices{4, 4, 4}, Indices{4, 5, 4}, Indices{4}, Indices{4, 5}})
    EXPECT_EQ(cornersAfter(corners), Indices());
}

TEST(RemoveRepeatedIndices, collapsedRunKeepsTexturesOfItsFirstCornerAndNormalsOfItsLast) {
  const PlainFace face{{4, 4, 5, 6, 6, 6},
                       {10, 11, 12, 13, 14, 15},
                       {{0, {20, 21, 22, 23, 24, 25}}, {10, {30, 31, 32, 33, 34, 35}}, {11, {40, 41, 42, 43, 44, 45}}},
                       {0, 0, 1},
                       true,
                       -1};
  const auto [changed, after] = withoutRepeats(face);
  EXPECT_TRUE(changed);
  EXPECT_EQ(after.mNormalIndices, Indices({11, 12, 15}));
  EXPECT_EQ(after.mSets.at(0), Indices({20, 22, 23}));
  EXPECT_EQ(after.mSets.at(10), Indices({31, 32, 35}));
  EXPECT_EQ(after.mSets.at(11), Indices({40, 42, 43}));
}

TEST(RemoveRepeatedIndices, equalsTheWrittenStepsOnRandomFaces) {
  for (unsigned seed = 0; seed < 5000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainFace twin = support::randomFace(random, pick(random, 1, 4), 1, 9);
    const auto [changed, after] = withoutRepeats(twin);
    EXPECT_EQ(changed, support::removeRepeatedIndices(twin));
    EXPECT_EQ(describe(after), describe(twin));
  }
}

TEST(Maintenance, everyStepEqualsItsSlowTwinOnRandomMeshes) {
  for (unsigned seed = 0; seed < 1500; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainMesh twin = support::randomFaceMesh(random, 1.0);
    if (seed % 5 == 0) {  // lines instead, and points beside them
      twin.mLines = std::move(twin.mFaces);
      twin.mFaces.clear();
      twin.mHoles.clear();
      if (seed % 2 == 0) twin.mPoints.resize(3, PlainFace{{0}, {}, {}, {0, 0, 0}, false, -1});
    }
    util::Mesh mesh = support::buildMesh(twin);
    support::warmCache(mesh);
    const int percentage = pick(random, 0, 2) * 30;
    util::PrimitiveList& list = mesh.storage().activePrimitives();
    auto& twins = !twin.mPoints.empty() ? twin.mPoints : twin.mLines.empty() ? twin.mFaces : twin.mLines;
    for (std::size_t i = 0; i < list.size(); ++i) {
      if (pick(random, 0, 99) >= percentage) continue;
      list.clear(i);
      twins[i].clear();
    }

    if (seed % 3 == 0) {
      EXPECT_EQ(util::sanitizeFaces(mesh), support::sanitizeFaces(twin));
    }
    util::compactPrimitives(mesh);
    support::compactPrimitives(twin);
    EXPECT_EQ(describe(plainOf(mesh)), describe(twin));
    expectConsistent(mesh);

    support::warmCache(mesh);
    const std::size_t before = twin.mVertices.size();
    support::removeUnusedVertices(twin);
    EXPECT_EQ(util::removeUnusedVertices(mesh), before - twin.mVertices.size());
    EXPECT_EQ(describe(plainOf(mesh)), describe(twin));
    expectConsistent(mesh);
  }
}

TEST(CompactPrimitives, discardsTheConnectivityOfDroppedFaces) {
  util::Mesh mesh = meshOf(std::vector<Vec3>(4), {{0, 1, 2}, {1, 2, 3}});
  support::warmCache(mesh);
  mesh.storage().mFaces.clear(1);
  util::compactPrimitives(mesh);
  expectConsistent(mesh);
}

TEST(RemoveUnusedVertices, rewritesLinesBesidePoints) {
  std::vector<util::Polygon> lines(1), points(1);
  lines[0].mVertexIndices = {2, 3};
  points[0].mVertexIndices = {1};
  util::Mesh mesh("", std::vector<Vec3>(4), lines, points);
  EXPECT_EQ(util::removeUnusedVertices(mesh), 1u);
  EXPECT_EQ(describe(plainOf(mesh).mLines[0]).substr(0, 14), " corners[ 1 2 ");
  expectConsistent(mesh);
}

TEST(RemoveUnusedVertices, meshWithoutPrimitivesLosesEveryVertex) {
  util::Mesh mesh("", {{1, 2, 3}, {4, 5, 6}}, {});
  mesh.storage().mVertexIndexLists.resize(2);
  EXPECT_EQ(util::removeUnusedVertices(mesh), 2u);
  EXPECT_TRUE(mesh.storage().mVertices.empty());
  expectConsistent(mesh);
}

TEST(SanitizeFaces, holeGoesWhenItSticksOutTouchesOrSpansANotch) {
  // A square with a bulge on the right and a notch in its upper edge.
  const std::vector<Vec3> outer{{0, 0, 0}, {9, 0, 0}, {10, 4, 0}, {9, 9, 0}, {5, 3, 0}, {0, 9, 0}};
  const auto survives = [&](const std::vector<Vec3>& hole) {
    std::vector<Vec3> points = outer;
    points.insert(points.end(), hole.begin(), hole.end());
    util::Mesh mesh = meshOf(points, {{0, 1, 2, 3, 4, 5}, {6, 7, 8}}, {0, 1, kEnd});
    const bool changed = util::sanitizeFaces(mesh);
    EXPECT_EQ(changed, facesOf(mesh).size() == 1);
    EXPECT_EQ(holesOf(mesh), changed ? Indices({0, kEnd}) : Indices({0, 1, kEnd}));
    expectConsistent(mesh);
    return !changed;
  };
  EXPECT_TRUE(survives({{1, 1, 0}, {2, 1, 0}, {1, 2, 0}}));
  EXPECT_TRUE(survives({{1, 1, 5}, {2, 1, 5}, {1, 2, 5}}));  // seen along the normal
  EXPECT_FALSE(survives({{1, 1, 0}, {11, 1, 0}, {1, 2, 0}}));
  EXPECT_FALSE(survives({{1, 1, 0}, {10, 4, 0}, {1, 2, 0}}));
  EXPECT_FALSE(survives({{-9, -9, 0}, {40, 0, 0}, {0, 40, 0}}));
  EXPECT_FALSE(survives({{1, 6, 0}, {8, 5.9, 0}, {8, 6, 0}}));    // only its edges leave
  EXPECT_FALSE(survives({{2, 3.5, -1}, {2, 5, -1}, {2, 4, 2}}));  // upright: seen along x it holds the bulge's tip
}

}  // namespace
