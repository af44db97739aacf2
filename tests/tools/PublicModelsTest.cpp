#include <algorithm>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include <facetbox/cleanup/Cleanup.h>
#include <facetbox/math/Box.h>
#include <tests/support/RecordCheck.h>
#include <tools/ModelReader.h>
#include <tools/ObjectMeshes.h>
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

/// A mesh as a record. A record cannot have texture coordinates on only some faces: it has none then.
class FloatRecord {
 public:
  explicit FloatRecord(const facetbox::PolyMesh& mesh)
      : mMesh(mesh), mVertices(mesh.points.begin(), mesh.points.end()) {
    if (std::ranges::count(mesh.texIndices, facetbox::kNone) == 0)
      mPairs.assign(mesh.texCoords.begin(), mesh.texCoords.end());
  }
  Cleanup::MeshData view() {
    Cleanup::MeshData record{};
    const auto show = [](auto& list, auto*& data, int& count) {
      data = list.empty() ? nullptr : list.data();
      count = static_cast<int>(list.size());
    };
    show(mVertices, record.mVertexCoords, record.mVCCount);
    show(mMesh.indices, record.mIndices, record.mIndexCount);
    show(mMesh.counts, record.mCounts, record.mCountCount);
    show(mMesh.holes, record.mHoles, record.mHolesCount);
    if (mPairs.empty()) return record;
    show(mPairs, record.mTexCoords, record.mTCCount);
    show(mMesh.texIndices, record.mTCIndices, record.mTCIndexCount);
    return record;
  }

 private:
  facetbox::PolyMesh mMesh;
  std::vector<float> mVertices, mPairs;
};

struct RecordDeleter {
  void operator()(const Cleanup::MeshData* record) const { Cleanup::freeMeshDataAndHoles(record); }
};
using RecordPtr = std::unique_ptr<const Cleanup::MeshData, RecordDeleter>;

void expectSoundAnswers(const Cleanup::MeshData& before) {
  const auto length = static_cast<float>(1e-4 * diagonalOf(std::span(before.mVertexCoords, before.mVCCount)));
  using Data = Cleanup::MeshData;
  const std::pair<const char*, std::function<const Data*(const Data&)>> operations[] = {
      {"weld exactly", [](const Data& data) { return Cleanup::mergeVertices(0, data); }},
      {"weld", [&](const Data& data) { return Cleanup::mergeVertices(length, data); }},
      {"double", [](const Data& data) { return Cleanup::removeFacesDouble(false, data); }},
      {"double, flag", [](const Data& data) { return Cleanup::removeFacesDouble(true, data); }},
      {"coplanar", [](const Data& data) { return Cleanup::removeEdgesCoplanar(1, false, data); }},
      {"coplanar, flag", [](const Data& data) { return Cleanup::removeEdgesCoplanar(1, true, data); }},
      {"colinear", [](const Data& data) { return Cleanup::removeVerticesColinear(1, false, data); }},
      {"colinear, flag", [](const Data& data) { return Cleanup::removeVerticesColinear(1, true, data); }},
      {"edges", [&](const Data& data) { return Cleanup::removeEdgesZero(length, data); }},
      {"area", [&](const Data& data) { return Cleanup::removeFacesZero(length * length, data); }},
      {"normals", [](const Data& data) { return Cleanup::conformNormals(data); }}};
  for (const auto& [name, run] : operations) {
    SCOPED_TRACE(name);
    const std::string_view operation = name;
    if (operation.ends_with("flag") && !before.mTexCoords) continue;  // the flag speaks of them
    const RecordPtr result(run(before));
    ASSERT_TRUE(result) << "nothing is left";
    ASSERT_EQ(support::findRecordProblem(*result), "");
    EXPECT_LE(result->mVCCount, before.mVCCount);
    EXPECT_LE(result->mIndexCount, before.mIndexCount);
    EXPECT_TRUE(areSame(*result, *RecordPtr(run(before))));
    if (operation.starts_with("double") || operation == "area") {
      EXPECT_TRUE(areSame(*result, *RecordPtr(run(*result)))) << "a second time finds more";
    } else if (operation == "normals") {
      EXPECT_TRUE(std::ranges::equal(std::span(result->mCounts, result->mCountCount),
                                     std::span(before.mCounts, before.mCountCount)));
    }
  }
}

TEST(PublicModels, everyOperationAnswersWithASoundRecordAndTheSameAgain) {
  if (publicModels().empty()) GTEST_SKIP() << "no public models beside the checkout";
  for (const fs::path& path : publicModels()) {
    const Model model = readModel(path.string());
    const ObjectMeshes objects(model, "m");
    for (std::size_t object = 0; object < objects.size(); ++object) {
      SCOPED_TRACE(path.filename().string() + " " + model.mObjects[object].mName);
      FloatRecord record(objects.make(object));
      expectSoundAnswers(record.view());
    }
  }
}

}  // namespace
}  // namespace tool
