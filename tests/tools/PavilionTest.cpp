#include <algorithm>
#include <array>
#include <map>
#include <set>

#include <tools/FacePool.h>
#include "ToolTestSupport.h"

namespace tool {
namespace {

using Corner = std::array<double, 5>;  // position and texture coordinates; -1, -1 for none

struct Polygon {
  std::string mMaterial;
  std::vector<Corner> mCorners;  // from the smallest on, so that it does not matter where a face starts
  std::vector<std::vector<Corner>> mHoles;
  auto operator<=>(const Polygon&) const = default;
};

// What a model looks like, whatever the order of its faces and vertices.
std::multiset<Polygon> polygonsOf(const Model& read) {
  const FacePool model = poolOf(read, "");
  const facetbox::PolyMesh& mesh = read.objects.at(0).mesh;  // the only one
  std::vector<Polygon> polygons(model.faceCount());
  std::size_t corner = 0;
  for (std::size_t face = 0; face < polygons.size(); ++face) {
    polygons[face].mMaterial = model.mMaterials[model.mMaterialOf[face]];
    auto& corners = polygons[face].mCorners;
    for (const std::size_t end = corner + model.mCounts[face]; corner < end; ++corner) {
      const double* p = &model.mVertices[std::size_t{3} * model.mIndices[corner]];
      const std::uint32_t pair = mesh.texIndices[corner];
      const bool textured = pair != kNone;
      corners.push_back({p[0], p[1], p[2], textured ? mesh.texCoords[std::size_t{2} * pair] : -1,
                         textured ? mesh.texCoords[std::size_t{2} * pair + 1] : -1});
    }
    std::rotate(corners.begin(), std::min_element(corners.begin(), corners.end()), corners.end());
  }
  for (auto group = model.mHoles.begin(); group != model.mHoles.end(); ++group) {
    auto& holes = polygons[*group].mHoles;
    while (*++group != kNone) holes.push_back(polygons[*group].mCorners);
    std::sort(holes.begin(), holes.end());
  }
  return {polygons.begin(), polygons.end()};
}

Model sampleModel(const std::string& name) { return parseObj(readText(fs::path(FACETBOX_SAMPLES) / name)); }

TEST(Pavilion, cleaningGivesBackTheFacesThatItWasMadeFrom) {
  const TestFolder folder;
  const std::string out = folder.path("out.obj");
  const RunResult run = runProgram("clean " + quoted((fs::path(FACETBOX_SAMPLES) / "pavilion.obj").string()) + " -o " +
                                   quoted(out) + " --all 0.01");
  ASSERT_EQ(run.mExitCode, kExitOk) << run.mErr;
  const auto cleaned = polygonsOf(parseObj(readText(out)));
  const auto expected = polygonsOf(sampleModel("pavilion_clean.obj"));
  EXPECT_NE(polygonsOf(sampleModel("pavilion.obj")), expected);
  EXPECT_EQ(cleaned.size(), expected.size());
  EXPECT_TRUE(cleaned == expected) << run.mOut;
}

}  // namespace
}  // namespace tool
