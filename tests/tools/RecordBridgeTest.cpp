#include <tools/RecordBridge.h>

#include "ToolTestSupport.h"

namespace tool {
namespace {

const std::string kVertices = "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 9 9 9\n";

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

}  // namespace
}  // namespace tool
