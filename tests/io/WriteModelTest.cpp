#include <facetbox/io/files.h>

#include <map>

#include <tests/tools/ToolTestSupport.h>

namespace tool {
namespace {

using facetbox::Mark;
using facetbox::Material;
using facetbox::Object;

// A triangle per mark.
Model trianglesOf(const std::vector<Mark>& marks) {
  Model model{.marks = marks};
  Object& object = model.objects.emplace_back();
  object.mesh.points = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  for (std::uint32_t face = 0; face < marks.size(); ++face) {
    object.mesh.counts.push_back(3);
    object.mesh.indices.insert(object.mesh.indices.end(), {0, 1, 2});
    object.mesh.labels.push_back(face);
  }
  return model;
}

std::map<std::string, std::size_t> countsOf(const std::vector<facetbox::Note>& notes) {
  std::map<std::string, std::size_t> counts;
  for (const facetbox::Note& note : notes) counts[note.what] = note.count;
  return counts;
}

TEST(WriteModel, namesDoNotBreakOutOfTheirLines) {
  const TestFolder folder;
  Model model = trianglesOf({{0, 0}, {1, 1}, {2, 2}, {3, kNone}, {4, kNone}});
  model.objects[0].name = "x\nf 1 1 1";
  model.materials = {{.name = "m\nv 5 5 5\n", .color = {{1, 0, 0, 1}}, .texture = "-s 1 a\nKd 0 0 0"},
                     {.name = "same", .color = {{0, 1, 0, 1}}},
                     {.name = "same", .color = {{0, 0, 1, 1}}},
                     {.name = "same", .color = {{0, 1, 0, 1}}},
                     {.color = {{0.5, 0, 0, 1}}}};
  model.groups = {"default", "", "dir\\"};
  const auto notes = countsOf(facetbox::writeModel(model, folder.path("m.obj")));
  EXPECT_EQ(notes.at("names that were changed, to fit into a line or to differ"), 8U);
  const Model read = facetbox::readModel(folder.path("m.obj"));
  EXPECT_EQ(read.objects.at(0).name, "x f 1 1 1");
  EXPECT_EQ(read.objects[0].mesh.points, model.objects[0].mesh.points);
  ASSERT_EQ(read.objects[0].mesh.counts.size(), 5U);
  EXPECT_THAT(read.groups, ElementsAre("default_2", "group", "dir_"));
  for (std::size_t face = 0; face < 5; ++face) {
    const Mark mark = read.marks.at(read.objects[0].mesh.labels.at(face));
    EXPECT_EQ(read.materials.at(mark.material).color, model.materials[face].color) << face;
  }
  EXPECT_EQ(read.materials[0].texture, "./-s 1 a Kd 0 0 0");
}

TEST(WriteModel, whatDoesNotFitTogetherIsRefusedBeforeAnythingIsWritten) {
  const TestFolder folder;
  const std::pair<Model, const char*> cases[] = {{trianglesOf({{.material = 7}}), "mark 0 names a material"},
                                                 {trianglesOf({{.group = 0}}), "mark 0 names a material, group"},
                                                 {[] {
                                                    Model model = trianglesOf({{}});
                                                    model.objects[0].mesh.labels = {1};
                                                    return model;
                                                  }(),
                                                  "face 0 of object 0 has label 1"},
                                                 {[] {
                                                    Model model = trianglesOf({{}});
                                                    model.objects[0].colors = {1, 1, 1, 1};
                                                    return model;
                                                  }(),
                                                  "object 0 has 3 vertices, but 4 numbers of colors"}};
  for (const auto& [model, message] : cases) {
    for (const char* const name : {"m.obj", "m.ply", "m.off", "m.stl", "m.gltf", "m.glb", "m.json"}) {
      const auto write = [&folder, &input = model, name] { facetbox::writeModel(input, folder.path(name)); };
      EXPECT_THAT(write, testing::ThrowsMessage<facetbox::WriteError>(HasSubstr(message)));
    }
  }
  EXPECT_THAT(folder.files(), IsEmpty());
  // A label of none is a face without a mark, whatever the face before it has.
  Model model = trianglesOf({{.material = 0}, {}});
  model.materials = {{.name = "red"}};
  model.objects[0].mesh.labels = {0, kNone};
  EXPECT_THAT(textOf(model, Format::obj), HasSubstr("usemtl red\nf 1 2 3\nusemtl\nf 1 2 3\n"));
}

TEST(WriteModel, aFailureKeepsWhatStoodThereAndItsLibrary) {
  const TestFolder folder;
  Model model = trianglesOf({{.material = 0}});
  model.materials = {{.name = "a", .color = {{1, 0, 0, 1}}}};
  facetbox::writeModel(model, folder.path("m.obj"));
  const std::string library = readText(folder.path("m.mtl"));
  model.materials[0].color = {{0, 1, 0, 1}};
  model.objects[0].mesh.counts = {3, 0};
  model.objects[0].mesh.labels = {0, 0};
  EXPECT_THROW(facetbox::writeModel(model, folder.path("m.obj")), facetbox::WriteError);
  EXPECT_EQ(readText(folder.path("m.mtl")), library);
  model.objects[0].mesh.counts = {3};
  model.objects[0].mesh.labels = {0};
  EXPECT_THROW(facetbox::writeModel(model, folder.path("m.mtl"), {.format = Format::obj}), facetbox::WriteError);
  EXPECT_EQ(readText(folder.path("m.mtl")), library);
  EXPECT_THAT(folder.files(), testing::UnorderedElementsAre("m.obj", "m.mtl"));
}

TEST(WriteModel, linksAndModesStay) {
  const TestFolder folder;
  const fs::path real = folder.write("real", "old"), link = folder.path("link"), dangling = folder.path("dangling");
  fs::permissions(real, fs::perms::owner_all);
  fs::create_symlink("real", link);
  fs::create_symlink("new", dangling);
  facetbox::writeFile(link, "a");
  facetbox::writeFile(dangling, "b");
  EXPECT_TRUE(fs::is_symlink(link) && fs::is_symlink(dangling));
  EXPECT_EQ(readText(real), "a");
  EXPECT_EQ(fs::status(real).permissions(), fs::perms::owner_all);
  EXPECT_EQ(readText(folder.path("new")), "b");
}

}  // namespace
}  // namespace tool
