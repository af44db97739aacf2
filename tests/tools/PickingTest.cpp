#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <tools/PngFile.h>
#include "ToolTestSupport.h"

namespace tool {
namespace {

Picture rendered(const TestFolder& folder, const std::string& model, const std::string& options) {
  const std::string out = folder.path("picture.png");
  const RunResult run = runProgram("render " + quoted(model) + " -o " + quoted(out) + " " + options);
  if (run.mExitCode != kExitOk) throw std::runtime_error(run.mErr);
  return parsePng(readText(out), out);
}

// Seen on a black background: 'f'ront, 'b'ack, '.' nothing.
char kindOf(const Picture& picture, int x, int y) {
  const std::uint8_t* const p = picture.mPixels.data() + 3 * (y * picture.mWidth + x);
  if (p[0] + p[1] + p[2] == 0) return '.';
  return p[0] > p[2] + 20 ? 'b' : 'f';
}

using Triangle = std::array<std::array<double, 3>, 3>;

// Least distance of a point from the lines through a triangle's sides, positive inside, as seen along z.
double depthInside(const Triangle& t, double x, double y) {
  double least = 1e9;
  for (std::size_t i = 0; i < 3; ++i) {
    const auto &a = t[i], &b = t[(i + 1) % 3], &c = t[(i + 2) % 3];
    const auto side = [&](double px, double py) { return (b[0] - a[0]) * (py - a[1]) - (b[1] - a[1]) * (px - a[0]); };
    least = std::min(least, side(x, y) * (side(c[0], c[1]) > 0 ? 1 : -1) / std::hypot(b[0] - a[0], b[1] - a[1]));
  }
  return least;
}

TEST(Render, everyPixelShowsTheNearerTriangleAndItsSideAtAnyScale) {
  const TestFolder folder;
  // The nearer one, at depth 8 of 10, shows its back.
  const Triangle far = {{{-4, -4, 0}, {4, -3, 0}, {0.5, 4, 0}}}, near = {{{0, 0, 2}, {-0.5, 3, 2}, {3.2, 1, 2}}};
  constexpr int kSize = 40;
  for (const double scale : {1.0, 1e-4, 1e7}) {
    SCOPED_TRACE(scale);
    std::string text;
    for (const Triangle& triangle : {far, near})
      for (const auto& p : triangle) text += fmt::format("v {} {} {}\n", p[0] * scale, p[1] * scale, p[2] * scale);
    const std::string model = folder.write("m.obj", text + "f 1 2 3\nf 4 5 6\n");
    const std::string view = fmt::format(
        "--eye 0,0,{} --look-at 0,0,0 --fov 53.130102 --size {}x{} --samples 1 "
        "--background black",
        10 * scale, kSize, kSize);
    const Picture plain = rendered(folder, model, view + " --by face");
    for (int row = 0; row < kSize; ++row) {
      for (int column = 0; column < kSize; ++column) {
        SCOPED_TRACE(testing::Message() << column << " " << row);
        // Places at depth 10, where the picture is 10 wide.
        const double x = (column + 0.5) / kSize * 10 - 5, y = 5 - (row + 0.5) / kSize * 10;
        const double inFar = depthInside(far, x, y), inNear = depthInside(near, x * 0.8, y * 0.8);
        if (std::min(std::fabs(inFar), std::fabs(inNear)) > 1e-3) {
          EXPECT_EQ(kindOf(plain, column, row), inNear > 0 ? 'b' : inFar > 0 ? 'f' : '.');
        }
      }
    }
  }
}

// Inside out, every wall is seen from its back: all ways to cut up the model give the same picture, unless an object
// that a ray hits was not among the candidates.
TEST(Render, theCutOfTheModelDoesNotChangeWhatIsSeenFromOutsideOrWithin) {
  const TestFolder folder;
  Model model = parseObj(readText(fs::path(FACETBOX_SAMPLES) / "pavilion_clean.obj"));
  const std::string plain = folder.write("plain.obj", textOf(model, Format::obj));
  std::vector<double>& points = model.objects.at(0).mesh.points;
  for (std::size_t i = 2; i < points.size(); i += 3) points[i] *= -1;
  const std::string mirrored = folder.write("mirrored.obj", textOf(model, Format::obj));
  for (const auto& [file, view] : {std::pair(plain, "--eye 4,2,6 --look-at 12,2.2,3 --fov 90"), std::pair(mirrored, ""),
                                   std::pair(mirrored, "--eye 3,9,-20 --up 0,0,1")}) {
    const std::string options = std::string(view) + " --size 120x90 --samples 1 --background black --by ";
    const Picture whole = rendered(folder, file, options + "object");
    EXPECT_EQ(rendered(folder, file, options + "face").mPixels, whole.mPixels) << view;
    EXPECT_EQ(rendered(folder, file, options + "material").mPixels, whole.mPixels) << view;
    std::set<char> kinds;
    for (int i = 0; i < 120 * 90; ++i) kinds.insert(kindOf(whole, i % 120, i / 120));
    EXPECT_TRUE(kinds.count('b') == 1 && kinds.count('f') == 0) << view;
  }
}

const char* const kWindow =
    "o wall\nv 0 0 0\nv 4 0 0\nv 4 4 0\nv 0 4 0\nv 1 1 0\nv 1 2 0\nv 2 2 0\nv 2 1 0\nusemtl stone\nf 1 2 3 4\n"
    "f 5 6 7 8\n# facetbox:holes 1 2\no behind\nv 0 0 -2\nv 0 4 -2\nv 4 4 -2\nv 4 0 -2\nusemtl wood\nf 9 10 11 12\n";

TEST(Pick, aRayGoesThroughAHoleAndTellsWhatItHits) {
  const TestFolder folder;
  const std::string pick = "pick " + quoted(folder.write("m.obj", kWindow)) + " --ray ";
  EXPECT_EQ(runProgram(pick + "1.5,1.5,5,0,0,-2").mOut,
            "name      behind\nid        2\ndistance  7\npoint     1.5 1.5 -2\nnormal    0 0 -1\nside      back\n");
  EXPECT_THAT(runProgram(pick + "1.5,2.5,5,0,0,-2 --by face").mOut,
              StartsWith("name      face 1 of wall\nid        1\n"));
  EXPECT_EQ(runProgram(pick + "1.5,2.5,5,0,0,1").mOut, "nothing\n");
  EXPECT_EQ(nlohmann::json::parse(runProgram(pick + "0,9,0,0,0,-1 --json").mOut), (nlohmann::json{{"hit", false}}));
  // From a thousand widths away, along a slope.
  const auto hit = nlohmann::json::parse(runProgram(pick + "3003,3.5,4000,-3,0,-4 --json --by material").mOut);
  EXPECT_EQ(hit["name"], "stone");
  EXPECT_NEAR(hit["distance"].get<double>(), 5000, 1e-6);
  for (std::size_t axis = 0; axis < 3; ++axis)
    EXPECT_NEAR(hit["point"][axis].get<double>(), (std::array{3.0, 3.5, 0.0}[axis]), 1e-6);
  // What is skipped in the file is said, beside the answer.
  const RunResult skipped = runProgram("pick " + quoted(folder.write("s.obj", std::string(kWindow) + "curv 1 2\n")) +
                                       " --ray 1.5,1.5,5,0,0,-2 --json");
  EXPECT_THAT(skipped.mErr, HasSubstr("s.obj: 1 x statement 'curv'\n"));
  EXPECT_EQ(nlohmann::json::parse(skipped.mOut)["side"], "back");
  EXPECT_EQ(hit["side"], "front");
}

std::set<int> idsOf(const RunResult& run) {
  std::set<int> ids;
  for (const auto& entry : nlohmann::json::parse(run.mOut)) ids.insert(entry["id"].get<int>());
  return ids;
}

TEST(Select, touchingAndInsideAreThoseOfASlowLookAtEachFace) {
  const TestFolder folder;
  // Face 10 row + column + 1 is a square of side 0.8 at (column, row).
  std::string text;
  for (int i = 0; i < 100; ++i) {
    const int x = i % 10, y = i / 10;
    text += fmt::format("v {0} {1} 0\nv {0}.8 {1} 0\nv {0}.8 {1}.8 0\nv {0} {1}.8 0\nf -4 -3 -2 -1\n", x, y);
  }
  const std::string select = "select " + quoted(folder.write("m.obj", text)) + " --json --by face ";
  std::mt19937 random(7);
  std::uniform_real_distribution<double> place(0.05, 9.95);
  for (int round = 0; round < 8; ++round) {
    double x0 = place(random), x1 = place(random), y0 = place(random), y1 = place(random);
    if (x0 > x1) std::swap(x0, x1);
    if (y0 > y1) std::swap(y0, y1);
    std::set<int> touching, inside;
    for (int i = 0; i < 100; ++i) {
      const int x = i % 10, y = i / 10;
      if (x < x1 && x + 0.8 > x0 && y < y1 && y + 0.8 > y0) touching.insert(i + 1);
      if (x > x0 && x + 0.8 < x1 && y > y0 && y + 0.8 < y1) inside.insert(i + 1);
    }
    // Alternately around the near face in either direction.
    const bool isTurned = round % 2 == 1;
    const auto ring = [&](double z) {
      return fmt::format("{0},{2},{4},{5},{6},{4},{1},{3},{4},{7},{8},{4}", x0, x1, y0, y1, z, isTurned ? x0 : x1,
                         isTurned ? y1 : y0, isTurned ? x1 : x0, isTurned ? y0 : y1);
    };
    const std::string block = "--volume " + ring(1) + "," + ring(-1);
    // From above, the whole picture is 20 wide at the faces, which fill its upper right quarter.
    const std::string view =
        fmt::format("--eye 0,0,20 --look-at 0,0,0 --fov 53.130102 --size 300x300 --window {},{},{},{}", 0.5 + x0 / 20,
                    0.5 - y1 / 20, 0.5 + x1 / 20, 0.5 - y0 / 20);
    for (const std::string& volume : {block, view}) {
      EXPECT_EQ(idsOf(runProgram(select + volume)), touching) << volume;
      EXPECT_EQ(idsOf(runProgram(select + volume + " --inside")), inside) << volume;
    }
  }
  const std::string window = "select " + quoted(folder.write("w.obj", kWindow));
  EXPECT_EQ(runProgram(window).mOut, "     1  wall\n     2  behind\n");
  EXPECT_EQ(runProgram(window + " --by material --eye 9,9,9 --look-at 20,20,20").mOut, "nothing\n");
}

TEST(Picking, badArgumentsAreToldAndWriteNothing) {
  const TestFolder folder;
  const std::string model = folder.write("m.obj", kWindow), out = folder.path("out.png");
  const std::string render = "render " + quoted(model) + " -o " + quoted(out) + " ";
  const std::pair<std::string, std::string> cases[] = {
      {"pick " + quoted(model) + " --ray 1,2,3,0,0", "--ray: '1,2,3,0,0' is not 6 finite numbers separated by commas"},
      {"pick " + quoted(model) + " --ray 1,2,3,0,0,0", "--ray: has no direction"},
      {render + "--size 640", "--size: '640' is not a size such as 640x480"},
      {render + "--size 16000x16000", "ask for a smaller picture"},
      {render + "--background blue", "--background: 'blue' is not a color"},
      {render + "--eye 1,1,1 --look-at 1,1,1", "--eye: equals the point looked at"},
      {render + "--by color", "--by"},
      {"render " + quoted(model) + " -o out.jpg", "out.jpg: the name of the picture must end in .png"},
      {"select " + quoted(model) + " --volume 1,2,3", "--volume: '1,2,3' is not 24 finite numbers"},
      {"select " + quoted(model) + " --window 0.5,0,0.5,1", "--window: is empty"}};
  for (const auto& [arguments, message] : cases) {
    const RunResult run = runProgram(arguments);
    EXPECT_EQ(run.mExitCode, kExitBadInput) << arguments << run.mErr;
    EXPECT_THAT(run.mErr, HasSubstr(message));
  }
  const RunResult unwritable = runProgram("render " + quoted(model) + " -o " + quoted(folder.path("missing/out.png")));
  EXPECT_EQ(unwritable.mExitCode, kExitFailure);
  EXPECT_THAT(unwritable.mErr, HasSubstr("cannot be written: No such file or directory"));
  EXPECT_EQ(runProgram("render " + quoted(model) + " -o /dev/full").mExitCode, kExitFailure);
  EXPECT_FALSE(fs::exists(out));
}

}  // namespace
}  // namespace tool
