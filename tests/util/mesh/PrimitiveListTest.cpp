#include <facetbox/util/mesh/PrimitiveList.h>

#include <algorithm>
#include <bit>

#include <gtest/gtest.h>

#include <facetbox/util/mesh/FlipFace.h>
#include <tests/support/PlainMesh.h>

namespace {

using support::describe;
using support::Indices;
using support::pick;
using support::PlainFace;
using util::PrimitiveList;

void expectEqual(const PrimitiveList& list, const std::vector<PlainFace>& twin) {
  ASSERT_EQ(list.size(), twin.size());
  Indices corners, set0;
  for (std::size_t i = 0; i < twin.size(); ++i) {
    EXPECT_EQ(describe(support::plainOf(list.record(i))), describe(twin[i])) << "record " << i;
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
  const util::Polygon record = support::polygonOf(face);
  list.appendUninitialised(static_cast<std::uint32_t>(face.mCorners.size()), record.mTexCoordMask);
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
      const std::size_t i = twin.empty() ? 0 : static_cast<std::size_t>(pick(random, 0, int(twin.size()) - 1));
      const int count = twin.empty() ? 0 : static_cast<int>(twin[i].mCorners.size());
      switch (pick(random, 0, 10)) {
        case 0:
        case 1:
        case 2: {
          twin.push_back(support::randomFace(random, 100, 0, 6));
          // A record without corners has nothing that could belong to them.
          if (twin.back().isCleared()) twin.back().clear();
          list.append(support::polygonOf(twin.back()));
          break;
        }
        case 3: {
          twin.push_back(support::randomFace(random, 100, 1, 6));
          twin.back().mNormalIndices.clear();
          twin.back().mPerVertexNormals = false;
          appendInPlace(list, twin.back());
          break;
        }
        case 4:
          if (twin.empty()) break;
          twin[i].clear();
          list.clear(i);
          break;
        case 5: {
          if (count == 0) break;
          const int kept = pick(random, 1, count);
          twin[i].shrink(static_cast<std::size_t>(kept));
          list.shrink(i, static_cast<std::uint32_t>(kept));
          break;
        }
        case 6: {
          if (count < 2) break;
          const int corner = pick(random, 0, count - 1), normalCorner = pick(random, 0, count - 1);
          twin[i].mCorners.erase(twin[i].mCorners.begin() + corner);
          for (auto& [set, indices] : twin[i].mSets) indices.erase(indices.begin() + corner);
          if (!twin[i].mNormalIndices.empty())
            twin[i].mNormalIndices.erase(twin[i].mNormalIndices.begin() + normalCorner);
          list.eraseCorner(i, static_cast<std::uint32_t>(corner), static_cast<std::uint32_t>(normalCorner));
          break;
        }
        case 7:
          if (count == 0) break;
          twin[i].mTag = pick(random, -1, 5);
          list.setTag(i, twin[i].mTag);
          break;
        case 8: {
          if (count == 0) break;
          // Moves to the pool's end with two more corners there, copies of one of its own.
          const std::size_t from = list.offset(i), copied = static_cast<std::size_t>(pick(random, 0, count - 1));
          list.relocate(i, static_cast<std::uint32_t>(count + 2));
          for (std::size_t c = 0; c < list.cornerCount(i); ++c)
            list.copyCorner(list.offset(i) + c, from + (c < static_cast<std::size_t>(count) ? c : copied));
          const auto grow = [&](Indices& indices) { indices.resize(indices.size() + 2, Indices(indices)[copied]); };
          grow(twin[i].mCorners);
          if (!twin[i].mNormalIndices.empty()) grow(twin[i].mNormalIndices);
          for (auto& [set, indices] : twin[i].mSets) grow(indices);
          break;
        }
        case 9:
          std::erase_if(twin, [](const PlainFace& face) { return face.isCleared(); });
          list.compact();
          EXPECT_FALSE(list.anyCleared());
          break;
        default:
          if (pick(random, 0, 9) != 0) break;
          for (PlainFace& face : twin) face.mNormalIndices.clear();
          list.dropNormalIndices();
      }
    }
    expectEqual(list, twin);
    std::erase_if(twin, [](const PlainFace& face) { return face.isCleared(); });
    list.compact();
    expectEqual(list, twin);
  }
}

TEST(PrimitiveList, arraysThatDoNotFitTheCornersAreNotCarried) {
  util::Polygon record;
  record.mVertexIndices = {1, 2, 3};
  record.mNormalIndices = {1, 2};
  record.mTexCoordCount = 3;
  record.mTexCoordMask = 0b1001;
  record.mTexCoordIndices = {1, 2, 3, 4, 5};
  PrimitiveList list;
  list.append(record);
  EXPECT_EQ(list.mask(0), 0u);
  EXPECT_FALSE(list.hasNormalIndices(0));
}

TEST(FlipFace, reversesTheCycleAndKeepsWhatDescribesTheEdgesWithTheirEdges) {
  PlainFace face{{1, 2, 3, 4}, {5, 6, 7, 8}, {{0, {11, 12, 13, 14}}, {10, {21, 22, 23, 24}}}, {1, -2, 3}, true, 7};
  const PlainFace flippedWithFlag{{2, 1, 4, 3}, {5, 8, 7, 6}, {{0, {12, 11, 14, 13}}, {10, {21, 24, 23, 22}}},
                                  {-1, 2, -3},  true,         7};
  PlainFace flippedWithout = flippedWithFlag;
  flippedWithout.mNormalIndices = {6, 5, 8, 7};
  flippedWithout.mPerVertexNormals = false;

  PrimitiveList list;
  list.append(support::polygonOf(face));
  face.mPerVertexNormals = false;
  list.append(support::polygonOf(face));
  for (std::size_t i = 0; i < 2; ++i) util::flipFace(list, i);
  expectEqual(list, {flippedWithFlag, flippedWithout});
}

}  // namespace
