// Every model at hand through every step, all of them, and all of them again: what must hold whatever the model.

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include <tools/ModelReader.h>
#include "CleanFaults.h"

namespace {

namespace fs = std::filesystem;
using namespace facetbox;

PolyMesh readMesh(const fs::path& path) {
  const tool::Model model = tool::readModel(path.string());
  PolyMesh mesh{.points = {model.mVertices.begin(), model.mVertices.end()},
                .counts = model.mCounts,
                .indices = model.mIndices,
                .texCoords = {model.mTexCoords.begin(), model.mTexCoords.end()},
                .texIndices = model.mTexIndices,
                .holes = model.mHoles};
  if (!model.mRuns.empty()) mesh.labels.resize(mesh.counts.size());
  for (const tool::LabelRun& run : model.mRuns)
    std::fill(mesh.labels.begin() + run.mFirstFace, mesh.labels.end(),
              static_cast<std::uint32_t>(run.mLabel.mMaterial));
  return mesh;
}

/// Some lie in the checkout, others beside it or nowhere.
std::vector<fs::path> modelPaths() {
  std::vector<fs::path> paths;
  std::error_code isMissing;
  for (const fs::path folder : {FACETBOX_TEST_DATA, FACETBOX_TEST_DATA "/faults", FACETBOX_SAMPLES, FACETBOX_MODELS})
    for (const auto& entry : fs::directory_iterator(folder, isMissing))
      if (std::set<fs::path>{".obj", ".off", ".ply"}.contains(entry.path().extension())) paths.push_back(entry.path());
  std::ranges::sort(paths);
  return paths;
}

/// What models are allowed to break, and why.
const std::map<std::string, std::set<std::string>> kAllowed = {};

void expectNone(const std::string& model, const std::vector<std::string>& faults) {
  std::set<std::string> seen;
  for (const std::string& fault : faults) {
    const std::string property = fault.substr(0, fault.find(':'));
    const auto allowed = kAllowed.find(model);
    if (allowed != kAllowed.end() && allowed->second.contains(property)) continue;
    if (seen.insert(property).second) ADD_FAILURE() << fault;
  }
}

class EveryModel : public testing::TestWithParam<fs::path> {};

TEST_P(EveryModel, staysWhatItIs) {
  const std::string name = GetParam().filename().string();
  // Without the holes that are none: they go before the first step.
  const PolyMesh mesh = clean(readMesh(GetParam()), {}).mesh;
  const double diagonal = support::diagonalOf(mesh);
  for (const double share : {1e-6, 1e-4}) {
    SCOPED_TRACE(share);
    const double tolerance = share * diagonal;
    const std::vector<Step> steps = allSteps(tolerance, diagonal);
    const double angle = std::get<MergeCoplanar>(steps[5]).degrees * 3.14159265358979 / 180;
    const double reach = 4 * tolerance + 2 * angle * diagonal;
    PolyMesh mesh1 = mesh;
    for (std::size_t i = 0; i < 7; ++i) {
      SCOPED_TRACE("step " + std::to_string(i));
      const Cleaned one = clean(mesh1, std::span(&steps[i], 1));
      expectNone(name, support::faultsOfStep(mesh1, one));
      mesh1 = one.mesh;
    }
    const Cleaned once = clean(mesh, steps);
    expectNone(name, support::faultsOfChain(mesh, once, reach));
    expectNone(name, support::faultsOfTriangles(once.mesh));
    const Cleaned welded = clean(mesh, std::span(&steps[0], 1));
    EXPECT_LE(support::countOpenEdges(once.mesh), support::countOpenEdges(welded.mesh));
    const Cleaned twice = clean(once.mesh, allSteps(tolerance, diagonal));
    EXPECT_TRUE(twice.mesh == once.mesh) << "a second run changes something";
  }
}

INSTANTIATE_TEST_SUITE_P(Models, EveryModel, testing::ValuesIn(modelPaths()), [](const auto& parameter) {
  std::string name = parameter.param.stem().string();
  std::ranges::replace_if(
      name, [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
  return name;
});

}  // namespace
