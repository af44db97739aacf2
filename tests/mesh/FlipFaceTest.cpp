#include <facetbox/mesh/FlipFace.h>

#include <tests/support/PlainMesh.h>

namespace {

using namespace support;

TEST(FlipFace, reversesTheCycleAndKeepsWhatDescribesTheEdgesWithTheirEdges) {
  PlainFace face{{1, 2, 3, 4}, {5, 6, 7, 8}, {{0, {11, 12, 13, 14}}, {10, {21, 22, 23, 24}}}, {1, -2, 3}, true, 7};
  const PlainFace flippedWithFlag{{2, 1, 4, 3}, {5, 8, 7, 6}, {{0, {12, 11, 14, 13}}, {10, {21, 24, 23, 22}}},
                                  {-1, 2, -3},  true,         7};
  PlainFace flippedWithout = flippedWithFlag;
  flippedWithout.mNormalIndices = {6, 5, 8, 7};
  flippedWithout.mPerVertexNormals = false;

  util::PrimitiveList list;
  list.append(polygonOf(face));
  face.mPerVertexNormals = false;
  list.append(polygonOf(face));
  for (std::size_t i = 0; i < 2; ++i) util::flipFace(list, i);
  EXPECT_EQ(describe(plainOf(list.record(0))), describe(flippedWithFlag));
  EXPECT_EQ(describe(plainOf(list.record(1))), describe(flippedWithout));
}

}  // namespace
