// Defects are where the program says; models pass through pipes; several models do not stand in each other's way.

#include <algorithm>
#include <array>
#include <map>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "ToolTestSupport.h"

namespace tool {
namespace {

using nlohmann::json;
using Point = std::array<double, 3>;

json jsonOfRun(const std::string& arguments, int exitCode) {
  const RunResult run = runProgram(arguments);
  EXPECT_EQ(run.mExitCode, exitCode) << arguments << "\n" << run.mErr;
  return json::parse(run.mOut);
}

/// What OBJ lines say, read by nothing but streams: points, and faces as vertex numbers from 1.
struct PlainObj {
  std::vector<Point> points;
  std::vector<std::vector<std::size_t>> faces;

  explicit PlainObj(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line, word; std::getline(lines, line);) {
      std::istringstream words(line);
      words >> word;
      if (word == "v") {
        points.emplace_back();
        for (double& c : points.back()) {
          words >> word;
          c = std::strtod(word.c_str(), nullptr);
        }
      } else if (word == "f") {
        faces.emplace_back();
        while (words >> word) faces.back().push_back(std::stoul(word));
      }
      word.clear();
    }
  }

  /// Per edge, lower vertex first: the faces that use it, from 1, and +1 or -1 for the direction.
  std::map<std::pair<std::size_t, std::size_t>, std::vector<std::pair<std::size_t, int>>> edges() const {
    std::map<std::pair<std::size_t, std::size_t>, std::vector<std::pair<std::size_t, int>>> uses;
    for (std::size_t f = 0; f < faces.size(); ++f) {
      for (std::size_t i = 0; i < faces[f].size() && faces[f].size() > 2; ++i) {
        const std::size_t a = faces[f][i], b = faces[f][(i + 1) % faces[f].size()];
        if (a != b) uses[std::minmax(a, b)].emplace_back(f + 1, a < b ? 1 : -1);
      }
    }
    return uses;
  }
};

using Located = std::set<std::pair<std::set<std::size_t>, std::set<std::size_t>>>;  // vertices and faces

Located locatedIn(const json& list) {
  Located located;
  for (const json& place : list["places"])
    located.insert({place.value("vertices", std::set<std::size_t>()), place.value("faces", std::set<std::size_t>())});
  EXPECT_EQ(list["count"], list["places"].size());
  return located;
}

TEST(Check, edgesAndVerticesAreWhereAPlainLookFindsThem) {
  std::size_t defects = 0;
  for (const auto& entry : fs::directory_iterator(fs::path(FACETBOX_TEST_DATA) / "faults")) {
    const std::string text = readText(entry.path());
    if (entry.path().extension() != ".obj" || text.find("facetbox:holes") != std::string::npos) continue;
    SCOPED_TRACE(entry.path().filename());
    const PlainObj obj(text);
    Located open, overused, sameDirection, same;
    for (const auto& [edge, uses] : obj.edges()) {
      std::set<std::size_t> faces;
      for (const auto& [face, direction] : uses) faces.insert(face);
      const std::pair<std::set<std::size_t>, std::set<std::size_t>> place{{edge.first, edge.second}, faces};
      if (uses.size() == 1) open.insert(place);
      if (uses.size() > 2) overused.insert(place);
      if (uses.size() == 2 && uses[0].second == uses[1].second) sameDirection.insert(place);
    }
    for (std::size_t b = 0; b < obj.points.size(); ++b) {
      const auto a = static_cast<std::size_t>(std::ranges::find(obj.points, obj.points[b]) - obj.points.begin());
      if (a != b) same.insert({{a + 1, b + 1}, {}});
    }
    defects += open.size() + overused.size() + sameDirection.size() + same.size();
    const RunResult run = runProgram("check --json " + quoted(entry.path().string()));
    const json checked = json::parse(run.mOut), &lists = checked["defects"];
    EXPECT_EQ(run.mExitCode, checked["defectCount"] == 0 ? kExitOk : kExitDefects);
    EXPECT_EQ(locatedIn(lists["openEdges"]), open);
    EXPECT_EQ(locatedIn(lists["overusedEdges"]), overused);
    EXPECT_EQ(locatedIn(lists["sameDirectionEdges"]), sameDirection);
    EXPECT_EQ(locatedIn(lists["sameVertices"]), same);
    // Coordinates bit for bit.
    for (const json& place : lists["openEdges"]["places"])
      for (std::size_t i = 0; i < 2; ++i)
        EXPECT_EQ(place["points"][i].get<Point>(), obj.points[place["vertices"][i].get<std::size_t>() - 1]);
  }
  EXPECT_GT(defects, 20U);
}

TEST(Check, everyKindIsFoundAndSaidInWords) {
  const TestFolder folder;
  const std::string model = folder.write(
      "m.obj",
      "o a\nv 0 0 0\nv 4 0 0\nv 4 4 0\nv 0 4 0\nv 0.1 0.1 0\nv 5 1 0\nv 1 1 0\nf 1 2 3 4\nf 5 6 7\n"
      "# facetbox:holes 1 2\no b\nv 0 0 9\nv 2 0 9\nv 0 2 9\nv 1 0 9\nv 0 0 9\nv 7 7 7\nf 8 9 10\nf 9 10 8\n"
      "f 8 9 11\nf 8 9\nf 8 9 9 10\nf 12 9 10\nv 0.5 0.5 8\nv 0.5 0.5 10\nv 0.6 0.5 10\nf 14 15 16\n");
  const std::string all = "--t-corners --self-intersections ";
  const RunResult run = runProgram("check " + all + quoted(model));
  EXPECT_EQ(run.mExitCode, kExitDefects);
  for (const char* const line :
       {"    object 'a', Face 2 is no hole of face 1 any more: it crosses the outline.\n",
        "    object 'b', face 6: vertices 8 (0, 0, 9), 9 (2, 0, 9)\n", "    object 'b', face 4 repeats face 3\n",
        "    object 'b', face 7: vertex 9 (2, 0, 9)\n", "    object 'b', vertices 8 (0, 0, 9), 12 (0, 0, 9)\n"})
    EXPECT_THAT(run.mOut, HasSubstr(line));
  const json lists = jsonOfRun("check --json " + all + quoted(model), kExitDefects)["defects"];
  EXPECT_EQ(lists.size(), 13U);
  for (const auto& [kind, list] : lists.items()) {
    const bool isAbsent = kind == "overusedEdges" || kind == "sameDirectionEdges" || kind == "unusedVertices";
    EXPECT_TRUE(isAbsent || list["count"] > 0) << kind;
  }
  const json& hole = lists["badHoles"]["places"][0];
  EXPECT_EQ(hole["reason"], "crosses");
  EXPECT_EQ(hole["object"], 1);
  bool isPierced = false;
  for (const json& pair : lists["selfIntersections"]["places"]) isPierced |= pair["faces"] == json({3, 9});
  EXPECT_TRUE(isPierced) << lists["selfIntersections"];
}

TEST(Check, theExitCodeTellsWhetherThereIsAnythingThatIsNotAllowed) {
  const TestFolder folder;
  const std::string open = quoted(folder.write("open.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"));
  const std::string closed = quoted(folder.write("closed.obj", kTetrahedron));
  const std::string bad = quoted(folder.write("bad.obj", "v 0 0 0\nf 1 2 3\n"));
  const std::pair<std::string, int> cases[] = {{closed, kExitOk},
                                               {open, kExitDefects},
                                               {closed + open, kExitDefects},
                                               {"--allow open-edges " + open, kExitOk},
                                               {bad + " " + open, kExitBadInput},
                                               {"--allow t-corners,zero-edges " + open, kExitDefects},
                                               {"--allow holes " + open, kExitBadInput},
                                               {"--zero-area 0.6 " + closed, kExitDefects},
                                               {"--zero-area 20% " + closed, kExitDefects},
                                               {"--zero-area 10% " + closed, kExitOk}};
  for (auto [arguments, code] : cases) {
    if (arguments == closed + open) arguments = closed + " " + open;
    const RunResult run = runProgram("check " + arguments);
    EXPECT_EQ(run.mExitCode, code) << arguments << run.mErr;
  }
}

TEST(Check, limitsPlacesButCountsAll) {
  const TestFolder folder;
  std::string text = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";
  for (int i = 0; i < 15; ++i) text += "v 9 9 " + std::to_string(i) + "\n";
  const std::string model = quoted(folder.write("m.obj", text + "f 1 2 3\n"));
  for (const auto& [limit, places] :
       std::map<std::string, std::size_t>{{"", 15}, {"--limit 0", 15}, {"--limit 4", 4}}) {
    const json list = jsonOfRun("check --json " + limit + " " + model, kExitDefects)["defects"]["unusedVertices"];
    EXPECT_EQ(list["count"], 15);
    EXPECT_EQ(list["places"].size(), places) << limit;
  }
  EXPECT_THAT(runProgram("check " + model).mOut, HasSubstr("vertex 13 (9, 9, 9)\n    and 5 more\n"));
}

// Two halves of a box that meet at the same places.
constexpr const char* kHalves =
    "o left\nv 0 0 0\nv 0 1 0\nv 0 1 1\nv 0 0 1\nv 1 0 0\nv 1 1 0\nv 1 1 1\nv 1 0 1\nf 1 4 3 2\nf 1 2 6 5\n"
    "f 2 3 7 6\nf 3 4 8 7\nf 4 1 5 8\no right\nv 1 0 0\nv 1 1 0\nv 1 1 1\nv 1 0 1\nv 2 0 0\nv 2 1 0\nv 2 1 1\n"
    "v 2 0 1\nf 13 14 15 16\nf 9 10 14 13\nf 10 11 15 14\nf 11 12 16 15\nf 12 9 13 16\n";

TEST(Check, joinedObjectsAreOneAndKeepTheirNumbers) {
  const TestFolder folder;
  const std::string model = quoted(folder.write("m.obj", kHalves));
  EXPECT_EQ(jsonOfRun("check --json " + model, kExitDefects)["defects"]["sameVertices"]["count"], 0);
  const json joined = jsonOfRun("check --json --join " + model, kExitDefects);
  EXPECT_EQ(locatedIn(joined["defects"]["sameVertices"]),
            (Located{{{5, 9}, {}}, {{6, 10}, {}}, {{7, 11}, {}}, {{8, 12}, {}}}));
  std::map<int, int> openPerObject;
  for (const json& place : joined["defects"]["openEdges"]["places"]) ++openPerObject[place["object"].get<int>()];
  EXPECT_EQ(openPerObject, (std::map<int, int>{{1, 4}, {2, 4}}));
}

TEST(Convert, pipesPassWholeModels) {
  const TestFolder folder;
  const std::string model =
      folder.write("m.obj", std::string("v 0.1 1e+300 -7.25e-11\n") + kTetrahedron + "curv 1 2\n");
  const std::string pipe = "convert " + quoted(model) + " - --to obj | " + quoted(FACETBOX_PROGRAM);
  const RunResult facts = runProgram(pipe + " info - --from obj --json");
  ASSERT_EQ(facts.mExitCode, kExitOk) << facts.mErr;
  json piped = json::parse(facts.mOut), direct = jsonOfRun("info --json " + quoted(model), kExitOk);
  EXPECT_EQ(piped["file"], "-");
  for (json* const each : {&piped, &direct})
    for (const char* const key : {"file", "passedOver"}) each->erase(key);
  EXPECT_EQ(piped, direct);
  EXPECT_EQ(piped["boundingBox"]["max"][1].get<double>(), 1e300);
  EXPECT_EQ(piped["boundingBox"]["min"][2].get<double>(), -7.25e-11);

  const RunResult both = runProgram("convert - - --from obj --to obj <" + quoted(model));
  EXPECT_EQ(both.mExitCode, kExitOk) << both.mErr;
  EXPECT_EQ(both.mOut, readText(model).substr(0, readText(model).find("curv")));
  EXPECT_THAT(both.mErr, HasSubstr("note: skipped in standard input: 1 x "));
}

TEST(Convert, standardStreamsNeedAFormatAndFormatsHaveNames) {
  const TestFolder folder;
  const std::string model = quoted(folder.write("m.obj", kTetrahedron));
  const std::pair<std::string, const char*> cases[] = {
      {"convert " + model + " -", "standard output: has no name that tells its format; add --to"},
      {"info -", "standard input: has no name that tells its format; add --from"},
      {"check - - --from obj", "standard input: can be read only once"},
      {"convert " + model + " x.obj --to word", "--to: 'word' is not one of obj, ply,"},
      {"convert " + model + " x.doc", "x.doc: the name of the output must end in .obj"}};
  for (const auto& [arguments, message] : cases) {
    const RunResult run = runProgram(arguments);
    EXPECT_EQ(run.mExitCode, kExitBadInput) << arguments;
    EXPECT_THAT(run.mErr, HasSubstr(message));
    EXPECT_THAT(run.mOut, IsEmpty());
  }
  const std::string other = folder.path("model.txt");
  EXPECT_EQ(runProgram("convert " + model + " " + quoted(other) + " --to obj").mExitCode, kExitOk);
  EXPECT_EQ(readText(other), kTetrahedron);
  EXPECT_EQ(jsonOfRun("info --json --from obj " + quoted(other), kExitOk)["faces"], 4);
}

}  // namespace
}  // namespace tool
