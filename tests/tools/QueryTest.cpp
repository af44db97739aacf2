#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <tools/PngFile.h>
#include "ToolTestSupport.h"

namespace tool {
namespace {

using nlohmann::json;

json asked(const std::string& arguments) {
  const RunResult run = runProgram("query " + arguments + " --json");
  if (run.mExitCode != kExitOk) throw std::runtime_error(run.mErr);
  return json::parse(run.mOut);
}

Picture readPicture(const std::string& path) { return parsePng(readText(path), path); }

int countOf(const Picture& picture, const std::array<int, 3>& color) {
  int count = 0;
  for (std::size_t i = 0; i < picture.mPixels.size(); i += 3)
    count += std::equal(color.begin(), color.end(), picture.mPixels.begin() + static_cast<std::ptrdiff_t>(i));
  return count;
}
constexpr std::array kRed = {224, 40, 32};

// Seen from above, x and y from -5 to 5 fill the picture, whose cells have the size of 10 by its width.
const std::string kFromAbove = " --eye 0,0,10 --look-at 0,0,0 --fov 53.13010235 ";

TEST(Query, aRasterHoldsTheObjectsAllOfWhoseEdgesAreOnIt) {
  const TestFolder folder;
  // At 20 cells, -3 goes to column 4, and to row 16; 3 to 16 and 4.
  const std::string model = folder.write(
      "m.obj",
      "o one\nv -3 -3 0\nv 3 -3 0\nv 3 3 0\nv -3 3 0\nf 1 2 3 4\no two\nv -3 1 0\nv -2 1 0\nv -2 2 0\nf 5 6 7\n");
  const auto verdict = [&](const std::string& name, auto isSet) {
    Picture mask{20, 20, {}};
    for (int cell = 0; cell < 400; ++cell)
      mask.mPixels.insert(mask.mPixels.end(), {0, 0, static_cast<std::uint8_t>(isSet(cell % 20, cell / 20) ? 1 : 0)});
    return runProgram("query " + quoted(model) + kFromAbove + "--raster " +
                      quoted(folder.write(name, formatPng(mask))) + " -o " + quoted(folder.path("verdict.png")));
  };
  const auto inSquare = [](int x, int y) { return 4 <= x && x <= 16 && 4 <= y && y <= 16; };
  EXPECT_EQ(verdict("all.png", inSquare).mOut, "     1  on   one\n     2  on   two\n");
  EXPECT_EQ(countOf(readPicture(folder.path("verdict.png")), kRed), 0);
  // A hole in the inner of a triangle goes unseen, one on an edge does not: not even of a single cell.
  EXPECT_EQ(verdict("inner.png", [&](int x, int y) { return inSquare(x, y) && !(x == 14 && y == 8); }).mOut,
            "     1  on   one\n     2  on   two\n");
  EXPECT_EQ(countOf(readPicture(folder.path("verdict.png")), {128, 84, 32}), 1);
  EXPECT_EQ(verdict("edge.png", [&](int x, int y) { return inSquare(x, y) && !(x == 16 && y == 9); }).mOut,
            "     1  off  one\n     2  on   two\n");
  EXPECT_EQ(countOf(readPicture(folder.path("verdict.png")), kRed), 1);
}

// The tool draws by itself what the library looks at: an object is off the mask exactly where it draws red.
TEST(Query, verdictsAndPicturesAgreeOnRandomMasksAndViews) {
  const TestFolder folder;
  const std::string model = quoted((fs::path(FACETBOX_SAMPLES) / "pavilion_clean.obj").string());
  const std::string mask = folder.path("mask.png"), verdict = folder.path("verdict.png");
  std::mt19937 random(5);
  int onCount = 0;
  for (int round = 0; round < 12; ++round) {
    const auto number = [&](int from, int to) { return from + static_cast<int>(random() % (to - from + 1)); };
    const std::array n = {number(-3, 3),  number(-3, 3),    number(-30, -20), number(-9, 30),
                          number(15, 40), number(150, 200), number(90, 150)};
    const std::string view =
        fmt::format(" --by material --look-at 8,3,6 --up {},5,{} --eye {},{},{}", n[0], n[1], n[2], n[3], n[4]);
    const RunResult made = runProgram(
        fmt::format("query {}{} --fov 70 --size {}x{} --write-mask {}", model, view, n[5], n[6], quoted(mask)));
    ASSERT_EQ(made.mExitCode, kExitOk) << made.mErr;
    const std::string query = model + view + " --raster " + quoted(mask) + " -o " + quoted(verdict) + " --fov ";
    for (const json& object : asked(query + "70")) EXPECT_TRUE(object["onMask"].get<bool>()) << view << object;
    EXPECT_EQ(countOf(readPicture(verdict), kRed), 0) << view;

    Picture holed = readPicture(mask);
    for (int hole = 0; hole < 12; ++hole)
      std::fill_n(holed.mPixels.begin() + 3 * number(0, holed.mWidth * holed.mHeight - 1), 3, std::uint8_t{0});
    folder.write("mask.png", formatPng(holed));
    const json objects = asked(query + "70");
    const bool areOn =
        std::all_of(objects.begin(), objects.end(), [](const json& o) { return o["onMask"].get<bool>(); });
    onCount += areOn ? 1 : 0;
    EXPECT_EQ(countOf(readPicture(verdict), kRed) == 0, areOn) << view;

    // Nearer, the model leaves the picture.
    for (const json& object : asked(query + "12")) EXPECT_FALSE(object["onMask"].get<bool>()) << view << object;
    EXPECT_GT(countOf(readPicture(verdict), kRed), 0) << view;
  }
  EXPECT_GT(onCount, 0);
  EXPECT_LT(onCount, 12);
}

TEST(Query, raysNearestPointsAndVolumesAnswerForEachObjectInUnitsOfTheModel) {
  for (const double scale : {1.0, 1e-4, 1e6}) {
    SCOPED_TRACE(scale);
    const TestFolder folder;
    std::string text;
    for (const double z : {0.0, 2.0}) {
      text += fmt::format("o at{}\n", z);
      for (const auto& [x, y] : {std::pair(-3, -3), std::pair(3, -3), std::pair(3, 3), std::pair(-3, 3)})
        text += fmt::format("v {} {} {}\n", x * scale, y * scale, z * scale);
      text += "f -4 -3 -2 -1\n";
    }
    const std::string model = quoted(folder.write("m.obj", text));
    const auto near = [&](const json& value, double wanted) { EXPECT_NEAR(value.get<double>() / scale, wanted, 1e-5); };
    const json hits = asked(model + fmt::format(" --ray {0},{0},{1},0,0,-3", scale, 10 * scale));
    ASSERT_EQ(hits.size(), 2U);
    for (const int i : {0, 1}) {
      EXPECT_TRUE(hits[i]["hit"].get<bool>());
      near(hits[i]["distance"], 10 - 2 * i);
      near(hits[i]["point"][2], 2 * i);
      EXPECT_EQ(hits[i]["normal"], (json{0, 0, 1}));
    }
    // A block around x from 1 to 2 and z from -1 to 1, seen along -z from where z is 1.
    std::string corners;
    for (const int z : {1, -1})
      for (const auto& [x, y] : {std::pair(1, 1), std::pair(2, 1), std::pair(2, 2), std::pair(1, 2)})
        corners += fmt::format("{}{},{},{}", corners.empty() ? "" : ",", x * scale, y * scale, z * scale);
    const std::string volume = model + " --volume " + corners;
    const json nearest = asked(volume + " --nearest");
    EXPECT_FALSE(nearest[1]["found"].get<bool>());
    near(nearest[0]["depth"], 1);
    near(nearest[0]["point"][2], 0);
    for (const int axis : {0, 1}) {
      EXPECT_GE(nearest[0]["point"][axis].get<double>() / scale, 1 - 1e-5);
      EXPECT_LE(nearest[0]["point"][axis].get<double>() / scale, 2 + 1e-5);
    }
    for (const json& corner : nearest[0]["triangle"]) EXPECT_NEAR(std::abs(corner[0].get<double>()) / scale, 3, 1e-5);
    const json touching = asked(volume), inside = asked(volume + " --inside"), all = asked(model + " --inside");
    EXPECT_TRUE(touching[0]["intersects"].get<bool>() && !touching[1]["intersects"].get<bool>());
    EXPECT_FALSE(inside[0]["inside"].get<bool>());
    EXPECT_TRUE(all[0]["inside"].get<bool>() && all[1]["inside"].get<bool>());
  }
}

TEST(Query, badArgumentsAndPicturesAreToldAndWriteNothing) {
  const TestFolder folder;
  const std::string query = "query " + quoted(folder.write("m.obj", kTetrahedron)) + " ", out = folder.path("out.png");
  const std::string png = formatPng({9, 9, std::vector<std::uint8_t>(243, 255)});
  const auto raster = [&](const std::string& name, const std::string& content) {
    return "--raster " + quoted(folder.write(name, content)) + " -o " + quoted(out);
  };
  const std::string good = raster("good.png", png);
  std::string large = png;
  large.replace(16, 8, std::string("\0\0\x40\0\0\0\x40\0", 8));
  const std::pair<std::string, std::string> cases[] = {
      {"--raster nowhere.png", "nowhere.png: cannot be read: No such file"},
      {"--raster /", "/: cannot be read"},
      {raster("empty.png", ""), "empty.png: is empty"},
      {raster("text.png", "P3 1 1 255 0 0 0"), "text.png: is not a PNG picture"},
      {raster("cut.png", png.substr(0, png.size() - 24)), "cut.png: the picture is damaged"},
      {raster("bits.png", png.substr(0, 43) + "????" + png.substr(47)), "bits.png: the picture is damaged"},
      {raster("large.png", large), "large.png: "},
      {good + " --size 9x9", "--size"},
      {good + " --nearest", "--nearest"},
      {good + " --window 0,0,1,1", "--window"},
      {good + " -o out.jpg", "out"},
      {"--raster " + quoted(folder.path("good.png")) + " -o out.jpg", "out.jpg: the name of the picture must end"},
      {"-o " + quoted(out), "--raster"},
      {"--ray 0,0,0,0,0,0", "--ray: has no direction"},
      {"--ray 0,0,0,0,0,1 --inside", "--inside"},
      {"--nearest --inside", "--inside"},
      {"--window 1,0,0,1", "--window: is empty"},
      {"--write-mask " + quoted(out) + " --size 16000x16000", "--size: more than"}};
  for (const auto& [arguments, message] : cases) {
    const RunResult run = runProgram(query + arguments);
    EXPECT_EQ(run.mExitCode, kExitBadInput) << arguments << run.mErr;
    EXPECT_THAT(run.mErr, HasSubstr(message)) << arguments;
  }
  EXPECT_FALSE(fs::exists(out));
  EXPECT_EQ(runProgram(query + good).mExitCode, kExitOk);
  EXPECT_TRUE(fs::exists(out));
}

}  // namespace
}  // namespace tool
