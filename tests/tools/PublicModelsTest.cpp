#include <algorithm>
#include <span>

#include <facetbox/math/Box.h>
#include <tests/support/RecordCheck.h>
#include <tools/ModelReader.h>
#include <tools/Steps.h>
#include "ToolTestSupport.h"

namespace tool {
namespace {

/// Models that other people made, with all the faults they have; beside the checkout, or nowhere.
std::vector<fs::path> publicModels() {
  std::vector<fs::path> paths;
  std::error_code isMissing;
  for (const auto& entry : fs::directory_iterator(FACETBOX_MODELS, isMissing))
    if (entry.path().extension() != ".mtl") paths.push_back(entry.path());
  return paths;
}

bool areSame(const Cleanup::MeshData& a, const Cleanup::MeshData& b) {
  const auto same = [](const auto* x, int countX, const auto* y, int countY) {
    return std::ranges::equal(std::span(x, countX), std::span(y, countY));
  };
  return same(a.mVertexCoords, a.mVCCount, b.mVertexCoords, b.mVCCount) &&
         same(a.mIndices, a.mIndexCount, b.mIndices, b.mIndexCount) &&
         same(a.mTexCoords, a.mTCCount, b.mTexCoords, b.mTCCount) &&
         same(a.mTCIndices, a.mTCIndexCount, b.mTCIndices, b.mTCIndexCount) &&
         same(a.mCounts, a.mCountCount, b.mCounts, b.mCountCount) &&
         same(a.mHoles, a.mHolesCount, b.mHoles, b.mHolesCount);
}

double diagonalOf(std::span<const float> coords) {
  util::Box box;
  for (std::size_t i = 0; i < coords.size(); i += 3) box.extend(util::Vec3{coords[i], coords[i + 1], coords[i + 2]});
  return length(box.max - box.min);
}

TEST(PublicModels, areReadAndWrittenWithoutLoss) {
  if (publicModels().empty()) GTEST_SKIP() << "no public models beside the checkout";
  for (const fs::path& path : publicModels()) {
    SCOPED_TRACE(path.filename());
    const Model model = readModel(path.string());
    const Model copy = parseObj(formatObj(model), "copy.obj");
    EXPECT_EQ(copy.mVertices, model.mVertices);
    EXPECT_EQ(copy.mCounts, model.mCounts);
    EXPECT_EQ(copy.mIndices, model.mIndices);
    EXPECT_EQ(copy.mRuns.size(), model.mRuns.size());
  }
}

TEST(PublicModels, everyOperationAnswersWithASoundRecordAndTheSameAgain) {
  if (publicModels().empty()) GTEST_SKIP() << "no public models beside the checkout";
  for (const fs::path& path : publicModels()) {
    for (const ObjectRecord& object : makeRecords(readModel(path.string()))) {
      const Cleanup::MeshData before = object.view();
      if (before.mCountCount == 0) continue;
      const auto length = static_cast<float>(1e-4 * diagonalOf(std::span(before.mVertexCoords, before.mVCCount)));
      using enum StepKind;
      const std::vector<Step> steps{
          {mergeVertices},           {mergeVertices, length},           {removeDouble},      {removeDouble, 0, true},
          {removeCoplanar, 1},       {removeCoplanar, 1, true},         {removeColinear, 1}, {removeColinear, 1, true},
          {removeZeroEdges, length}, {removeZeroArea, length * length}, {conformNormals}};
      for (const Step& step : steps) {
        if (step.mFlag && !before.mTexCoords) continue;  // the flag speaks of them
        SCOPED_TRACE(path.filename().string() + " " + object.name() + " " + describe(step));
        const RecordPtr result = runStep(step, before);
        ASSERT_TRUE(result) << "nothing is left";
        ASSERT_EQ(support::findRecordProblem(*result), "");
        EXPECT_LE(result->mVCCount, before.mVCCount);
        EXPECT_LE(result->mIndexCount, before.mIndexCount);
        EXPECT_TRUE(areSame(*result, *runStep(step, before)));
        if (step.mKind == removeDouble || step.mKind == removeZeroArea) {
          EXPECT_TRUE(areSame(*result, *runStep(step, *result))) << "a second time finds more";
        } else if (step.mKind == conformNormals) {
          EXPECT_TRUE(std::ranges::equal(std::span(result->mCounts, result->mCountCount),
                                         std::span(before.mCounts, before.mCountCount)));
        }
      }
    }
  }
}

}  // namespace
}  // namespace tool
