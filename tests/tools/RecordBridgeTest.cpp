#include <tools/RecordBridge.h>

#include <algorithm>

#include "ToolTestSupport.h"

namespace tool {
namespace {

const std::string kVertices = "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 9 9 9\n";

std::vector<ObjectRecord> recordsOf(const std::string& text) {
  return makeRecords(parseObj(kVertices + text, "t.obj"));
}

TEST(RecordBridge, namesGoInAsTokensAndOnePairStandsInForTextureCoordinates) {
  const auto records = recordsOf("usemtl \xFC\nf 1 2 3\nusemtl b\nf 1 2 3\nusemtl \xFC\nf 3 2 1\n");
  const Cleanup::MeshData record = records[0].view();
  ASSERT_EQ(record.mTexturesCount, 3);
  EXPECT_STREQ(record.mTextures[0], "m0");
  EXPECT_STREQ(record.mTextures[1], "m1");
  EXPECT_STREQ(record.mTextures[2], "m0");
  EXPECT_EQ(record.mTCCount, 2);
  EXPECT_EQ(std::count(record.mTCIndices, record.mTCIndices + 9, 0u), 9);

  const auto unmarked = recordsOf("f 1 2 3\n");
  EXPECT_EQ(unmarked[0].view().mTexturesCount, 0);
  EXPECT_EQ(unmarked[0].view().mTexCoords, nullptr);
  EXPECT_EQ(unmarked[0].view().mVCCount, 12);  // the unused vertex too

  const auto half = recordsOf("vt 0 0\nvt -7 2\nf 1/1 2/2 3/1\nf 1 2 3\n");
  ASSERT_EQ(half[0].view().mTCCount, 6);
  EXPECT_GT(half[0].view().mTexCoords[4], 7);  // away from all others
  EXPECT_EQ(half[0].view().mTCIndices[3], 2U);
}

TEST(RecordBridge, objectsGetTheirOwnVerticesInTheOrderOfTheFile) {
  const auto records = recordsOf("o a\nv 2 0 0\nf 5 1 3\no b\nv 3 0 0\nv 4 0 0\nf 6 3 2\n");
  std::vector<std::vector<float>> xs;
  for (const ObjectRecord& record : records)
    for (int i = (xs.emplace_back(), 0); i < record.view().mVCCount; i += 3)
      xs.back().push_back(record.view().mVertexCoords[i]);
  EXPECT_THAT(xs, ElementsAre(ElementsAre(0, 0, 9, 2), ElementsAre(1, 0, 3, 4)));
}

// Results may list runs with repeated or unsorted starts: the run of a face is the last one before the first start
// behind the face, and the first run where there is none before.
TEST(RecordBridge, runsOfAResultAreReadInTheirOrder) {
  const Model model =
      parseObj(kVertices + "f 1 2 3\nusemtl a\nf 1 2 3\nusemtl b\nf 1 2 3\nusemtl c\nf 1 2 3\nf 1 2 3\n", "t.obj");
  const auto records = makeRecords(model);
  Cleanup::MeshData record = records[0].view();
  ASSERT_EQ(record.mTexturesCount, 4);
  std::uint32_t starts[] = {1, 3, 1, 9};
  record.mTexturesStartFaces = starts;
  Model result = emptyLike(model);
  records[0].append(record, result);
  ASSERT_EQ(result.mRuns.size(), 2U);
  EXPECT_EQ(result.mRuns[0].mLabel, Label{});  // faces 0 to 2: no run before the first start behind, so run 0
  EXPECT_EQ(result.mRuns[1].mFirstFace, 3U);   // faces 3 and 4: the first start behind is 9
  EXPECT_EQ(result.mMaterials[static_cast<std::size_t>(result.mRuns[1].mLabel.mMaterial)], "b");
}

TEST(RecordBridge, groupsThatLostTheirHolesAreNotHandedOn) {
  const Model model = parseObj(kVertices + "f 1 2 3\nf 1 2 3\nf 1 2 3\n", "t.obj");
  const auto records = makeRecords(model);
  Cleanup::MeshData record = records[0].view();
  std::uint32_t holes[] = {1, kEndOfGroup, 2, 0, kEndOfGroup, 0, kEndOfGroup};
  record.mHoles = holes;
  record.mHolesCount = 7;
  Model result = emptyLike(model);
  records[0].append(record, result);
  EXPECT_THAT(result.mHoles, ElementsAre(2, 0, kEndOfGroup));
  EXPECT_NO_THROW(parseObj(formatObj(result), "again"));
}

TEST(RecordBridge, aFaceThatWasMergedAcrossTheTextureBorderHasNoTextureCoordinates) {
  const Model model = parseObj(kVertices + "vt 0 0\nvt 1 1\nf 1/1 2/2 3/2\nf 1/2 2/2 3/2\nf 1 2 3\n", "t.obj");
  const auto records = makeRecords(model);
  Cleanup::MeshData record = records[0].view();
  std::vector<std::uint32_t> texIndices(record.mTCIndices, record.mTCIndices + record.mTCIndexCount);
  texIndices[0] = texIndices[8];  // as if corner 0 came from the face without
  record.mTCIndices = texIndices.data();
  Model result = emptyLike(model);
  records[0].append(record, result);
  const auto none = kNoTexCoord;
  EXPECT_THAT(result.mTexIndices, ElementsAre(none, none, none, 0, 0, 0, none, none, none));
  EXPECT_THAT(result.mTexCoords, ElementsAre(1, 1));
}

}  // namespace
}  // namespace tool
