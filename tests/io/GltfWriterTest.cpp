#include <facetbox/io/GltfWriter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <map>
#include <random>

#include <assimp/scene.h>
#include <gmock/gmock.h>
#include <assimp/Importer.hpp>

#include <facetbox/check.h>
#include <tests/io/GltfBuilder.h>
#include <tests/io/IoTestSupport.h>

namespace facetbox {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Json = GltfBuilder::Json;

constexpr Format kBoth[] = {Format::glb, Format::gltf};

Model rewritten(const Model& model, Format format, std::vector<Note>* notes = nullptr) {
  return parseModel(written(model, format, false, notes), format, "t");
}

// Of each triangle: its material, then per corner the place, the texture coordinates (NaN turned into 9: none), and the
// color. In the order of the materials as they come up, which is what a file keeps.
using Triangle = std::vector<double>;

std::vector<Triangle> trianglesOf(const Model& model, const Object& object) {
  std::map<std::pair<std::uint32_t, bool>, std::vector<Triangle>> bySurface;
  std::vector<std::pair<std::uint32_t, bool>> order;
  const PolyMesh& mesh = object.mesh;
  for (std::size_t t = 0; t < mesh.counts.size(); ++t) {
    const std::uint32_t material = mesh.labels.empty() ? kNone : model.marks.at(mesh.labels[t]).material;
    const bool isTextured = !mesh.texIndices.empty() && mesh.texIndices[3 * t] != kNone;
    Triangle triangle = {static_cast<double>(material)};
    for (std::size_t c = 3 * t; c < 3 * t + 3; ++c) {
      const std::size_t vertex = mesh.indices[c];
      triangle.insert(triangle.end(), &mesh.points[3 * vertex], &mesh.points[3 * vertex] + 3);
      for (std::size_t i = 0; i < 2; ++i)
        triangle.push_back(isTextured ? mesh.texCoords[2 * mesh.texIndices[c] + i] : 9);
      for (std::size_t i = 0; i < 4 && !object.colors.empty(); ++i)
        triangle.push_back(static_cast<double>(object.colors[4 * vertex + i]));
    }
    if (bySurface[{material, isTextured}].empty()) order.emplace_back(material, isTextured);
    bySurface[{material, isTextured}].push_back(triangle);
  }
  std::vector<Triangle> all;
  for (const auto& surface : order) all.insert(all.end(), bySurface[surface].begin(), bySurface[surface].end());
  return all;
}

// Triangles on floats, at distinct places, with seams, materials and colors.
Object randomObject(std::mt19937& random, std::size_t vertices) {
  Object object{.name = "object \"" + std::to_string(vertices) + "\" \xC3\xA4\n"};
  PolyMesh& mesh = object.mesh;
  for (std::size_t v = 0; v < vertices; ++v) {
    for (int axis = 0; axis < 2; ++axis) mesh.points.push_back(static_cast<double>(std::ldexp(float(random()), -20)));
    mesh.points.push_back(static_cast<double>(v));
  }
  // Parts of 1024, which floats hold from the top as well as from the bottom.
  for (std::size_t p = 0; p < 20; ++p) mesh.texCoords.push_back(std::ldexp(random() % 4096, -10));
  for (std::size_t t = 0; t < vertices + 200; ++t) {
    mesh.counts.push_back(3);
    mesh.labels.push_back(random() % 4);
    const bool isTextured = mesh.labels.back() < 2 || random() % 2 == 0;
    for (int c = 0; c < 3; ++c) {
      mesh.indices.push_back(t < vertices && c == 0 ? static_cast<std::uint32_t>(t) : random() % vertices);
      mesh.texIndices.push_back(isTextured ? random() % 10 : kNone);
    }
  }
  for (std::size_t i = 0; i < 4 * vertices; ++i) object.colors.push_back(std::ldexp(float(random()), -32));
  if (vertices % 2 == 0) object.colors.clear();
  if (vertices % 3 == 0) mesh.texCoords = {}, mesh.texIndices = {};
  if (vertices % 5 == 0) mesh.labels.clear();
  return object;
}

TEST(GltfWriter, WhatFloatsHoldIsReadBackAsItWas) {
  std::mt19937 random(3);
  Model model;
  model.materials = {{.name = "a", .color = {{0.1, 0.2, 0.3, 1}}, .texture = "a b%.png"}, {.name = ""}, {.name = "c"}};
  model.marks = {{.material = 0}, {.material = 2}, {}, {.material = 1}};
  for (const std::size_t size : {3, 4, 5, 7, 10, 15, 16, 30, 70000})
    model.objects.push_back(randomObject(random, size));
  // Faces of the textured material must have texture coordinates: without, they would get a material without texture.
  for (Object& object : model.objects)
    if (object.mesh.texIndices.empty())
      for (std::uint32_t& label : object.mesh.labels) label = std::max(label, 1U);
  for (const Format format : kBoth) {
    std::vector<Note> notes;
    const Model first = rewritten(model, format, &notes);
    EXPECT_EQ(textOf(notes), "");
    ASSERT_EQ(first.objects.size(), model.objects.size());
    for (std::size_t i = 0; i < model.objects.size(); ++i) {
      EXPECT_EQ(first.objects[i].name, model.objects[i].name);
      EXPECT_EQ(bitsOf(first.objects[i].mesh.points), bitsOf(model.objects[i].mesh.points));
      EXPECT_EQ(bitsOf(first.objects[i].colors), bitsOf(model.objects[i].colors));
      EXPECT_TRUE(trianglesOf(first, first.objects[i]) == trianglesOf(model, model.objects[i])) << i;
    }
    ASSERT_EQ(first.materials.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(first.materials[i].name, model.materials[i].name);
      EXPECT_EQ(first.materials[i].color, model.materials[i].color);
      EXPECT_EQ(first.materials[i].texture, model.materials[i].texture);
    }
    const Model second = rewritten(first, format);
    EXPECT_EQ(second.objects, first.objects);
    EXPECT_EQ(second.materials, first.materials);
    EXPECT_EQ(second.marks, first.marks);
    EXPECT_EQ(written(second, format), written(first, format));
  }
}

TEST(GltfWriter, MapCoordinatesLoseOnlyWhatFloatsOfTheirExtentLose) {
  std::mt19937 random(5);
  for (int round = 0; round < 100; ++round) {
    const double place = std::ldexp(random(), static_cast<int>(random() % 40) - 20), size = std::ldexp(random(), -25);
    Object object;
    for (int i = 0; i < 30; ++i) object.mesh.points.push_back(place + size * std::ldexp(random(), -32));
    object.mesh.indices = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 1};
    object.mesh.counts = {3, 3, 3, 3};
    Model model;
    model.objects = {object};
    std::vector<Note> notes;
    const Model first = rewritten(model, Format::glb, &notes);
    double most = 0;
    std::size_t changed = 0;
    for (std::size_t i = 0; i < 30; ++i) {
      const double error = std::abs(first.objects[0].mesh.points[i] - object.mesh.points[i]);
      most = std::max(most, error);
      changed += error > 0 ? 1 : 0;
    }
    EXPECT_LE(most, std::max(size * std::ldexp(0.6, -24), 0.0)) << place << ' ' << size;
    EXPECT_EQ(noteCount(notes, "coordinates rounded to floats"), changed);
    EXPECT_EQ(rewritten(first, Format::glb).objects, first.objects);
  }
}

