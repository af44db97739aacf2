#include <nlohmann/json.hpp>

#include "ToolTestSupport.h"

namespace tool {
namespace {

std::string cleanCommand(const std::string& model, const std::string& out, const std::string& steps) {
  return "clean " + quoted(model) + " -o " + quoted(out) + " " + steps;
}

TEST(Program, infoTellsDefectsAsJson) {
  const TestFolder folder;
  // A tetrahedron whose last face is turned, with a face of no area, a fin on an edge, a stray vertex, a short face.
  const std::string model =
      folder.write("m.obj",
                   "o one\nv 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nv 9 9 9\nv 0 0 0\nusemtl a\nf 1 3 2\nf 1 2 4\nusemtl b\n"
                   "f 2 3 4\nusemtl a\nf 3 4 1\nf 1 2 6 6\nf 1 2\n# facetbox:holes 1 2\n");
  const RunResult run = runProgram("info --json " + quoted(model));
  ASSERT_EQ(run.mExitCode, kExitOk) << run.mErr;
  const auto json = nlohmann::json::parse(run.mOut);
  EXPECT_EQ(json["vertices"], 6);
  EXPECT_EQ(json["faces"], 6);
  EXPECT_EQ(json["facesByCorners"], (nlohmann::json{{"2", 1}, {"3", 4}, {"4", 1}}));
  EXPECT_EQ(json["materialRuns"], 3);
  EXPECT_EQ(json["materials"][0], (nlohmann::json{{"name", "a"}, {"faces", 5}}));
  EXPECT_EQ(json["holeFaces"], 1);
  EXPECT_EQ(json["boundingBox"]["max"], (nlohmann::json{9, 9, 9}));
  const nlohmann::json defects = {
      {"illegalFaces", 1},    {"repeatingFaces", 1}, {"zeroAreaFaces", 1},     {"nearlyZeroAreaFaces", 1},
      {"zeroLengthEdges", 2}, {"borderEdges", 2},    {"overusedEdges", 1},     {"sameDirectionEdges", 3},
      {"unusedVertices", 1},  {"doubleFaces", 0},    {"duplicateVertices", 1}, {"nearlyDuplicateVertices", 1},
      {"badHoles", 1}};
  EXPECT_EQ(json["defects"], defects);

  const RunResult table = runProgram("info " + quoted(folder.write("t.obj", kTetrahedron)));
  EXPECT_THAT(table.mOut, HasSubstr("\n  edges used once                               0\n"));
}

TEST(Program, badInputAndUsageEndWithTwoAndWriteNothing) {
  const TestFolder folder;
  const std::string good = folder.write("good.obj", kTetrahedron);
  const std::string bad = folder.write("bad.obj", "v 0 0 0\nf 1 2 3\n");
  const std::string out = folder.path("out.obj");
  const std::pair<std::string, std::string> cases[] = {
      {cleanCommand(bad, out, "--all 0.1"), bad + ":2: vertex index 3 is out of range"},
      {cleanCommand(folder.path("none.obj"), out, ""), "none.obj: cannot be read: No such file"},
      {cleanCommand(folder.write("range.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 7\n"), out, ""),
       "range.off:6: face 0 refers to vertex 7, but there are only 3"},
      {cleanCommand(folder.write("inf.off", "OFF\n3 1 0\n0 0 0\n1 inf 0\n0 1 0\n3 0 1 2\n"), out, ""),
       "inf.off:4: 'inf' is not a finite number"},
      {cleanCommand(good, folder.path("out.xyz"), ""), "out.xyz: the name of the output must end in .obj"},
      {cleanCommand(good, out, "--merge-vertices nan"), "--merge-vertices: 'nan' is not a finite number of 0 or more"},
      {cleanCommand(good, out, "--remove-coplanar 200"), "--remove-coplanar: '200' is not a number from 0 to 180"},
      {cleanCommand(good, out, "--polish"), ""},
      {"", ""},
  };
  for (const auto& [arguments, message] : cases) {
    const RunResult run = runProgram(arguments);
    EXPECT_EQ(run.mExitCode, kExitBadInput) << arguments << run.mErr;
    EXPECT_THAT(run.mErr, HasSubstr(message));
    EXPECT_THAT(run.mErr, Not(IsEmpty())) << arguments;
  }
  EXPECT_FALSE(fs::exists(out));
}

TEST(Program, failuresEndWithOneAndStandardOutputIsAFileToo) {
  const TestFolder folder;
  const std::string good = folder.write("good.obj", kTetrahedron);
  const RunResult nothing = runProgram(cleanCommand(good, folder.path("out.obj"), "--remove-zero-area 100"));
  EXPECT_EQ(nothing.mExitCode, kExitFailure);
  EXPECT_THAT(nothing.mErr, HasSubstr("--remove-zero-area 100 leaves nothing of the model; no file is written"));
  EXPECT_FALSE(fs::exists(folder.path("out.obj")));
  EXPECT_EQ(runProgram(cleanCommand(good, folder.path("missing/out.obj"), "")).mExitCode, kExitFailure);
  EXPECT_EQ(runProgram(cleanCommand(good, "/dev/full", "")).mExitCode, kExitFailure);
  // Standard output is for the model then, and the report elsewhere.
  const RunResult run = runProgram(cleanCommand(good, "/dev/stdout", ""));
  EXPECT_EQ(run.mExitCode, kExitOk);
  EXPECT_EQ(run.mOut, kTetrahedron);
  EXPECT_THAT(run.mErr, HasSubstr("before"));
}

}  // namespace
}  // namespace tool
