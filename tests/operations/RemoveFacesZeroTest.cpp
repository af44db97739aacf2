#include <facetbox/operations/RemoveFacesZero.h>

#include <facetbox/mesh/PolygonArea.h>
#include <tests/support/PlainMesh.h>

namespace {

using namespace support;

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
      if (!(threshold > util::computePolygonArea(twin.mVertices, face.mCorners, face.mNormal))) continue;
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