TEST(GltfWriter, PolygonsAreCutAndHolesStayOpen) {
  Model model;
  // A floor of 10 x 10 with a hole of 4 x 4, a triangle, an edge, and a vertex that nobody uses.
  model.objects = {
      {.mesh = {.points = {0, 0, 0, 10, 0, 0, 10, 10, 0, 0, 10, 0, 3, 3, 0, 7, 3, 0, 7, 7, 0, 3, 7, 0, 9, 9, 9},
                .counts = {4, 4, 3, 2},
                .indices = {0, 1, 2, 3, 4, 5, 6, 7, 0, 3, 4, 0, 1},
                .labels = {0, 0, 0, 0},
                .holes = {0, 1, kNone}}}};
  model.marks = {{.group = 0, .semantics = 0, .part = 1}};
  model.groups = {"g"};
  model.semantics = {{.type = "GroundSurface"}};
  std::vector<Note> notes;
  const Model read = rewritten(model, Format::glb, &notes);
  EXPECT_EQ(textOf(notes),
            "1 faces of fewer than three corners, 4 groups of faces, 1 holes, kept open by cutting their faces into "
            "triangles, 4 parts that faces belong to, 4 semantics of faces, 1 vertices that no triangle uses");
  EXPECT_EQ(check(read.objects.at(0).mesh).area, 100 - 16 + 15);
  const std::vector<std::uint32_t>& indices = read.objects[0].mesh.indices;
  EXPECT_EQ(std::vector(indices.end() - 3, indices.end()), (std::vector<std::uint32_t>{0, 3, 4}));
}

