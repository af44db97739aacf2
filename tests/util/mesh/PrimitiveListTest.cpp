#include <facetbox/util/mesh/PrimitiveList.h>

#include <facetbox/util/mesh/FlipFace.h>
#include <tests/support/PlainMesh.h>

namespace {

using namespace support;
using util::PrimitiveList;

void expectEqual(const PrimitiveList& list, const std::vector<PlainFace>& twin) {
  ASSERT_EQ(list.size(), twin.size());
  Indices corners, set0;
  for (std::size_t i = 0; i < twin.size(); ++i) {
    EXPECT_EQ(describe(plainOf(list.record(i))), describe(twin[i])) << "record " << i;
    corners.insert(corners.end(), twin[i].mCorners.begin(), twin[i].mCorners.end());
    const auto set = twin[i].mSets.find(0);
    const Indices indices = set == twin[i].mSets.end() ? Indices(twin[i].mCorners.size(), 0) : set->second;
    set0.insert(set0.end(), indices.begin(), indices.end());
  }
  Indices copied(corners.size());
  list.copyCorners(copied.data());
  EXPECT_EQ(copied, corners);
  list.copyCornerSet(0, copied.data());
  EXPECT_EQ(copied, set0);
}

void appendInPlace(PrimitiveList& list, const PlainFace& face) {
  const util::Polygon record = polygonOf(face);
  list.appendUninitialised(face.mCorners.size(), record.mTexCoordMask);
  const std::size_t i = list.size() - 1;
  std::ranges::copy(face.mCorners, list.corners(i).begin());
  for (const auto& [set, indices] : face.mSets) std::ranges::copy(indices, list.cornerSet(i, set).begin());
  list.setNormal(i, face.mNormal);
  list.setTag(i, face.mTag);
}

TEST(PrimitiveList, manyRandomEditsKeepItEqualToAListOfRecords) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PrimitiveList list;
    std::vector<PlainFace> twin;
    for (int step = 0; step < 60; ++step) {
      const std::size_t i = twin.empty() ? 0 : below(random, twin.size());
      const int count = twin.empty() ? 0 : static_cast<int>(twin[i].mCorners.size());
      const int kind = pick(random, 0, 10);
      if (kind < 3) {
        twin.push_back(randomFace(random, 100, 0, 6));
        // A record without corners has nothing that could belong to them.
        if (twin.back().isCleared()) twin.back().clear();
        list.append(polygonOf(twin.back()));
      } else if (kind == 3) {
        twin.push_back(randomFace(random, 100, 1, 6));
        twin.back().mNormalIndices.clear();
        twin.back().mPerVertexNormals = false;
        appendInPlace(list, twin.back());
      } else if (kind == 4) {
        std::erase_if(twin, [](const PlainFace& face) { return face.isCleared(); });
        list.compact();
        EXPECT_FALSE(list.anyCleared());
      } else if (kind == 5 && oneIn(random, 10)) {
        for (PlainFace& face : twin) face.mNormalIndices.clear();
        list.dropNormalIndices();
      } else if (count == 0) {
        continue;
      } else if (kind == 6) {
        twin[i].clear();
        list.clear(i);
      } else if (kind == 7) {
        const int kept = pick(random, 1, count);
        twin[i].shrink(kept);
        list.shrink(i, kept);
      } else if (kind == 8 && count > 1) {
        const int corner = pick(random, 0, count - 1), normalCorner = pick(random, 0, count - 1);
        twin[i].mCorners.erase(twin[i].mCorners.begin() + corner);
        for (auto& [set, indices] : twin[i].mSets) indices.erase(indices.begin() + corner);
        if (!twin[i].mNormalIndices.empty())
          twin[i].mNormalIndices.erase(twin[i].mNormalIndices.begin() + normalCorner);
        list.eraseCorner(i, corner, normalCorner);
      } else if (kind == 9) {
        list.setTag(i, twin[i].mTag = pick(random, -1, 5));
      } else if (kind == 10) {
        // Moves to the pool's end with two more corners there, copies of one of its own.
        const std::size_t from = list.offset(i), copied = pick(random, 0, count - 1);
        list.relocate(i, count + 2);
        for (int c = 0; c < count + 2; ++c) list.copyCorner(list.offset(i) + c, from + (c < count ? c : copied));
        const auto grow = [&](Indices& indices) { indices.resize(indices.size() + 2, Indices(indices)[copied]); };
        grow(twin[i].mCorners);
        if (!twin[i].mNormalIndices.empty()) grow(twin[i].mNormalIndices);
        for (auto& [set, indices] : twin[i].mSets) grow(indices);
      }
    }
    expectEqual(list, twin);
    std::erase_if(twin, [](const PlainFace& face) { return face.isCleared(); });
    list.compact();
    expectEqual(list, twin);
  }
}

TEST(FlipFace, reversesTheCycleAndKeepsWhatDescribesTheEdgesWithTheirEdges) {
  PlainFace face{{1, 2, 3, 4}, {5, 6, 7, 8}, {{0, {11, 12, 13, 14}}, {10, {21, 22, 23, 24}}}, {1, -2, 3}, true, 7};
  const PlainFace flippedWithFlag{{2, 1, 4, 3}, {5, 8, 7, 6}, {{0, {12, 11, 14, 13}}, {10, {21, 24, 23, 22}}},
                                  {-1, 2, -3},  true,         7};
  PlainFace flippedWithout = flippedWithFlag;
  flippedWithout.mNormalIndices = {6, 5, 8, 7};
  flippedWithout.mPerVertexNormals = false;

  PrimitiveList list;
  list.append(polygonOf(face));
  face.mPerVertexNormals = false;
  list.append(polygonOf(face));
  for (std::size_t i = 0; i < 2; ++i) util::flipFace(list, i);
  expectEqual(list, {flippedWithFlag, flippedWithout});
}

}  // namespace
