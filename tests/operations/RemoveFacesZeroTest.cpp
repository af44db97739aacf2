#include <facetbox/operations/RemoveFacesZero.h>

#include <tests/support/PlainMesh.h>

namespace {

using namespace support;

//   3---2
//   |   | \       The triangle has an area of exactly 0.5, which is not below 0.5.
//   0---1---4
TEST(RemoveFacesZero, removesWhatIsSmallerThanTheThresholdWithItsVertices) {
  Mesh mesh = meshOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}}, {{1, 4, 2}, {0, 1, 2, 3}});
  EXPECT_EQ(util::removeFacesZero(mesh, 0.5), 0u);
  EXPECT_EQ(util::removeFacesZero(mesh, 0.5001), 1u);
  EXPECT_EQ(facesOf(mesh), (Faces{{0, 1, 2, 3}}));
  EXPECT_EQ(mesh.storage().mVertices.size(), 4u);
}

TEST(RemoveFacesZero, equalsItsSlowTwinOnRandomMeshes) {
  unsigned removals = 0;
  for (unsigned seed = 0; seed < 1500; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainMesh twin = randomFaceMesh(random, 1.0);
    if (oneIn(random, 10)) twin.mVertices[0].x = kNaN;
    if (oneIn(random, 10)) twin.makeLines();
    Mesh mesh = buildMesh(twin);
    const double thresholds[] = {0.0, -1.0, 0.5, 1.0, 4.0, 50.0, kNaN};  // areas on the grid hit them exactly
    const double threshold = thresholds[below(random, 7)];

    std::uint64_t expected = 0;
    for (PlainFace& face : twin.mFaces) {
      if (!(threshold > areaOf(twin.mVertices, face.mCorners, face.mNormal))) continue;
      face.clear();
      ++expected;
    }
    if (expected != 0) {
      compactPrimitives(twin);
      removeUnusedVertices(twin);
      ++removals;
    }
    EXPECT_EQ(util::removeFacesZero(mesh, threshold), expected);
    expectSame(mesh, twin);
    EXPECT_EQ(util::removeFacesZero(mesh, threshold), 0u);
  }
  EXPECT_GT(removals, 300u);
}

}  // namespace