TEST(GltfWriter, NumbersWithoutFloatsAreErrors) {
  Model model;
  model.objects.resize(1);
  model.objects[0].mesh = {.points = {0, 0, 0, 1e300, 0, 0, 0, 1, 0}, .counts = {3}, .indices = {0, 1, 2}};
  EXPECT_THROW(written(model, Format::glb), WriteError);
}

// Whatever a file says of its materials stands in the next one, with images inside.
TEST(GltfWriter, MaterialsOfAFileAreWrittenInItsWords) {
  GltfBuilder file;
  const std::string png = "\x89PNG\r\n\x1A\n and so on", jpeg = "\xFF\xD8 another";
  file.root["images"] = {{{"bufferView", file.view(png)}, {"mimeType", "image/png"}, {"name", "inside"}},
                         {{"uri", "data:image/webp;base64,/9ggYW5vdGhlcg=="}, {"name", "w"}, {"extras", 3}},
                         {{"uri", "beside.png"}}};
  file.root["samplers"] = {{{"wrapS", 33071}}};
  file.root["textures"] = {{{"source", 0}, {"sampler", 0}}, {{"source", 1}}, {{"source", 2}}};
  file.root["extensionsUsed"] = {"KHR_materials_unlit", "KHR_lights_punctual"};
  file.root["materials"] = {
      {{"name", "a"},
       {"pbrMetallicRoughness", {{"roughnessFactor", 0.30000000000000004}, {"baseColorTexture", {{"index", 2}}}}},
       {"normalTexture", {{"index", 0}}},
       {"emissiveTexture", {{"index", 1}}},
       {"extras", {1, 2}}},
      {{"extensions", {{"KHR_materials_unlit", Json::object()}}},
       {"occlusionTexture", {{"index", 1}, {"texCoord", 1}}},
       {"doubleSided", true}}};
  const auto positions = file.add<float>({0, 0, 0, 1, 0, 0, 0, 1, 0}, "VEC3");
  const auto texCoords = file.add<float>({0, 0, 1, 0, 0, 1}, "VEC2");
  const Json attributes = {{"POSITION", positions}, {"TEXCOORD_0", texCoords}};
  file.node({{"mesh", file.mesh({{{"attributes", attributes}, {"material", 0}},
                                 {{"attributes", attributes}, {"material", 1}}})}});
  Model model = file.read();
  EXPECT_EQ(model.materials[0].texture, "beside.png");
  EXPECT_EQ(textOf(model.notes),
            "1 extension 'KHR_lights_punctual', 1 extension 'KHR_materials_unlit' (only glTF files keep it), "
            "2 images inside the file (only glTF files keep them)");
  for (const Format format : kBoth) {
    std::vector<Note> notes;
    const std::string bytes = written(model, format, false, &notes);
    EXPECT_EQ(textOf(notes), "1 textures on further texture coordinates");
    EXPECT_THAT(bytes, HasSubstr(R"("extensionsUsed":["KHR_materials_unlit"])"));
    EXPECT_THAT(bytes, HasSubstr(file.root["samplers"][0].dump()));
    if (format == Format::glb) {
      EXPECT_THAT(bytes, ::testing::AllOf(HasSubstr(png), HasSubstr(jpeg)));
    }
    EXPECT_THAT(bytes, HasSubstr(R"({"extras":3,"name":"w","bufferView":1,"mimeType":"image/webp"})"));
    const Model read = parseModel(bytes, format, "t");
    EXPECT_EQ(read.materials[0], model.materials[0]);
    EXPECT_EQ(read.materials[1].definition, R"({"doubleSided":true,"extensions":{"KHR_materials_unlit":{}}})");
    EXPECT_EQ(written(read, format), bytes);
  }
  // What has been changed is written, the rest in the words of the file.
  model.materials[0].color = {0.5, 0.5, 0.5, 0.25};
  model.materials[0].name = "b";
  model.materials[0].texture = "";
  const std::string definition = rewritten(model, Format::glb).materials[0].definition;
  EXPECT_EQ(Json::parse(definition),
            Json::parse(R"({"name":"b","alphaMode":"BLEND","normalTexture":{"index":0},"emissiveTexture":{"index":1},
      "pbrMetallicRoughness":{"roughnessFactor":0.30000000000000004,"baseColorFactor":[0.5,0.5,0.5,0.25]},
      "extras":[1,2]})"));
}

