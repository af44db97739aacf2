#include <facetbox/util/mesh/Maintenance.h>

#include <tests/support/PlainMesh.h>

namespace {

using namespace support;

TEST(RemoveRepeatedIndices, equalsTheWrittenStepsOnRandomFaces) {
  for (unsigned seed = 0; seed < 5000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainFace twin = randomFace(random, pick(random, 1, 4), 1, 9);
    util::PrimitiveList list;
    list.append(polygonOf(twin));
    EXPECT_EQ(util::removeRepeatedIndices(list, 0), removeRepeatedIndices(twin));
    EXPECT_EQ(describe(plainOf(list.record(0))), describe(twin));
  }
}

TEST(Maintenance, everyStepEqualsItsSlowTwinOnRandomMeshes) {
  for (unsigned seed = 0; seed < 1500; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainMesh twin = randomFaceMesh(random, 1.0);
    if (seed % 5 == 0) twin.makeLines();
    if (seed % 10 == 0) twin.mPoints.resize(3, PlainFace{{0}});
    Mesh mesh = buildMesh(twin);
    const int percentage = pick(random, 0, 3) * 30;
    util::PrimitiveList& list = mesh.storage().activePrimitives();
    for (std::size_t i = 0; i < list.size(); ++i) {
      if (pick(random, 0, 99) >= percentage) continue;
      list.clear(i);
      twin.primitives()[i].clear();
    }
    if (seed % 3 == 0) {
      EXPECT_EQ(util::sanitizeFaces(mesh), sanitizeFaces(twin));
    }
    util::compactPrimitives(mesh);
    compactPrimitives(twin);
    expectSame(mesh, twin);

    warmCache(mesh);
    const std::size_t before = twin.mVertices.size();
    removeUnusedVertices(twin);
    EXPECT_EQ(util::removeUnusedVertices(mesh), before - twin.mVertices.size());
    expectSame(mesh, twin);
  }
}

}  // namespace
