// The program's clean-up: what it writes, what it says, what it refuses.

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <sstream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <facetbox/check.h>
#include <tools/MeshFacts.h>
#include "ToolTestSupport.h"

namespace tool {
namespace {

/// A line of the report: its label, then a text per column but for the time.
struct Line {
  std::string label;
  std::vector<std::string> cells;
};

struct Report {
  std::vector<Line> lines;  // without the head
  std::vector<std::string> notes;

  const Line* find(const std::string& label) const {
    const auto found = std::ranges::find(lines, label, &Line::label);
    return found == lines.end() ? nullptr : &*found;
  }
};

constexpr std::size_t kLabelWidth = 30, kColumns = 7, kOpenEdges = 4, kArea = 5, kVolume = 6;

Report parseReport(const std::string& text) {
  Report report;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    constexpr std::string_view kNote = "  note: ";
    if (line.starts_with(kNote)) {
      report.notes.push_back(line.substr(kNote.size()));
      continue;
    }
    Line row{line.substr(0, kLabelWidth), {}};
    row.label.erase(row.label.find_last_not_of(' ') + 1);
    std::istringstream cells(line.substr(kLabelWidth));
    for (std::string cell; row.cells.size() < kColumns && cells >> cell;) row.cells.push_back(cell);
    if (!row.label.empty()) report.lines.push_back(row);
  }
  return report;
}

struct CleanRun {
  Report report;
  std::string text;  // of the written file
};

CleanRun clean(const std::string& model, const std::string& arguments) {
  const TestFolder folder;
  const std::string out = folder.path("out.obj");
  const RunResult run = runProgram("clean " + quoted(model) + " -o " + quoted(out) + " " + arguments);
  EXPECT_EQ(run.mExitCode, kExitOk) << run.mErr;
  return {parseReport(run.mOut), readText(out)};
}

std::string cleanError(const std::string& model, const std::string& arguments) {
  const TestFolder folder;
  const RunResult run =
      runProgram("clean " + quoted(model) + " -o " + quoted(folder.path("out.obj")) + " " + arguments);
  EXPECT_EQ(run.mExitCode, kExitBadInput) << run.mOut;
  EXPECT_THAT(folder.files(), IsEmpty());
  return run.mErr;
}

std::vector<facetbox::PolyMesh> meshesOf(const Model& model) {
  std::vector<facetbox::PolyMesh> meshes;
  for (const facetbox::Object& object : model.objects) meshes.push_back(object.mesh);
  return meshes;
}

/// The figures of a report's line for a whole model, by the library's own check of each object.
std::vector<std::string> figuresOf(const Model& model) {
  std::array<std::size_t, 5> counts{};
  double area = 0, volume = 0;
  bool isSolid = true;
  for (const facetbox::PolyMesh& mesh : meshesOf(model)) {
    const facetbox::Defects defects = facetbox::check(mesh);
    std::size_t holes = 0;
    for (std::size_t i = 1; i < mesh.holes.size(); ++i) holes += mesh.holes[i] != kNone && mesh.holes[i - 1] != kNone;
    const std::array<std::size_t, 5> own{mesh.points.size() / 3, mesh.counts.size(), mesh.indices.size(), holes,
                                         defects.openEdges.size()};
    for (std::size_t i = 0; i < own.size(); ++i) counts[i] += own[i];
    area += defects.area;
    volume += defects.volume;
    isSolid = isSolid && defects.isClosed && defects.isOriented;
  }
  std::vector<std::string> figures;
  for (const std::size_t count : counts) figures.push_back(std::to_string(count));
  figures.push_back(fmt::format("{:.6g}", area));
  figures.push_back(isSolid ? fmt::format("{:.6g}", volume) : "-");
  return figures;
}

std::vector<fs::path> modelsAtHand() {
  std::vector<fs::path> paths;
  std::error_code isMissing;
  for (const char* const folder : {FACETBOX_SAMPLES, FACETBOX_TEST_DATA, FACETBOX_MODELS})
    for (const auto& entry : fs::directory_iterator(folder, isMissing))
      if (entry.path().extension() == ".obj" || entry.path().extension() == ".off") paths.push_back(entry.path());
  return paths;
}

TEST(CleanCommand, theReportIsTrueAndItsLinesAddUp) {
  for (const fs::path& path : modelsAtHand()) {
    SCOPED_TRACE(path.filename());
    const Model model = facetbox::readModel(path.string());
    const auto [report, text] = clean(path.string(), fmt::format("--all {:.3g}", 1e-4 * boundingBoxDiagonal(model)));
    ASSERT_TRUE(report.find("before") && report.find("after"));
    EXPECT_EQ(report.find("before")->cells, figuresOf(model));
    EXPECT_EQ(report.find("after")->cells, figuresOf(parseObj(text)));
    const auto info = nlohmann::json::parse(runProgram("info --json " + quoted(path.string())).mOut);
    EXPECT_EQ(info["defects"]["borderEdges"].dump(), report.find("before")->cells[kOpenEdges]);
    EXPECT_EQ(info["volume"].is_null(), report.find("before")->cells[kVolume] == "-");
    for (std::size_t column = 0; column <= kOpenEdges; ++column) {
      long long sum = 0;
      for (const Line& line : report.lines)
        if (line.label != "after" && line.cells[column] != ".") sum += std::stoll(line.cells[column]);
      EXPECT_EQ(std::to_string(sum), report.find("after")->cells[column]) << "column " << column;
    }
  }
}

TEST(CleanCommand, trianglesHaveTheFiguresOfTheFacesTheyAreCutFrom) {
  for (const char* const name : {"pavilion.obj", "pavilion_clean.obj"}) {
    const auto [report, text] = clean((fs::path(FACETBOX_SAMPLES) / name).string(), "--all 0.01 --triangulate");
    const Line &after = *report.find("after"), &triangles = *report.find("in triangles");
    EXPECT_EQ(triangles.cells, figuresOf(parseObj(text)));
    for (const std::size_t column : {kOpenEdges, kArea, kVolume})
      EXPECT_EQ(triangles.cells[column], after.cells[column]);
    EXPECT_EQ(triangles.cells[3], "0");
    EXPECT_NE(triangles.cells[kVolume], "-");
  }
}

// All but the times.
TEST(CleanCommand, theReportIsThatOfTheReadme) {
  constexpr std::string_view kCommand = "    $ facetbox clean pavilion.obj -o clean.obj ";
  const std::string page = readText(fs::path(FACETBOX_SAMPLES) / "../../README.md");
  const std::size_t begin = page.find(kCommand);
  ASSERT_NE(begin, std::string::npos);
  std::istringstream shown(page.substr(begin + kCommand.size(), page.find("\n\n", begin) - begin - kCommand.size()));
  std::string arguments, head, lines;
  std::getline(shown, arguments);
  std::getline(shown, head);
  for (std::string line; std::getline(shown, line);) lines += line.substr(4) + "\n";
  const Report expected = parseReport(lines);
  const Report report = clean((fs::path(FACETBOX_SAMPLES) / "pavilion.obj").string(), arguments).report;
  ASSERT_EQ(report.lines.size(), expected.lines.size());
  for (std::size_t i = 0; i < report.lines.size(); ++i) {
    EXPECT_EQ(report.lines[i].label, expected.lines[i].label);
    EXPECT_EQ(report.lines[i].cells, expected.lines[i].cells);
  }
  EXPECT_EQ(report.notes, expected.notes);
}

constexpr const char* kTouchingHole =
    "o wall\nv 0 0 0\nv 4 0 0\nv 4 4 0\nv 0 4 0\nv 0 1 0\nv 1 2 0\nv 1 1 0\nf 1/1 2/1 3/1 4/1\nf 5/1 6/1 7/1\nf 1 2\n"
    "vt 0.5 0.1\n# facetbox:holes 1 2\n";

// A hole that touches its outline, and a face too short: the same with and without steps.
TEST(CleanCommand, whatTheInputLosesIsSaidBeforeTheFirstStep) {
  const TestFolder folder;
  const std::string model = folder.write("m.obj", kTouchingHole);
  std::set<std::string> files;
  for (const char* const steps : {"", "--remove-double ", "--merge-vertices 0 --remove-coplanar 1 "}) {
    SCOPED_TRACE(steps);
    const auto [report, text] = clean(model, steps + std::string("--triangulate"));
    ASSERT_GE(report.lines.size(), 3U);
    EXPECT_EQ(report.lines[1].label, "changes of input");
    EXPECT_THAT(report.lines[1].cells, ElementsAre("-3", "-2", "-5", "-1", "-3", "+0.5", "."));
    EXPECT_THAT(report.notes, ElementsAre("Face 3: 2 corners, fewer than three; the face is left out.",
                                          "Face 2 is no hole of face 1 any more: it touches the outline."));
    for (std::size_t i = 2; i + 2 < report.lines.size(); ++i)
      EXPECT_THAT(report.lines[i].cells, testing::Each(".")) << report.lines[i].label;
    EXPECT_EQ(report.find("in triangles")->cells[kArea], "16");
    files.insert(text);
  }
  EXPECT_EQ(files.size(), 1U);
}

TEST(CleanCommand, facesAreNumberedAsInTheFile) {
  const TestFolder folder;
  std::string text = std::string(kTetrahedron) + kTouchingHole;
  text = text.substr(0, text.find("f 1/1")) + "f 5 6 7 8\nf 9 10 11\n# facetbox:holes 5 6\n";
  const auto [report, file] = clean(folder.write("m.obj", text), "--conform-normals");
  EXPECT_THAT(report.notes, ElementsAre("Face 6 is no hole of face 5 any more: it touches the outline."));
  EXPECT_THAT(cleanError(folder.write("two.obj", text + "# facetbox:holes 4 6\n"), ""), HasSubstr("different objects"));
  EXPECT_THAT(cleanError(folder.write("twice.obj", text + "f 5 6 7\n# facetbox:holes 7 6\n"), ""),
              HasSubstr("twice.obj:21: face 6 is a hole of face 5 and of face 7; correct the hole lines"));
  EXPECT_THAT(cleanError(folder.write("chain.obj", text + "f 5 6 7\n# facetbox:holes 6 7\n"), ""),
              HasSubstr("chain.obj:21: face 6 is a hole of face 5 and has holes itself; correct the hole lines"));
}

TEST(CleanCommand, tellsWhichStepOpensAClosedModel) {
  const TestFolder folder;
  const auto [report, text] = clean(folder.write("m.obj", kTetrahedron), "--conform-normals --remove-zero-area 0.6");
  EXPECT_THAT(report.notes, ElementsAre("object 1: 3 more open edges; it was closed before"));
  EXPECT_EQ(report.find("before")->cells[kVolume], "0.166667");
  EXPECT_EQ(report.find("--remove-zero-area 0.6")->cells[kVolume], "-");
  EXPECT_EQ(report.find("after")->cells[kVolume], "-");
  // A face more than once closes nothing, and takes no area where it should not.
  const auto [doubled, rest] = clean(folder.write("d.obj", std::string(kTetrahedron) + "f 2 3 4\n"), "--remove-double");
  EXPECT_THAT(doubled.notes, IsEmpty());
  EXPECT_EQ(doubled.find("--remove-double")->cells[kVolume], "0.166667");
}

TEST(CleanCommand, aSwitchThatCanHaveNoEffectIsAnError) {
  const TestFolder folder;
  const std::string model = folder.write("m.obj", kTetrahedron);
  for (const char* const arguments :
       {"--all 0.1 --ignore-attributes", "--ignore-attributes --remove-colinear 1 --conform-normals",
        "--ignore-attributes --compare-attributes --all 0.1", "--ignore-attributes"})
    EXPECT_THAT(cleanError(model, arguments), HasSubstr("--ignore-attributes: has no effect here")) << arguments;
  for (const char* const arguments : {"--all 0.1 --keep-texture-mapping", "--keep-texture-mapping --remove-coplanar 1"})
    EXPECT_THAT(cleanError(model, arguments), HasSubstr("--keep-texture-mapping: has no effect here")) << arguments;
  for (const char* const arguments :
       {"--ignore-attributes --all 0.1 --compare-attributes --remove-double",
        "--ignore-attributes --ignore-texture-mapping --conform-normals --remove-colinear 1 --remove-coplanar 1"})
    clean(model, arguments);
}

TEST(CleanCommand, switchesReachTheStepsOfThePreset) {
  const TestFolder folder;
  // Two materials in one plane; the corner between them has a texture that bends.
  const std::string model =
      folder.write("m.obj",
                   "v 0 0 0\nv 1 0 0\nv 2 0 0\nv 2 1 0\nv 1 1 0\nv 0 1 0\nvt 0 0\nvt 0.9 0.3\nvt 1 0\nusemtl a\n"
                   "f 1/1 2/2 5/3 6/1\nusemtl b\nf 2/2 3/1 4/1 5/3\n");
  const auto facesAndCorners = [&](const std::string& arguments) {
    const facetbox::PolyMesh mesh = parseObj(clean(model, arguments).text).objects.at(0).mesh;
    return std::pair(mesh.counts.size(), mesh.indices.size());
  };
  EXPECT_EQ(facesAndCorners("--all 1e-3"), std::pair(std::size_t{2}, std::size_t{8}));
  EXPECT_EQ(facesAndCorners("--ignore-attributes --all 1e-3"), std::pair(std::size_t{1}, std::size_t{6}));
  EXPECT_EQ(facesAndCorners("--ignore-attributes --ignore-texture-mapping --all 1e-3"),
            std::pair(std::size_t{1}, std::size_t{4}));
}

TEST(CleanCommand, anAreaBeyondAllNumbersDoesNotChange) {
  const TestFolder folder;
  const std::string model = folder.write("m.obj", "v 0 0 0\nv 1e300 0 0\nv 0 1e300 0\nf 1 2 3\n");
  const auto [report, text] = clean(model, "--merge-vertices 1");
  ASSERT_EQ(report.lines.size(), 3U);
  EXPECT_THAT(report.lines[1].cells, testing::Each("."));
}

TEST(CleanCommand, tellsWhatTrianglesDoNotKeep) {
  const TestFolder folder;
  // A saddle: its triangles have more area than what its outline encloses, seen from anywhere.
  const std::string saddle = folder.write("s.obj", "v 0 0 0\nv 1 0 1\nv 1 1 0\nv 0 1 1\nf 1 2 3 4\n");
  EXPECT_THAT(clean(saddle, "--triangulate").report.notes,
              ElementsAre("object 1: not flat: its triangles have 73.2 % more area than its faces"));
}

// Where a face crosses itself, a point is made, for its object and with the face's texture coordinates and material.
TEST(CleanCommand, aCrossingBecomesAPointOfItsObject) {
  const TestFolder folder;
  const auto [report, text] =
      clean(folder.write("m.obj",
                         "vt 0 0\nvt 1 1\no a\nv 0 0 0\nv 3 3 0\nv 4 0 0\nv -2 2 0\nf 1/1 2/2 3/1 4/2\no b\nv 0 0 5\n"
                         "v 2 0 5\nv 2 2 5\nv 0 2 5\nusemtl x\nf 5/1 6/2 7/1 8/2\nf 5 5 6\n"),
            "--triangulate");
  const Model result = parseObj(text);
  ASSERT_EQ(result.objects.size(), 2U);
  const facetbox::PolyMesh &first = result.objects[0].mesh, &second = result.objects[1].mesh;
  EXPECT_THAT(first.counts, ElementsAre(3, 3));
  EXPECT_THAT(second.counts, ElementsAre(3, 3));
  ASSERT_EQ(first.points.size(), 15U);
  EXPECT_EQ(second.points.size(), 12U);
  EXPECT_THAT(std::vector(first.points.begin() + 12, first.points.end()),
              ElementsAre(testing::DoubleEq(1), testing::DoubleEq(1), 0));
  for (const std::uint32_t pair : first.texIndices) EXPECT_NE(pair, kNone);
  EXPECT_THAT(first.labels, IsEmpty());
  EXPECT_EQ(result.marks.at(second.labels.at(0)).material, 0U);
  EXPECT_THAT(report.notes, testing::Contains("object 'a': 1 point made where outlines cross"));
  EXPECT_THAT(report.notes, testing::Contains("Face 3 has no triangles: its corners lie on one line."));
}

TEST(CleanCommand, nothingLeftIsAFailureThatNamesTheStep) {
  const TestFolder folder;
  const std::pair<const char*, const char*> cases[] = {
      {"f 1 2\nf 3 4\n", "m.obj: no face has three corners; no file is written"},
      {"f 1 2 3\n",
       "m.obj: --remove-zero-area 9 leaves nothing of the model; no file is written, try a smaller value"}};
  for (const auto& [faces, message] : cases) {
    const std::string model = folder.write("m.obj", std::string("v 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\n") + faces);
    const RunResult run = runProgram("clean " + quoted(model) + " -o " + quoted(folder.path("out.obj")) +
                                     " --merge-vertices 0 --remove-zero-area 9 --conform-normals");
    EXPECT_EQ(run.mExitCode, kExitFailure);
    EXPECT_THAT(run.mErr, HasSubstr(message));
    EXPECT_EQ(parseReport(run.mOut).find("--conform-normals"), nullptr);
  }
  EXPECT_THAT(folder.files(), ElementsAre("m.obj"));
}

}  // namespace
}  // namespace tool
