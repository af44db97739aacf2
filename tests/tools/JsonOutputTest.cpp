// What the commands print with --json: as the schemas say, with numbers in full; and clean-ups of several models.

#include <cmath>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <facetbox/clean.h>
#include "ToolTestSupport.h"

namespace tool {
namespace {

using nlohmann::json;

/// Holds a value against a schema, as far as ours go: type, properties, required, additionalProperties, items,
/// minItems, maxItems, enum, minimum, anyOf and $ref. @return what is wrong; empty if nothing is
class Schema {
 public:
  explicit Schema(const std::string& name)
      : mRoot(json::parse(readText(fs::path(FACETBOX_SAMPLES) / "../../docs/schema" / (name + ".json")))) {}

  std::string errorIn(const json& value) const { return errorIn(value, mRoot, ""); }

 private:
  static bool isOfType(const json& value, const std::string& type) {
    if (type == "integer") return value.is_number_integer();
    return type == (value.is_number() ? "number" : value.is_boolean() ? "boolean" : value.type_name());
  }

  std::string errorIn(const json& value, const json& schema, const std::string& at) const {
    std::set<std::string> known = {"$schema", "title", "$defs"};
    std::string error;
    const auto check = [&](const char* key, auto test) {
      known.insert(key);
      if (error.empty() && schema.contains(key)) error = test(schema[key]);
    };
    check("$ref", [&](const json& ref) {
      return errorIn(value, mRoot.at(json::json_pointer(ref.get<std::string>().substr(1))), at);
    });
    check("anyOf", [&](const json& choices) {
      std::string all;
      for (const json& choice : choices) {
        const std::string own = errorIn(value, choice, at);
        if (own.empty()) return std::string();
        all += own + "; ";
      }
      return all;
    });
    check("type", [&](const json& types) {
      for (const json& type : types.is_array() ? types : json::array({types}))
        if (isOfType(value, type)) return std::string();
      return at + " is no " + types.dump();
    });
    check("enum", [&](const json& values) {
      return std::ranges::find(values, value) == values.end() ? at + " is " + value.dump() : "";
    });
    check("minimum", [&](const json& least) { return value < least ? at + " is too small" : ""; });
    check("minItems", [&](const json& least) { return value.size() < least ? at + " is too short" : ""; });
    check("maxItems", [&](const json& most) { return value.size() > most ? at + " is too long" : ""; });
    check("required", [&](const json& names) {
      for (const json& name : names)
        if (!value.contains(name.get<std::string>())) return at + " has no " + name.dump();
      return std::string();
    });
    check("items", [&](const json& items) { return errorInEach(value, items, at); });
    check("properties", [&](const json& properties) {
      for (const auto& [name, own] : properties.items())
        if (value.contains(name))
          if (const std::string inner = errorIn(value[name], own, at + "/" + name); !inner.empty()) return inner;
      return std::string();
    });
    check("additionalProperties", [&](const json& more) {
      for (const auto& [name, member] : value.items()) {
        if (schema.contains("properties") && schema["properties"].contains(name)) continue;
        const std::string inner = more == false ? at + " has a " + name : errorIn(member, more, at + "/" + name);
        if (!inner.empty()) return inner;
      }
      return std::string();
    });
    for (const auto& [key, unused] : schema.items())
      if (!known.contains(key)) return "the schema has a " + key;
    return error;
  }

  std::string errorInEach(const json& values, const json& schema, const std::string& at) const {
    for (std::size_t i = 0; i < values.size(); ++i)
      if (const std::string error = errorIn(values[i], schema, at + "/" + std::to_string(i)); !error.empty())
        return error;
    return "";
  }

