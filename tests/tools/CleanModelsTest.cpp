// Promises of the clean-up on public models, where these lie beside the checkout.

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/clean.h>
#include <facetbox/math/Box.h>
#include <tests/support/CleanCheck.h>
#include <tools/ModelReader.h>

namespace {

namespace fs = std::filesystem;
using namespace facetbox;

struct NamedMesh {
  std::string name;
  PolyMesh mesh;
};

std::vector<NamedMesh> publicMeshes() {
  std::vector<NamedMesh> meshes;
  std::error_code isMissing;
  for (const auto& entry : fs::directory_iterator(FACETBOX_MODELS, isMissing)) {
    if (entry.path().extension() == ".mtl") continue;
    const tool::Model model = tool::readModel(entry.path().string());
    meshes.push_back({entry.path().filename().string(),
                      {.points = model.mVertices,
                       .counts = model.mCounts,
                       .indices = model.mIndices,
                       .texCoords = model.mTexCoords,
                       .texIndices = model.mTexIndices,
                       .holes = model.mHoles}});
  }
  std::ranges::sort(meshes, {}, &NamedMesh::name);
  return meshes;
}

double diagonalOf(const PolyMesh& mesh) {
  util::Box box;
  for (std::size_t i = 0; i < mesh.points.size(); i += 3) box.extend(util::toVec3(&mesh.points[i]));
  return length(box.max - box.min);
}

PolyMesh scaled(PolyMesh mesh, double factor) {
  for (double& c : mesh.points) c *= factor;
  return mesh;
}

PolyMesh moved(PolyMesh mesh, const std::array<double, 3>& by) {
  for (std::size_t i = 0; i < mesh.points.size(); ++i) mesh.points[i] += by[i % 3];
  return mesh;
}

TEST(CleanModels, doNotDependOnPlaceAndUnit) {
  const std::vector<NamedMesh> meshes = publicMeshes();
  if (meshes.empty()) GTEST_SKIP() << "no public models beside the checkout";
  for (const auto& [name, mesh] : meshes) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(validate(mesh).empty());
    const double diagonal = diagonalOf(mesh), tolerance = 1e-4 * diagonal;
    const Cleaned plain = clean(mesh, allSteps(tolerance, diagonal));
    for (const int power : {-20, -3, 20}) {
      const double factor = std::ldexp(1.0, power);
      const Cleaned other = clean(scaled(mesh, factor), allSteps(factor * tolerance, factor * diagonal));
      EXPECT_EQ(scaled(other.mesh, 1 / factor), plain.mesh) << "scaled by 2^" << power;
      EXPECT_EQ(other.faceMap, plain.faceMap);
    }
    // A move rounds coordinates: what is compared is the moved mesh, and the same mesh brought back without rounding.
    for (const std::array<double, 3>& by : {std::array{85227.43, 446522.057, 12.3}, std::array{1e7, 1e7, 1e7}}) {
      const PolyMesh far = moved(mesh, by), near = moved(far, {-by[0], -by[1], -by[2]});
      std::size_t rounded = 0;
      for (std::size_t i = 0; i < mesh.points.size(); i += 3)
        rounded += !std::equal(&mesh.points[i], &mesh.points[i] + 3, &near.points[i]);
      if (moved(near, by) != far) continue;  // too far for that
      const Cleaned a = clean(far, allSteps(tolerance, diagonal)), b = clean(near, allSteps(tolerance, diagonal));
      if (rounded > 0) std::cout << name << " moved by " << by[0] << ": " << rounded << " vertices rounded\n";
      EXPECT_EQ(a.mesh.counts, b.mesh.counts);
      EXPECT_EQ(a.mesh.indices, b.mesh.indices);
      EXPECT_EQ(a.mesh.holes, b.mesh.holes);
      EXPECT_EQ(a.faceMap, b.faceMap);
      EXPECT_EQ(a.vertexMap, b.vertexMap);
    }
  }
}

TEST(CleanModels, mergedFacesAreWhatTheyAreMadeOf) {
  const std::vector<NamedMesh> meshes = publicMeshes();
  if (meshes.empty()) GTEST_SKIP() << "no public models beside the checkout";
  for (const auto& [name, mesh] : meshes) {
    SCOPED_TRACE(name);
    const double diagonal = diagonalOf(mesh);
    const std::vector<Step> before = {MergeVertices{1e-5 * diagonal}, RemoveDoubleFaces{}};
    const PolyMesh welded = clean(mesh, before).mesh;
    for (const bool compareAttributes : {true, false}) {
      const std::vector<Step> merge = {MergeCoplanar{0.5, compareAttributes}};
      EXPECT_EQ(support::faultOfMergedAreas(welded, clean(welded, merge)), "");
    }
  }
}

}  // namespace
