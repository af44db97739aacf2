// Real models through files of every format that can carry them.

#include <algorithm>
#include <filesystem>

#include <gmock/gmock.h>

#include <facetbox/check.h>

#include "../tools/ToolTestSupport.h"
#include "IoTestSupport.h"

namespace facetbox {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> models() {
  std::vector<fs::path> paths;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(FACETBOX_MODELS, missing))
    if (formatOf(entry.path())) paths.push_back(entry.path());
  std::ranges::sort(paths);
  return paths;
}

Model writtenAndRead(const Model& model, const fs::path& path, bool isText) {
  writeModel(model, path, {.isText = isText});
  return readModel(path);
}

TEST(RoundTrip, ModelsComeBackBitForBit) {
  if (models().empty()) GTEST_SKIP() << "no models at " << FACETBOX_MODELS;
  const tool::TestFolder folder;
  for (const fs::path& path : models()) {
    SCOPED_TRACE(path);
    const Model model = readModel(path);
    for (const char* const name : {"m.off", "m.ply"})
      for (const bool isText : {false, true}) {
        const Model back = writtenAndRead(model, folder.path(name), isText);
        EXPECT_TRUE(facesOf(back) == facesOf(model)) << name << isText;
        EXPECT_TRUE(back.notes.empty()) << textOf(back.notes);
      }
    // Of triangles only, and vertices at the same position are one: the same from the second file on.
    for (const bool isText : {false, true}) {
      const Model triangles = writtenAndRead(model, folder.path("m.stl"), isText);
      EXPECT_TRUE(writtenAndRead(triangles, folder.path("m.stl"), isText).objects == triangles.objects) << isText;
      EXPECT_EQ(triangles.objects.size(), isText ? model.objects.size() : 1);
      const bool isSame = isText && std::ranges::all_of(model.objects, [](const Object& object) {
                            return std::ranges::all_of(object.mesh.counts, [](std::uint32_t n) { return n == 3; });
                          });
      EXPECT_TRUE(!isSame || facesOf(triangles) == facesOf(model));
    }
  }
}

constexpr Format kCutting[] = {Format::off, Format::ply, Format::stl, Format::glb};

// A square, and a hole far away from it.
TEST(RoundTrip, HolesOutsideOfTheirFacesAreNoFaces) {
  Model model;
  model.objects.push_back({.mesh = {.points = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 10, 0, 0, 11, 0, 0, 10, 1, 0},
                                    .counts = {4, 3},
                                    .indices = {0, 1, 2, 3, 4, 5, 6},
                                    .labels = {0, 0},
                                    .holes = {0, 1, kNone}}});
  model.marks.resize(1);
  for (const Format format : kCutting) {
    std::vector<Note> notes;
    const Model back = parseModel(written(model, format, false, &notes), format, "t");
    EXPECT_EQ(measure(back.objects.at(0).mesh).area, 1);
    EXPECT_THAT(textOf(notes), testing::HasSubstr("1 holes, left out: beside their faces or around them"));
    EXPECT_THAT(textOf(notes), testing::Not(testing::HasSubstr("kept open")));
  }
}

// A square with a hole that crosses itself: one vertex is made.
TEST(RoundTrip, VerticesMadeAtCrossingsAreWhiteAndSaid) {
  Model model;
  model.objects.push_back(
      {.mesh = {.points = {0, 0, 0, 9, 0, 0, 9, 9, 0, 0, 9, 0, 1, 1, 0, 3, 3, 0, 3, 1, 0, 1, 3, 0, 9, 9, 9},
                .counts = {4, 4, 3},
                .indices = {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 8},
                .holes = {0, 1, kNone}},
       .colors = std::vector<float>(36, 0.5F)});
  for (const Format format : {Format::off, Format::ply, Format::glb}) {
    std::vector<Note> notes;
    const Model back = parseModel(written(model, format, false, &notes), format, "t");
    const std::string text = textOf(notes);
    EXPECT_THAT(text, testing::HasSubstr("1 vertices made where outlines cross, 1 vertices made where outlines cross, "
                                         "which are white"));
    const std::vector<float>& colors = back.objects.at(0).colors;
    ASSERT_EQ(colors.size(), 40U) << text;
    EXPECT_EQ(std::ranges::count(colors, 0.5F), 36);
    EXPECT_EQ(std::ranges::count(colors, 1.0F), 4);
  }
}

// Readers refuse files without faces.
TEST(RoundTrip, ModelsWithoutAFaceAreNotWritten) {
  Model model;
  PolyMesh& mesh = model.objects.emplace_back().mesh;
  mesh.points = {0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0, 4, 0, 0};
  for (const Format format : kCutting) EXPECT_THROW(written(model, format), WriteError);
  // On one line: there are no triangles.
  mesh.counts = {4};
  mesh.indices = {0, 1, 2, 3};
  for (const Format format : {Format::stl, Format::glb}) EXPECT_THROW(written(model, format), WriteError);
}

}  // namespace
}  // namespace facetbox
