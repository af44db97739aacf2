#include <facetbox/util/operations/RemoveFacesZero.h>

#include <limits>

#include <gtest/gtest.h>

#include <facetbox/util/mesh/MeshStorage.h>
#include <facetbox/util/mesh/PolygonArea.h>
#include <tests/support/PlainMesh.h>

namespace {

using support::describe;
using support::expectConsistent;
using support::Faces;
using support::facesOf;
using support::meshOf;
using support::pick;
using support::PlainFace;
using support::PlainMesh;
using support::plainOf;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(RemoveFacesZero, equalsItsSlowTwinOnRandomMeshes) {
  unsigned removals = 0;
  for (unsigned seed = 0; seed < 1500; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainMesh twin = support::randomFaceMesh(random, 1.0);
    util::Mesh mesh = support::buildMesh(twin);
    support::warmCache(mesh);
    const double thresholds[] = {0.0, -1.0, 0.5, 1.0, 4.0, 50.0, kNaN};  // areas on the grid hit them exactly
    const double threshold = thresholds[pick(random, 0, 6)];

    std::uint64_t expected = 0;
    for (PlainFace& face : twin.mFaces) {
      if (!(threshold > util::computePolygonArea(twin.mVertices, face.mCorners, face.mNormal))) continue;
      face.clear();
      ++expected;
    }
    if (expected != 0) {
      support::compactPrimitives(twin);
      support::removeUnusedVertices(twin);
      ++removals;
    }
    EXPECT_EQ(util::removeFacesZero(mesh, threshold), expected);
    EXPECT_EQ(describe(plainOf(mesh)), describe(twin));
    expectConsistent(mesh);
    EXPECT_EQ(util::removeFacesZero(mesh, threshold), 0u);
  }
  EXPECT_GT(removals, 300u);
}

TEST(RemoveFacesZero, areaEqualToTheThresholdAndNaNAreaAreKept) {
  util::Mesh mesh =
      meshOf({{0, 0, 0}, {2, 0, 0}, {0, 1, 0}, {0, 0.5, 0}, {kNaN, 0, 0}}, {{0, 1, 2}, {0, 1, 3}, {0, 1, 4}});
  EXPECT_EQ(util::removeFacesZero(mesh, 1.0), 1u);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 2}, {0, 1, 3}}));
}

TEST(RemoveFacesZero, thresholdZeroLeavesEvenFacesWithoutCornersAndUnusedVertices) {
  util::Mesh mesh = meshOf({{0, 0, 0}, {1, 1, 1}, {2, 2, 2}, {9, 9, 9}}, {{0, 1, 2}, {0, 1, 2}});
  mesh.storage().mFaces.clear(1);
  const std::string before = describe(plainOf(mesh));
  for (const double threshold : {0.0, -1.0}) EXPECT_EQ(util::removeFacesZero(mesh, threshold), 0u);
  EXPECT_EQ(describe(plainOf(mesh)), before);
  EXPECT_EQ(util::removeFacesZero(mesh, 1e-300), 2u);
  EXPECT_TRUE(mesh.storage().mVertices.empty());
}

TEST(RemoveFacesZero, linesAndPointsAreNotLookedAt) {
  std::vector<util::Polygon> lines(1);
  lines[0].mVertexIndices = {0, 1};
  util::Mesh mesh("", std::vector<util::Vec3>(3), lines, {});
  EXPECT_EQ(util::removeFacesZero(mesh, 100.0), 0u);
  EXPECT_EQ(mesh.storage().mVertices.size(), 3u);
}

}  // namespace
