#include <facetbox/mesh/MeshLimits.h>

#include <facetbox/operations/MergeVertices.h>
#include <facetbox/operations/RemoveEdgesCoplanar.h>
#include <facetbox/operations/RemoveEdgesZero.h>
#include <tests/support/Meshes.h>

namespace {

using namespace support;
using util::MeshLimits;

const double kSmall = std::ldexp(1, -20), kLarge = std::ldexp(1, 20);

Mesh scaled(Surface surface, double scale, bool isRelative) {
  for (Vec3& p : surface.mPoints) p = scale * p;
  Mesh mesh = meshOf(surface.mPoints, surface.mFaces);
  if (isRelative) mesh.storage().mLimits = MeshLimits::relativeTo(4 * scale);
  return mesh;
}

TEST(MeshLimits, relativeOnesFollowAnyPowerOfTwo) {
  const MeshLimits one = MeshLimits::relativeTo(3.7), other = MeshLimits::relativeTo(3.7 * kSmall);
  EXPECT_EQ(other.mSliverArea, one.mSliverArea * kSmall * kSmall);
  EXPECT_EQ(other.mLargeTolerance, one.mLargeTolerance * kSmall);
  EXPECT_EQ(other.holeGapSq(5.3 * kSmall), one.holeGapSq(5.3) * kSmall);
  EXPECT_EQ(MeshLimits().holeGapSq(5.3), 6.4e-7);
}

TEST(MeshLimits, aMergeJudgesItsHolesByThem) {
  const Surface ring = gridOf(3, 3, [](unsigned x, unsigned y) { return x == 1 && y == 1; });
  const auto holesAfter = [&](double scale, bool isRelative) {
    Mesh mesh = scaled(ring, scale, isRelative);
    util::removeEdgesCoplanar(mesh, 1, false);
    return holesOf(mesh).size();
  };
  for (const double scale : {kSmall, 1., kLarge}) EXPECT_EQ(holesAfter(scale, true), 3u);
  EXPECT_EQ(holesAfter(1, false), 3u);
  EXPECT_EQ(holesAfter(kSmall, false), 0u);  // every hole would touch
}

TEST(MeshLimits, aWeldGuardsAgainstTurningByThem) {
  // Corner 4 would be welded to corner 0, beyond the opposite edge.
  const Surface pair{{{0.5, -0.1, 0}, {0.5, -2, 0}, {0, 0, 0}, {1, 0, 0}, {0.5, 0.05, 0}}, {{2, 1, 0}, {2, 3, 4}}};
  const auto facesUp = [&](double scale, bool isRelative) {
    Mesh mesh = scaled(pair, scale, isRelative);
    util::mergeVertices(mesh, 0.2 * scale);
    return mesh.storage().mFaces.normal(1).z > 0;
  };
  for (const double scale : {kSmall, 1., kLarge}) EXPECT_TRUE(facesUp(scale, true)) << scale;
  EXPECT_TRUE(facesUp(1, false));
  EXPECT_FALSE(facesUp(kSmall, false));
}

TEST(MeshLimits, aCollapseDropsSliversByThem) {
  const Surface needle{{{0, 0, 0}, {2, 0, 0}, {2, 1e-9, 0}, {2, 1e-3, 0}, {3, 0, 0}, {3, 3, 0}},
                       {{0, 1, 2, 3}, {1, 4, 5}}};
  const auto facesAfter = [&](double scale, bool isRelative) {
    Mesh mesh = scaled(needle, scale, isRelative);
    util::removeEdgesZero(mesh, 1e-6 * scale);
    return facesOf(mesh).size();
  };
  for (const double scale : {kSmall, 1., kLarge}) EXPECT_EQ(facesAfter(scale, true), 2u) << scale;
  EXPECT_EQ(facesAfter(1, false), 2u);
  EXPECT_EQ(facesAfter(kSmall, false), 0u);
}

}  // namespace
