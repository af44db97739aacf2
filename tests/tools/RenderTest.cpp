#include <array>
#include <cmath>
#include <cstdlib>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <tools/LinePainter.h>
#include <tools/Overlays.h>
#include <tools/PngFile.h>
#include <tools/Text.h>
#include "ToolTestSupport.h"

namespace tool {
namespace {

constexpr int kSize = 100;
// From 10 above; places at z = 0 are ten pixels a unit apart, (0, 0) is in the middle.
const std::string kFromAbove = " --eye 0,0,10 --look-at 0,0,0 --fov 53.130102 --size 100x100";

Picture drawn(const TestFolder& folder, const std::string& arguments) {
  const std::string out = folder.path("picture.png");
  const RunResult run = runProgram("render -o " + quoted(out) + " " + arguments);
  if (run.mExitCode != kExitOk) throw std::runtime_error(run.mErr);
  return parsePng(readText(out), out);
}

Color colorAt(const Picture& picture, double x, double y) {
  const std::uint8_t* const p = picture.pixel(static_cast<int>(50 + 10 * x), static_cast<int>(50 - 10 * y));
  return {p[0], p[1], p[2]};
}

Picture partOf(const Picture& picture, int left, int top, int width, int height) {
  Picture part = Picture::filled(width, height, {});
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) std::copy_n(picture.pixel(left + x, top + y), 3, part.pixel(x, y));
  return part;
}

constexpr Color kOpen{213, 94, 0}, kOverused{0, 114, 178}, kSameWay{170, 51, 119}, kZero{0, 158, 115};

// Closed but for what is told; its upper side is a square from -3 to 3 at z = 0, of two triangles.
std::string boxWith(const std::string& upper) {
  return "v -3 -3 0\nv 3 -3 0\nv 3 3 0\nv -3 3 0\nv -3 -3 -2\nv 3 -3 -2\nv 3 3 -2\nv -3 3 -2\n"
         "f 8 7 6 5\nf 1 5 6 2\nf 2 6 7 3\nf 3 7 8 4\nf 4 8 5 1\n" +
         upper;
}

TEST(RenderDefects, edgesHaveTheColorOfWhatIsWrongWithThem) {
  const TestFolder folder;
  const auto seen = [&](const std::string& upper) {
    return drawn(folder, quoted(folder.write("m.obj", boxWith(upper))) + kFromAbove + " --show defects");
  };
  const Picture closed = seen("f 1 2 3\nf 1 3 4\n");
  for (int i = 0; i < kSize * kSize; ++i) {
    const std::uint8_t* const p = closed.pixel(i % kSize, i / kSize);
    EXPECT_TRUE(std::abs(p[0] - p[1]) < 10 && std::abs(p[1] - p[2]) < 10) << i % kSize << " " << i / kSize;
  }
  const Picture open = seen("f 1 2 3\n");
  EXPECT_EQ(colorAt(open, -1, -1), kOpen);
  EXPECT_EQ(colorAt(open, -3, 1), kOpen);
  EXPECT_EQ(colorAt(open, -1, 3), kOpen);
  EXPECT_NE(colorAt(open, 1, -3), kOpen);
  EXPECT_EQ(colorAt(seen("f 1 2 3\nf 1 3 4\nv 2 -2 1\nf 1 3 9\n"), -1, -1), kOverused);
  const Picture turned = seen("f 1 2 3\nf 1 4 3\n");
  EXPECT_EQ(colorAt(turned, -1, -1), kSameWay);
  const Color face = colorAt(turned, -1, 1);
  EXPECT_TRUE(face[0] > face[1] + 30 && face[1] > face[2] + 60) << "the turned face is orange";
  const Color sound = colorAt(turned, 1, -1);
  EXPECT_LT(std::abs(sound[0] - sound[2]), 10);
  // A face without an area is on the diagonal; vertex 9 is there twice.
  EXPECT_EQ(colorAt(seen("v 0 0 0\nf 1 2 3\nf 1 9 3\nf 1 3 4\n"), -1, -1), kZero);
}

TEST(RenderDefects, verticesAreDotsAndHiddenMarksAreFaint) {
  const TestFolder folder;
  // A T-corner at (0, -2), two vertices at (2, 2).
  const std::string model = folder.write("m.obj",
                                         "v -2 -2 0\nv 2 -2 0\nv 2 2 0\nv -2 2 0\nv 0 -2 0\nv 0 -4 0\nv 2 -4 0\n"
                                         "v 2 2 0\nv 3 2 0\nv 3 3 0\nf 1 2 3 4\nf 5 6 7\nf 8 9 10\n");
  const Picture dots = drawn(folder, quoted(model) + kFromAbove + " --show defects");
  EXPECT_EQ(colorAt(dots, 0, -2), (Color{0, 0, 0}));
  EXPECT_EQ(colorAt(dots, 2, 2), (Color{255, 255, 255}));
  EXPECT_EQ(colorAt(dots, -2, 0), kOpen);
  // A hole that reaches out of its face; an edge between two vertices at (3, 3).
  const std::string other = folder.write("h.obj",
                                         "v -3 -3 0\nv 3 -3 0\nv 3 3 0\nv -3 3 0\nv 3 3 0\nv -2 -1 0\nv 1 -1 0\n"
                                         "v 1 4 0\nf 1 2 3 5 4\nf 6 7 8\n# facetbox:holes 1 2\n");
  const Picture more = drawn(folder, quoted(other) + kFromAbove + " --show defects");
  EXPECT_EQ(colorAt(more, 0, -1), (Color{0, 0, 0}));
  EXPECT_EQ(colorAt(more, 3.4, 3.4), kZero);
  EXPECT_EQ(colorAt(more, 3, 3), (Color{255, 255, 255}));
  // The square is behind a larger one: the mark is between the color of the face before it and its own.
  const std::string covered = folder.write("c.obj",
                                           "v -2 -2 -1\nv 2 -2 -1\nv 2 2 -1\nv -2 2 -1\nv -4 -4 0\nv 4 -4 0\nv 4 4 0\n"
                                           "v -4 4 0\no low\nf 1 2 3 4\no high\nf 5 6 7 8\n");
  const Picture faint = drawn(folder, quoted(covered) + kFromAbove + " --show defects");
  EXPECT_EQ(colorAt(faint, -4, 0), kOpen);
  const Color before = colorAt(faint, 0, 0), mark = colorAt(faint, 0, -2 / 1.1);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(mark[i], before[i] + 0.3 * (kOpen[i] - before[i]), 30) << i;
  EXPECT_GT(before[2] - mark[2], 30);
}

TEST(RenderDefects, intersectingFacesAreFoundOnRequest) {
  const TestFolder folder;
  const std::string model = quoted(folder.write(
      "m.obj", "v -4 -4 0\nv 4 -4 0\nv 4 4 0\nv -4 4 0\nv 0 1 -1\nv 0 2 1\nv 0 3 -1\nf 1 2 3 4\nf 5 6 7\n"));
  const auto blueLess = [&](const std::string& options) {
    const Color color = colorAt(drawn(folder, model + kFromAbove + " --show defects" + options), -2, -2);
    return color[0] - color[2];
  };
  EXPECT_LT(blueLess(""), 10);
  EXPECT_GT(blueLess(" --self-intersections"), 100);
  for (const std::string options : {"--self-intersections", "--show defects --by face", "--show holes"})
    EXPECT_EQ(runProgram("render " + model + " -o " + quoted(folder.path("out.png")) + " " + options).mExitCode,
              kExitBadInput)
        << options;
}

TEST(RenderDefects, theLegendCountsAndLeavesTheViewAsItIs) {
  const TestFolder folder;
  const std::string model = quoted(folder.write("m.obj", boxWith("f 1 2 3\n")));
  const Picture plain = drawn(folder, model + " --show defects --size 640x200");
  ASSERT_GT(plain.mHeight, 200);
  // The first entry says how many open edges there are.
  Picture expected = partOf(plain, 0, 0, 640, plain.mHeight);
  drawText(expected, 28, 204, "3 open edges", {0, 0, 0}, 1);
  EXPECT_EQ(expected.mPixels, plain.mPixels);
  drawText(expected, 28, 204, "4", {0, 0, 0}, 1);
  EXPECT_NE(expected.mPixels, plain.mPixels);
}

TEST(RenderCompare, eachHalfIsThePictureOfItsModelAlone) {
  const TestFolder folder;
  const std::string one = folder.write("one.obj", boxWith("f 1 2 3\n"));
  const std::string other = folder.write("other.obj", boxWith("f 1 2 3\nf 1 3 4\nv 0 0 5\nf 1 3 9\n"));
  for (const std::string& view :
       {kFromAbove + " --show defects", std::string(" --eye 9,8,7 --look-at 1,0,-1 --size "
                                                    "80x60 --axes --scale-bar --wireframe")}) {
    const Picture left = drawn(folder, quoted(one) + view), right = drawn(folder, quoted(other) + view);
    const Picture both = drawn(folder, quoted(one) + view + " --compare " + quoted(other));
    ASSERT_EQ(both.mWidth, left.mWidth + 4 + right.mWidth);
    const int caption = kCharacterHeight + 8;
    const int height = view.find("defects") == std::string::npos ? left.mHeight : kSize;
    EXPECT_EQ(partOf(both, 0, caption, left.mWidth, height).mPixels, partOf(left, 0, 0, left.mWidth, height).mPixels);
    EXPECT_EQ(partOf(both, left.mWidth + 4, caption, left.mWidth, height).mPixels,
              partOf(right, 0, 0, left.mWidth, height).mPixels);
  }
  // Without an eye given, both have that of the first: the same model, larger by what stands far off, looks the same.
  const std::string near = folder.write("near.obj", boxWith("f 1 2 3\nf 1 3 4\n"));
  const std::string far =
      folder.write("far.obj", boxWith("f 1 2 3\nf 1 3 4\nv 900 0 0\nv 901 0 0\nv 900 1 0\nf 9 10 11\n"));
  const Picture both = drawn(folder, quoted(near) + " --size 60x60 --samples 1 --compare " + quoted(far));
  const Picture left = partOf(both, 0, 21, 60, 60), right = partOf(both, 64, 21, 60, 60);
  int unlike = 0;
  for (std::size_t i = 0; i < left.mPixels.size(); ++i) unlike += std::abs(left.mPixels[i] - right.mPixels[i]) > 2;
  EXPECT_LT(unlike, 60);
}

nlohmann::json jsonOf(const std::string& arguments) {
  const RunResult run = runProgram(arguments + " --json");
  EXPECT_THAT(run.mExitCode, testing::AnyOf(kExitOk, kExitDefects)) << run.mErr;
  return nlohmann::json::parse(run.mOut);
}

TEST(RenderJson, saysWhatOtherCommandsSayAndWhereFrom) {
  const TestFolder folder;
  const std::string out = " -o " + quoted(folder.path("p.png")), again = quoted(folder.path("q.png"));
  for (const std::string name : {"pavilion.obj", "pavilion_clean.obj"}) {
    const std::string model = quoted((fs::path(FACETBOX_SAMPLES) / name).string());
    const nlohmann::json told = jsonOf("render " + model + out + " --show defects --self-intersections");
    const nlohmann::json checked = jsonOf("check " + model + " --t-corners --self-intersections");
    nlohmann::json drawn = told["models"].at(0);
    drawn["defects"].erase("turnedFaces");  // told by no check
    for (const auto& [kind, list] : drawn["defects"].items())
      EXPECT_EQ(list["count"], checked["defects"].at(kind)["count"]) << name << kind;
    EXPECT_EQ(drawn["objects"], checked["objects"].size());
    runProgram("convert " + model + " " + quoted(folder.path("t.stl")));
    EXPECT_EQ(drawn["triangles"], jsonOf("info " + quoted(folder.path("t.stl")))["faces"]) << name;
    const Picture picture = parsePng(readText(folder.path("p.png")), "p");
    EXPECT_EQ(told["width"], picture.mWidth);
    EXPECT_EQ(told["height"], picture.mHeight);
    const auto commas = [](const nlohmann::json& v) {
      return fmt::format("{},{},{}", v[0].dump(), v[1].dump(), v[2].dump());
    };
    const nlohmann::json& camera = told["camera"];
    const std::string view = fmt::format(" --eye {} --look-at {} --up {} --fov {}", commas(camera["eye"]),
                                         commas(camera["lookAt"]), commas(camera["up"]), camera["fieldOfView"].dump());
    EXPECT_EQ(jsonOf("render " + model + " -o " + again + view + " --show defects --self-intersections")["camera"],
              camera);
    const Picture same = parsePng(readText(folder.path("q.png")), "q");
    int unlike = 0;
    for (std::size_t i = 0; i < same.mPixels.size(); ++i) unlike += std::abs(same.mPixels[i] - picture.mPixels[i]) > 2;
    EXPECT_LT(unlike, 60);
  }
}

TEST(RenderJson, modelsAndPicturesPassThroughPipes) {
  const TestFolder folder;
  const std::string path = folder.write("m.obj", boxWith("f 1 2 3\ncurv 1\n")), model = quoted(path);
  const std::string view = kFromAbove + " --from obj";
  drawn(folder, model + view);
  const RunResult piped = runProgram("render - -o - --json" + view + " <" + model);
  EXPECT_EQ(piped.mOut, readText(folder.path("picture.png")));
  const nlohmann::json told = nlohmann::json::parse(piped.mErr);
  EXPECT_EQ(told["models"][0]["passedOver"], (nlohmann::json{{"statement 'curv'", 1}}));
  EXPECT_EQ(told["models"][0]["faces"], 6);
  EXPECT_THAT(runProgram("render " + model + " -o " + quoted(folder.path("n.png"))).mErr,
              HasSubstr("m.obj: 1 x statement 'curv'"));
  for (const std::string command : {"pick {} --ray 1,-1,9,0,0,-1", "select {}", "query {} --nearest"}) {
    const RunResult named = runProgram(fmt::format(fmt::runtime(command), model));
    const RunResult streamed = runProgram(fmt::format(fmt::runtime(command), "- --from obj") + " <" + model);
    EXPECT_THAT(named.mOut, HasSubstr("object 1"));
    EXPECT_EQ(streamed.mOut, named.mOut);
    EXPECT_THAT(streamed.mErr, HasSubstr("standard input: 1 x"));
    EXPECT_EQ(runProgram(fmt::format(fmt::runtime(command), "-")).mExitCode, kExitBadInput);
  }
  EXPECT_EQ(runProgram("render - --compare - --from obj -o - <" + model).mExitCode, kExitBadInput);
}

TEST(LinePainter, aLineCoversAsMuchAsItIsWideAndLong) {
  const auto always = [](double) { return 1.0; };
  for (const double width : {0.5, 1.0, 3.0}) {
    for (int degrees = 0; degrees < 360; degrees += 7) {
      SCOPED_TRACE(testing::Message() << width << " " << degrees);
      const double x = std::cos(degrees * 0.017453292519943295), y = std::sin(degrees * 0.017453292519943295);
      Coverage shorter(80, 80), longer(80, 80);
      paintLine(shorter, 40.3 - 10 * x, 39.6 - 10 * y, 40.3 + 10 * x, 39.6 + 10 * y, width, always);
      paintLine(longer, 40.3 - 25 * x, 39.6 - 25 * y, 40.3 + 25 * x, 39.6 + 25 * y, width, always);
      double sum = 0;
      for (int i = 0; i < 80 * 80; ++i)
        sum += static_cast<double>(longer.at(i % 80, i / 80)) - static_cast<double>(shorter.at(i % 80, i / 80));
      // The ends are alike.
      EXPECT_NEAR(sum, 30 * width, 0.02 * 30 * width);
      EXPECT_EQ(longer.at(static_cast<int>(40.3 - 8 * y), static_cast<int>(39.6 + 8 * x)), 0);
    }
  }
}

TEST(LinePainter, anEdgeBetweenTwoPixelsDarkensBothByHalf) {
  const TestFolder folder;
  const std::string model = folder.write("m.obj",
                                         "v -4 -4 0\nv 1 -4 0\nv 1 4 0\nv -4 4 0\nv 4 -4 0\nv 4 4 0\n"
                                         "f 1 2 3 4\nf 2 5 6 3\n");
  const Picture picture = drawn(folder, quoted(model) + kFromAbove + " --wireframe");
  const Picture plain = drawn(folder, quoted(model) + kFromAbove);
  for (const int x : {59, 60}) EXPECT_NEAR(*picture.pixel(x, 50), (*plain.pixel(x, 50) + 31) / 2.0, 2) << x;
  for (const int x : {58, 61}) EXPECT_NEAR(*picture.pixel(x, 50), *plain.pixel(x, 50), 2) << x;
}

TEST(Overlays, theScaleBarIsAsLongAsItSays) {
  const TestFolder folder;
  const std::string model = folder.write("m.obj", "v -4 -4 0\nv 4 -4 0\nv 4 4 0\nf 1 2 3\n");
  for (const double scale : {1.0, 3e-5, 7e6}) {
    EXPECT_EQ(roundLengthBelow(2.6 * scale) * 1e9 > 2.6e9 * scale, false);
    EXPECT_GT(roundLengthBelow(2.6 * scale) * 2.51, 2.6 * scale);
  }
  // 100 pixels are 10 units: the bar is 2 long, from 68 to 88.
  const Picture bar = drawn(folder, quoted(model) + kFromAbove + " --scale-bar");
  const Picture plain = drawn(folder, quoted(model) + kFromAbove);
  int first = kSize, last = 0;
  for (int x = 0; x < kSize; ++x) {
    if (std::equal(bar.pixel(x, 88), bar.pixel(x, 88) + 3, plain.pixel(x, 88))) continue;
    first = std::min(first, x);
    last = x;
  }
  EXPECT_NEAR(first, 68, 3);
  EXPECT_NEAR(last, 88, 3);
}

}  // namespace
}  // namespace tool
