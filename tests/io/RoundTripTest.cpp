// Real models through files of every format that can carry them.

#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace facetbox