  const json mRoot;
};

std::string pavilion() { return quoted((fs::path(FACETBOX_SAMPLES) / "pavilion.obj").string()); }
std::string fault(const char* name) { return quoted((fs::path(FACETBOX_TEST_DATA) / "faults" / name).string()); }

TEST(JsonOutput, isAsTheSchemasSay) {
  const TestFolder folder;
  const std::string bad = " " + quoted(folder.write("bad.obj", "v 0 0 0\nf 1 2 3\n"));
  const std::string model =
      quoted(folder.write("m.obj",
                          "v 0 0 0\nv 4 0 0\nv 4 4 0\nv 0 4 0\nv 0 1 0\nv 1 2 0\nv 1 1 0\n"
                          "f 1 2 3 4\nf 5 6 7\nf 1 2\nf 1 2 4 3 1\ncurv 3\n# facetbox:holes 1 2\n"));
  const std::string out = " --json -o " + quoted(folder.path("out.obj")) + " ",
                    picture = " -o " + quoted(folder.path("p.png")), many = " --json -o " + quoted(folder.path("all/"));
  const std::pair<const char*, std::string> runs[] = {
      {"info", "info --json " + pavilion()},
      {"info", "info --json " + model + bad},
      {"check", "check --json --t-corners --self-intersections " + pavilion()},
      {"check", "check --json --join --limit 1 " + model + bad + " " + fault("touching_hole.obj")},
      {"clean", "clean " + pavilion() + out + "--all 0.01"},
      {"clean", "clean " + model + out + "--all 0.1% --triangulate"},
      {"clean", "clean " + model + bad + many + " --join --conform-normals --merge-vertices 1e-6%"},
      {"clean", "clean" + bad + out},
      {"convert", "convert --json " + model + " " + quoted(folder.path("out.obj"))},
      {"convert", "convert --json" + bad + " " + quoted(folder.path("out.obj"))},
      {"render", "render --json " + pavilion() + picture + " --show defects --self-intersections --compare " + model},
      {"render", "render --json " + model + picture},
      {"render", "render --json" + bad + picture},
      {"pick", "pick --json " + pavilion() + " --ray 8,2,30,0,0,-1"},
      {"pick", "pick --json " + pavilion() + " --ray 8,2,30,0,0,1"},
      {"select", "select --json " + pavilion() + " --by material"},
      {"query", "query --json " + pavilion() + " --nearest --by material"},
      {"query", "query --json " + pavilion() + " --ray 8,2,30,0,0,-1 --by face"}};
  for (const auto& [schema, arguments] : runs) {
    const RunResult run = runProgram(arguments);
    const json value = json::parse(run.mOut, nullptr, false);
    ASSERT_FALSE(value.is_discarded()) << arguments << run.mOut << run.mErr;
    EXPECT_EQ(Schema(schema).errorIn(value), "") << arguments;
    EXPECT_NE(Schema(schema).errorIn(json{{"file", 1}}), "");
  }
}

json cleanJson(const std::string& arguments) {
  const TestFolder folder;
  const RunResult run = runProgram("clean --json -o " + quoted(folder.path("o.obj")) + " " + arguments);
  EXPECT_EQ(run.mExitCode, kExitOk) << arguments << run.mErr;
  return json::parse(run.mOut);
}

// Every line of the table is a step; numbers are those that the library's own report has, bit for bit.
TEST(JsonOutput, stepsOfACleanUpAreThoseOfTheLibrary) {
  const Model model = facetbox::readModel(fs::path(FACETBOX_SAMPLES) / "pavilion.obj");
  const std::vector<facetbox::Step> steps = {facetbox::MergeVertices{0.1 + 0.2}, facetbox::RemoveDoubleFaces{},
                                             facetbox::ConformNormals{}, facetbox::RemoveZeroFaces{1.0 / 3}};
  const auto cleaned = facetbox::clean(model.objects.at(0).mesh, steps, {.measures = true});
  const json told =
      cleanJson(pavilion() + fmt::format(" --merge-vertices {} --remove-double --conform-normals --remove-zero-area {}",
                                         0.1 + 0.2, 1.0 / 3));
  ASSERT_EQ(told["steps"].size(), steps.size());
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const json& step = told["steps"][i];
    const facetbox::StepReport& report = cleaned.steps[i];
    EXPECT_EQ(step["after"]["vertices"], report.after.vertices);
    EXPECT_EQ(step["after"]["faces"], report.after.faces);
    EXPECT_EQ(step["after"]["openEdges"], report.measuresAfter->openEdges);
    EXPECT_EQ(step["after"]["area"].get<double>(), report.measuresAfter->area);
    EXPECT_EQ(step["facesTurned"], report.facesTurned);
    EXPECT_EQ(step["cornersCollapsed"], report.cornersCollapsed);
    EXPECT_EQ(step["droppedHoles"].size(), report.droppedHoles.size());
  }
  EXPECT_EQ(told["steps"][0]["value"].get<double>(), 0.1 + 0.2);
  EXPECT_EQ(told["steps"][3]["value"].get<double>(), 1.0 / 3);
  const json& seconds = told["seconds"];
  EXPECT_DOUBLE_EQ(
      seconds["reading"].get<double>() + seconds["cleaning"].get<double>() + seconds["writing"].get<double>(),
      seconds["total"].get<double>());
  EXPECT_NEAR(seconds["shares"]["reading"].get<double>() + seconds["shares"]["cleaning"].get<double>() +
                  seconds["shares"]["writing"].get<double>(),
              1, 1e-12);
}

TEST(JsonOutput, droppedHolesHaveTheirReasons) {
  const json told = cleanJson(fault("touching_hole.obj"));
  EXPECT_EQ(told["input"]["droppedHoles"],
            (json{{{"outer", 1},
                   {"hole", 2},
                   {"reason", "touches"},
                   {"text", "Face 2 is no hole of face 1 any more: it touches the outline."}}}));
}

double diagonalOf(const std::string& model) {
  const json box = json::parse(runProgram("info --json " + model).mOut)["boundingBox"];
  return box["diagonal"];
}

TEST(Tolerances, inPerCentAreThoseOfEachObject) {
  const TestFolder folder;
  // The same damaged box twice, the second one 1000 times as large, as objects of one file and as two files.
  const auto box = [](const char* name, double size, int first) {
    std::string text = fmt::format("o {}\n", name);
    for (const double z : {0.0, 1.0})
      for (const auto& [x, y] : {std::pair{0.0, 0.0}, {1.0, 0.0}, {1.0, 1.0}, {0.0, 1.0}, {1.0, 1.004}})
        text += fmt::format("v {} {} {}\n", x * size, y * size, z * size);
    for (const auto& face :
         {std::vector{4, 3, 2, 1}, {6, 7, 8, 9}, {1, 2, 7, 6}, {2, 3, 8, 7}, {5, 4, 9, 10}, {4, 1, 6, 9}}) {
      text += "f";
      for (const int corner : face) text += fmt::format(" {}", first + corner - 1);
      text += "\n";
    }
    return text;
  };
  const std::string small = quoted(folder.write("small.obj", box("small", 1, 1)));
  const std::string large = quoted(folder.write("large.obj", box("large", 1000, 1)));
  const std::string both = quoted(folder.write("both.obj", box("small", 1, 1) + box("large", 1000, 11)));
  const auto cleaned = [&](const std::string& model, const std::string& steps) {
    const std::string out = folder.path("o.obj");
    EXPECT_EQ(runProgram("clean " + model + " -o " + quoted(out) + " " + steps).mExitCode, kExitOk);
    return facetbox::readModel(out).objects;
  };
  for (const char* const steps : {"--all {}", "--merge-vertices {} --remove-zero-edges {}"}) {
    const auto relative = cleaned(both, fmt::format(fmt::runtime(steps), "0.3%", "0.3%"));
    ASSERT_EQ(relative.size(), 2U);
    for (const auto& [object, model] : {std::pair{0, small}, {1, large}}) {
      const double length = 0.3 / 100 * diagonalOf(model);
      const auto absolute = cleaned(model, fmt::format(fmt::runtime(steps), length, length));
      EXPECT_EQ(relative[static_cast<std::size_t>(object)].mesh, absolute.at(0).mesh);
      EXPECT_EQ(absolute[0].mesh.points.size(), 24U);
    }
  }
  const json step = cleanJson(both + " --merge-vertices 0.3% --remove-zero-area 0.3%")["steps"];
  EXPECT_EQ(step[0]["step"], "--merge-vertices 0.3%");
  EXPECT_EQ(step[0]["values"], (json{0.3 / 100 * diagonalOf(small), 0.3 / 100 * diagonalOf(large)}));
  EXPECT_EQ(step[1]["values"][1].get<double>(), 0.3 / 100 * diagonalOf(large) * diagonalOf(large));
  EXPECT_EQ(cleanJson(both + " --all 0.3%")["steps"][2]["step"], "--remove-zero-area 1e-10%");
}

// Four pairs of equal vertices across two objects, and one pair within one.
constexpr const char* kNeighbors =
    "o left\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 1 0\nf 1 2 3 4\nf 1 3 5\no right\nv 1 0 0\nv 2 0 0\nv 2 1 0\n"
    "v 1 1 0\nf 6 7 8 9\n";

TEST(CleanObjects, theWeldTellsWhatJoiningWouldWeld) {
  const TestFolder folder;
  const std::string model = quoted(folder.write("m.obj", kNeighbors));
  const std::string clean = "clean " + model + " -o " + quoted(folder.path("o.obj")) + " --merge-vertices 1e-6";
  EXPECT_THAT(runProgram(clean).mOut, HasSubstr("  2 more lie in different objects: --join\n"));
  const json apart = cleanJson(model + " --merge-vertices 1e-6"),
             joined = cleanJson(model + " --join --merge-vertices 1e-6");
  EXPECT_EQ(apart["steps"][0]["weldsInDifferentObjects"], 2);
  EXPECT_EQ(joined["steps"][0]["weldsInDifferentObjects"], 0);
  EXPECT_EQ(apart["after"]["vertices"].get<int>() - joined["after"]["vertices"].get<int>(), 2);
  EXPECT_THAT(runProgram(clean + " --join").mOut, Not(HasSubstr("--join\n")));
  const Model split = facetbox::readModel(folder.path("o.obj"));
  ASSERT_EQ(split.objects.size(), 2U);
  EXPECT_EQ(split.objects[0].name, "left");
  EXPECT_EQ(split.objects[1].name, "right");
  // Vertices that objects share in the file are one already.
  const std::string shared =
      quoted(folder.write("s.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 0\no a\nf 1 2 3\no b\nf 3 2 4\n"));
  EXPECT_EQ(cleanJson(shared + " --merge-vertices 0.1")["steps"][0]["weldsInDifferentObjects"], 0);
}

TEST(CleanSeveral, oneThatFailsDoesNotStopTheOthers) {
  const TestFolder folder;
  const std::string a = folder.write("a.obj", kTetrahedron), bad = folder.write("bad.obj", "v 0 0 0\nf 1 2 3\n"),
                    flat = folder.write("flat.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"),
                    c = folder.write("c.ply", textOf(parseObj(kTetrahedron), Format::ply));
  const std::string all = quoted(a) + " " + quoted(bad) + " " + quoted(flat) + " " + quoted(c),
                    steps = " --remove-zero-area 0.5001";
  RunResult run = runProgram("clean " + all + " -o " + quoted(folder.path("out/")) + steps + " --to obj");
  EXPECT_EQ(run.mExitCode, kExitBadInput);
  EXPECT_THAT(run.mErr, HasSubstr("bad.obj:2: vertex index 3 is out of range"));
  EXPECT_THAT(run.mErr, HasSubstr("flat.obj: --remove-zero-area 0.5001 leaves nothing"));
  EXPECT_THAT(run.mOut, HasSubstr("\n4 models, 2 failed\n"));
  EXPECT_THAT(run.mOut, HasSubstr("4 -> 3 vertices, 4 -> 1 faces\n"));
  EXPECT_EQ(readText(folder.path("out/a.obj")), readText(folder.path("out/c.obj")));
  EXPECT_FALSE(fs::exists(folder.path("out/bad.obj")) || fs::exists(folder.path("out/flat.obj")));
  // The first failure's code.
  EXPECT_EQ(
      runProgram("clean " + quoted(flat) + " " + quoted(bad) + " -o " + quoted(folder.path("out")) + steps).mExitCode,
      kExitFailure);
  // In their own folder, models are replaced.
  EXPECT_EQ(runProgram("clean " + quoted(a) + " -o " + quoted(folder.path("")) + steps).mExitCode, kExitOk);
  EXPECT_EQ(readText(a), readText(folder.path("out/a.obj")));
  for (const auto& [arguments, message] :
       {std::pair{all + " -o " + quoted(folder.path("x.obj")), "is one file, but there are 4 models"},
        {quoted(a) + " " + quoted(folder.path("out/a.obj")) + " -o " + quoted(folder.path("n/")),
         "would both be written as"}}) {
    run = runProgram("clean " + arguments);
    EXPECT_EQ(run.mExitCode, kExitBadInput);
    EXPECT_THAT(run.mErr, HasSubstr(message));
  }
  EXPECT_FALSE(fs::exists(folder.path("n")));
}

TEST(CleanStreams, aModelPassesAndTheReportGoesElsewhere) {
  const TestFolder folder;
  const std::string model = quoted(folder.write("m.obj", kTetrahedron));
  const RunResult run = runProgram("clean - -o - --from obj --to obj --all 1e-6 --json <" + model);
  EXPECT_EQ(run.mExitCode, kExitOk) << run.mErr;
  EXPECT_EQ(run.mOut, kTetrahedron);
  EXPECT_EQ(json::parse(run.mErr)["after"]["faces"], 4);
}

TEST(ArgumentErrors, arePlainSentencesThatNameTheNearest) {
  const std::pair<const char*, const char*> cases[] = {
      {"clean a.obj -o b.obj --remove-doubles",
       "--remove-doubles: facetbox clean has no such option; did you mean --remove-double? See facetbox clean --help"},
      {"clean --mege 1 a.obj -o b.obj", "did you mean --merge-vertices?"},
      {"chek a.obj", "chek: there is no such command; did you mean check? See facetbox --help"},
      {"convert a.obj b.obj c.obj", "c.obj: facetbox convert takes no further argument."},
      {"info", "facetbox info: MODEL is missing."},
      {"", "no command is given. See facetbox --help"},
      {"clean a.obj -o b.obj --all", "--all: LENGTH is missing behind it."},
      {"info a.obj --json=no-idea", "--json takes no value."},
      {"query a.obj --raster a.png --nearest", "--raster and --nearest cannot be given together."},
      {"query a.obj -o a.png", "--output needs --raster."},
      {"select a.obj --by faces", "--by: 'faces' is not object|face|material."},
      {"select a.obj --by face --by face", "--by: is given 2 times, but can be only once."},
      {"check a.obj --limit -1", "--limit: '-1' is not a whole number of 0 or more"},
      {"clean a.obj -o b.obj --all 3%%", "--all: '3%%' is not a finite number of 0 or more, such as"}};
  for (const auto& [arguments, message] : cases) {
    const RunResult run = runProgram(arguments);
    EXPECT_EQ(run.mExitCode, kExitBadInput) << arguments;
    EXPECT_THAT(run.mErr, StartsWith("facetbox: "));
    EXPECT_THAT(run.mErr, HasSubstr(message));
    EXPECT_THAT(run.mOut, IsEmpty());
  }
}

}  // namespace
}  // namespace tool