TEST(GltfWriter, FacesWithoutTextureCoordinatesGetAMaterialWithoutTextures) {
  Model model;
  model.objects = {
      {.mesh = {.points = {0, 0, 0, 1, 0, 0, 0, 1, 0}, .counts = {3}, .indices = {0, 1, 2}, .labels = {0}}}};
  model.marks = {{.material = 0}};
  model.materials = {{.name = "m\xFF", .color = {{1, 0, 0, 1}}, .texture = "a.JPG", .definition = "map_Kd a.jpg"},
                     {.name = "n", .texture = "a.tga"}};
  model.format = Format::obj;
  std::vector<Note> notes;
  const Model read = rewritten(model, Format::glb, &notes);
  EXPECT_EQ(textOf(notes),
            "1 materials of which only name, color and texture are kept, 1 names that are not UTF-8, "
            "1 textures of faces without texture coordinates, 1 textures that are neither PNG nor JPEG");
  ASSERT_EQ(read.materials.size(), 3U);
  EXPECT_EQ(read.materials[0].texture, "a.JPG");
  EXPECT_EQ(read.marks.at(0).material, 2U);
  EXPECT_EQ(read.materials[2].name, read.materials[0].name);
  EXPECT_EQ(read.materials[2].texture, "");
}

// Another reader, which keeps floats.
TEST(GltfWriter, TheImportLibraryReadsTheSameTriangles) {
  std::mt19937 random(9);
  Model model;
  model.objects = {randomObject(random, 7), randomObject(random, 10)};
  for (Object& object : model.objects) object.mesh.labels.clear();
  for (const Format format : kBoth) {
    const std::string bytes = written(model, format);
    Assimp::Importer importer;
    const aiScene* scene = importer.ReadFileFromMemory(bytes.data(), bytes.size(), 0, nameOf(format));
    ASSERT_TRUE(scene) << importer.GetErrorString();
    // A mesh per primitive: of an object, first the faces of the first surface.
    std::size_t at = 0;
    for (const Object& object : model.objects) {
      const auto triangles = trianglesOf(model, object);
      for (std::size_t t = 0; t < triangles.size(); ++at) {
        ASSERT_LT(at, scene->mNumMeshes);
        const aiMesh& mesh = *scene->mMeshes[at];
        for (std::size_t f = 0; f < mesh.mNumFaces; ++f, ++t)
          for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t part = (triangles[t].size() - 1) / 3 * c + 1;
            const unsigned vertex = mesh.mFaces[f].mIndices[c];
            const aiVector3D& p = mesh.mVertices[vertex];
            ASSERT_THAT((std::vector<double>{p.x, p.y, p.z}),
                        ElementsAre(triangles[t][part], triangles[t][part + 1], triangles[t][part + 2]));
            if (triangles[t][part + 3] != 9) {
              ASSERT_EQ(double(mesh.mTextureCoords[0][vertex].y), triangles[t][part + 4]);
            }
          }
      }
    }
    EXPECT_EQ(at, scene->mNumMeshes);
  }
}

// The second file of every model at hand says what the first one says.
TEST(GltfWriter, ModelsAtHandAreTheSameFromTheFirstFileOn) {
  const std::filesystem::path folder = FACETBOX_MODELS;
  if (!std::filesystem::is_directory(folder)) GTEST_SKIP() << "there are no models";
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (formatOf(entry.path()) == std::nullopt) continue;
    SCOPED_TRACE(entry.path().filename());
    const Model first = rewritten(readModel(entry.path()), Format::glb);
    const Model second = rewritten(first, Format::glb);
    EXPECT_TRUE(first.objects == second.objects);
    EXPECT_TRUE(first.materials == second.materials && first.marks == second.marks);
  }
}

}  // namespace
}  // namespace facetbox
