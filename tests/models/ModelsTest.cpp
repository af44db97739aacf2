// Every model at hand through every step, all of them, and all of them again: what must hold whatever the model.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <facetbox/io/readModel.h>
#include <facetbox/io/writeModel.h>
#include <tests/support/CleanCheck.h>
#include <tests/support/PolyMeshes.h>
#include <tools/Join.h>
#include "CleanFaults.h"

namespace {

namespace fs = std::filesystem;
using namespace facetbox;

PolyMesh readMesh(const fs::path& path) {
  // Labels are materials here: objects and groups may be merged.
  const tool::Joined joined(facetbox::readModel(path));
  PolyMesh mesh = joined.model().objects[0].mesh;
  for (std::uint32_t& label : mesh.labels) label = joined.model().marks[label].material;
  return mesh;
}

// Sanitizers make the largest model take minutes.
#ifdef FACETBOX_SANITIZED
constexpr std::uintmax_t kLargestFile = 2'000'000;
#else
constexpr std::uintmax_t kLargestFile = std::numeric_limits<std::uintmax_t>::max();
#endif

/// Some lie in the checkout, others beside it or nowhere.
std::vector<fs::path> modelPaths() {
  std::vector<fs::path> paths;
  std::error_code isMissing;
  for (const fs::path folder : {FACETBOX_TEST_DATA, FACETBOX_TEST_DATA "/faults", FACETBOX_SAMPLES, FACETBOX_MODELS})
    for (const auto& entry : fs::directory_iterator(folder, isMissing))
      if (std::set<fs::path>{".obj", ".off", ".ply"}.contains(entry.path().extension()) &&
          entry.file_size() <= kLargestFile)
        paths.push_back(entry.path());
  std::ranges::sort(paths);
  return paths;
}

/// What models are allowed to break, and why.
const std::map<std::string, std::set<std::string>> kAllowed = {
    // A wall without windows repeats one with them, and goes: faces are compared by their outlines.
    {"pavilion.obj", {"lost"}},
};

void expectNone(const std::string& model, const std::vector<std::string>& faults) {
  std::set<std::string> seen;
  for (const std::string& fault : faults) {
    const std::string property = fault.substr(0, fault.find(':'));
    const auto allowed = kAllowed.find(model);
    if (allowed != kAllowed.end() && allowed->second.contains(property)) continue;
    if (seen.insert(property).second) ADD_FAILURE() << fault;
  }
}

/// How far the surface may move: vertices by welding; corners that are straight or in one plane within an angle. A face
/// that is not flat is cut otherwise when it has turned.
double reachOf(const PolyMesh& mesh, const std::vector<Step>& steps, double tolerance) {
  const double angle = std::get<MergeCoplanar>(steps[5]).degrees * 3.14159265358979 / 180;
  return 4 * tolerance + 2 * angle * support::diagonalOf(mesh) + 2 * support::unevennessOf(mesh);
}

struct PolygonCase {
  std::string name;
  bool isValid;
  PolyMesh mesh;
};

/// Polygons with holes that are kept beside the checkout, or nowhere.
std::vector<PolygonCase> polygonCases() {
  std::vector<PolygonCase> cases;
  for (const char* name : {"polygons_holes.json", "polygons_triangulation.json"}) {
    std::ifstream file(fs::path(FACETBOX_MODELS).parent_path() / name);
    if (!file) continue;
    for (const nlohmann::json& entry : nlohmann::json::parse(file)) {
      PolyMesh mesh;
      for (const auto& vertex : entry["vertices"])
        for (const double coordinate : vertex) mesh.points.push_back(coordinate);
      const auto addFace = [&](const nlohmann::json& ring) {
        mesh.counts.push_back(static_cast<std::uint32_t>(ring.size()));
        for (const std::uint32_t v : ring) mesh.indices.push_back(v);
        return static_cast<std::uint32_t>(mesh.counts.size() - 1);
      };
      for (const auto& face : entry["faces"]) {
        std::vector<std::uint32_t> group{addFace(face["outer"])};
        for (const auto& hole : face["holes"]) group.push_back(addFace(hole));
        if (group.size() == 1) continue;
        mesh.holes.insert(mesh.holes.end(), group.begin(), group.end());
        mesh.holes.push_back(kNone);
      }
      cases.push_back({entry["name"], entry.value("verdict", "") == "valid", std::move(mesh)});
    }
  }
  return cases;
}

TEST(PolygonCases, stayWhatTheyAre) {
  for (const auto& [name, isValid, given] : polygonCases()) {
    SCOPED_TRACE(name);
    const PolyMesh mesh = clean(given, {}).mesh;
    const double diagonal = support::diagonalOf(mesh), tolerance = 1e-9 * diagonal;
    const std::vector<Step> steps = allSteps(tolerance, diagonal);
    const Cleaned once = clean(mesh, steps);
    if (isValid) {
      expectNone(name, support::faultsOfChain(mesh, once, reachOf(mesh, steps, tolerance)));
      expectNone(name, support::faultsOfTriangles(mesh));
    }
    EXPECT_TRUE(clean(once.mesh, steps).mesh == once.mesh) << "a second run changes something";
  }
}

class EveryModel : public testing::TestWithParam<fs::path> {};

TEST_P(EveryModel, isReadAndWrittenWithoutLoss) {
  const Model model = readModel(GetParam());
  std::string text;
  writeModel(model, Format::obj, [&text](std::string_view bytes) { text += bytes; });
  Model copy = parseModel(text, Format::obj, "copy.obj");
  ASSERT_EQ(copy.objects.size(), model.objects.size());
  for (std::size_t i = 0; i < copy.objects.size(); ++i) {
    const PolyMesh &a = copy.objects[i].mesh, &b = model.objects[i].mesh;
    EXPECT_EQ(copy.objects[i].name, model.objects[i].name);
    EXPECT_TRUE(a.points == b.points && a.counts == b.counts && a.indices == b.indices && a.holes == b.holes);
    EXPECT_TRUE(a.texCoords == b.texCoords && a.texIndices == b.texIndices);
  }
}

TEST_P(EveryModel, dependsOnNeitherPlaceNorUnit) {
  const PolyMesh mesh = readMesh(GetParam());
  const double diagonal = support::diagonalOf(mesh), tolerance = 1e-4 * diagonal;
  const Cleaned plain = clean(mesh, allSteps(tolerance, diagonal));
  for (const int power : {-20, 3}) {
    const double factor = std::ldexp(1.0, power);
    const Cleaned other = clean(support::scaledBy(mesh, factor), allSteps(factor * tolerance, factor * diagonal));
    EXPECT_TRUE(support::scaledBy(other.mesh, 1 / factor) == plain.mesh) << "scaled by 2^" << power;
    EXPECT_EQ(other.faceMap, plain.faceMap);
  }
  // A move rounds coordinates: what is compared is the moved mesh, and the same mesh brought back without rounding.
  for (const util::Vec3& by : {util::Vec3{85227.43, 446522.057, 12.3}, {1e7, 1e7, 1e7}}) {
    const PolyMesh far = support::movedBy(mesh, by), near = support::movedBy(far, -by);
    if (support::movedBy(near, by) != far) continue;  // too far for that
    Cleaned a = clean(far, allSteps(tolerance, diagonal)), b = clean(near, allSteps(tolerance, diagonal));
    EXPECT_EQ(a.faceMap, b.faceMap);
    EXPECT_EQ(a.vertexMap, b.vertexMap);
    a.mesh.points = b.mesh.points;
    EXPECT_TRUE(a.mesh == b.mesh);
  }
}

TEST_P(EveryModel, staysWhatItIs) {
  const std::string name = GetParam().filename().string();
  // Without the holes that are none: they go before the first step.
  const PolyMesh mesh = clean(readMesh(GetParam()), {}).mesh;
  const double diagonal = support::diagonalOf(mesh);
  expectNone(name, support::faultsOfTriangles(mesh));
  for (const double share : {1e-6, 1e-4}) {
    SCOPED_TRACE(share);
    const double tolerance = share * diagonal;
    const std::vector<Step> steps = allSteps(tolerance, diagonal);
    const double reach = reachOf(mesh, steps, tolerance);
    PolyMesh mesh1 = mesh;
    for (std::size_t i = 0; i < 7; ++i) {
      SCOPED_TRACE("step " + std::to_string(i));
      const Cleaned one = clean(mesh1, std::span(&steps[i], 1));
      expectNone(name, support::faultsOfStep(mesh1, one));
      if (i == 5) {
        EXPECT_EQ(support::faultOfMergedAreas(mesh1, one), "");
      }
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
