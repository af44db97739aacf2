#include <facetbox/io/GltfReader.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <random>

#include <gmock/gmock.h>

#include <tests/io/GltfBuilder.h>
#include <tests/io/IoTestSupport.h>

namespace facetbox {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Json = GltfBuilder::Json;

constexpr double kLargestShort = 32767, kLargestUnsignedByte = 255;

TEST(GltfReader, CornersAtOnePlaceAreOneVertexAndKeepTheirTextureCoordinates) {
  GltfBuilder file;
  // Two triangles of a square with vertices of their own; the first and the fourth meet with other coordinates, the
  // third and the fifth with the same. Zero and minus zero are one place.
  const auto positions = file.add<float>({0, 0, 0, 1, 0, 0, 1, 1, 0, -0.0F, 0, 0, 1, 1, 0, 0, 1, 0}, "VEC3");
  const auto texCoords = file.add<float>({0, 0, 1, 0, 1, 1, 0.5F, 0.25F, 1, 1, 0, 1}, "VEC2");
  file.node({{"mesh", file.mesh({{{"attributes", {{"POSITION", positions}, {"TEXCOORD_0", texCoords}}}}})},
             {"name", "square"}});
  for (const Model& model : {file.read(), parseModel(file.text(), Format::gltf, "test.gltf")}) {
    ASSERT_EQ(model.objects.size(), 1U);
    EXPECT_EQ(model.objects[0].name, "square");
    EXPECT_EQ(model.objects[0].mesh, (PolyMesh{.points = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0},
                                               .counts = {3, 3},
                                               .indices = {0, 1, 2, 0, 2, 3},
                                               .texCoords = {0, 1, 1, 1, 1, 0, 0.5, 0.75, 0, 0},
                                               .texIndices = {0, 1, 2, 3, 2, 4}}));
    EXPECT_TRUE(model.notes.empty());
  }
}

// Numbers of every type, where they are replaced one by one, apart from each other, and scaled to one.
TEST(GltfReader, NumbersOfAllTypesAreReadAsTheyAre) {
  const auto check = [](auto type, double scale) {
    using T = decltype(type);
    std::vector<T> numbers = {1, 2, 3, 0, 5, 6, 7, 0, 127, 100, 0, 0};  // a fourth one pads each
    std::vector<T> replaced = {9, 8, 7};
    GltfBuilder file;
    const auto positions =
        file.add<T>(numbers, "VEC4", {{"type", "VEC3"}, {"normalized", scale != 1}, {"byteOffset", 0}});
    file.root["bufferViews"].back()["byteStride"] = 4 * sizeof(T);
    file.root["bufferViews"].back()["byteLength"] = 11 * sizeof(T);
    const auto indices = file.view(std::vector<std::uint16_t>{1});
    file.root["accessors"][positions]["sparse"] = {{"count", 1},
                                                   {"indices", {{"bufferView", indices}, {"componentType", 5123}}},
                                                   {"values", {{"bufferView", file.view(replaced)}}}};
    file.node({{"mesh", file.mesh({{{"attributes", {{"POSITION", positions}}}}})}});
    const std::vector<double> points = file.read().objects.at(0).mesh.points;
    const std::vector<double> expected = {1, 2, 3, 9, 8, 7, 127, 100, 0};
    ASSERT_EQ(points.size(), expected.size());
    for (std::size_t i = 0; i < 9; ++i) EXPECT_EQ(points[i], expected[i] / scale) << i;
  };
  check(float{}, 1);
  check(std::int8_t{}, 1);
  check(std::uint8_t{}, 1);
  check(std::int16_t{}, 1);
  check(std::uint16_t{}, 1);
  check(std::uint8_t{}, kLargestUnsignedByte);
  check(std::int16_t{}, kLargestShort);
}

TEST(GltfReader, StripsAndFansAreTriangles) {
  GltfBuilder file;
  const auto positions = file.add<float>({0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0, 0, 2, 0}, "VEC3");
  const auto indices = file.add<std::uint8_t>({0, 1, 2, 3, 4}, "SCALAR");
  const Json part = {{"attributes", {{"POSITION", positions}}}};
  Json strip = part, fan = part, list = part, line = part;
  strip.update({{"mode", 5}});
  fan.update({{"mode", 6}, {"indices", indices}});
  list.update({{"mode", 4}, {"indices", file.add<std::uint32_t>({2, 3, 4}, "SCALAR")}});
  line["mode"] = 1;
  file.node({{"mesh", file.mesh({strip, fan, list, line})}});
  const Model model = file.read();
  EXPECT_THAT(model.objects.at(0).mesh.indices,
              ElementsAre(0, 1, 2, 1, 3, 2, 2, 3, 4, 1, 2, 0, 2, 3, 0, 3, 4, 0, 2, 3, 4));
  EXPECT_EQ(noteCount(model.notes, "primitives of points or lines"), 1U);
}

using Matrix = std::array<std::array<double, 4>, 4>;

Matrix product(const Matrix& a, const Matrix& b) {
  Matrix c = {};
  for (std::size_t i = 0; i < 4; ++i)
    for (std::size_t j = 0; j < 4; ++j)
      for (std::size_t k = 0; k < 4; ++k) c[i][j] += a[i][k] * b[k][j];
  return c;
}

Json columnsOf(const Matrix& m) {
  Json columns;
  for (std::size_t j = 0; j < 4; ++j)
    for (std::size_t i = 0; i < 4; ++i) columns.push_back(m[i][j]);
  return columns;
}

// Trees of nodes, placed by matrices or by parts, against plain products of matrices.
TEST(GltfReader, NodesArePlacedByAllAboveThem) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> number(-2, 2);
  for (int round = 0; round < 20; ++round) {
    GltfBuilder file;
    const std::size_t mesh = file.triangle();
    std::vector<Matrix> places;
    for (std::size_t i = 0; i < 8; ++i) {
      const double s[3] = {number(random), number(random), number(random)}, t[3] = {1e6, number(random), 3};
      const double angle = number(random);
      // A rotation around y.
      const Matrix turn = {{{std::cos(angle), 0, std::sin(angle), 0},
                            {0, 1, 0, 0},
                            {-std::sin(angle), 0, std::cos(angle), 0},
                            {0, 0, 0, 1}}};
      const Matrix scale = {{{s[0], 0, 0, 0}, {0, s[1], 0, 0}, {0, 0, s[2], 0}, {0, 0, 0, 1}}};
      const Matrix move = {{{1, 0, 0, t[0]}, {0, 1, 0, t[1]}, {0, 0, 1, t[2]}, {0, 0, 0, 1}}};
      Matrix place = product(move, product(turn, scale));
      Json node = {{"mesh", mesh}};
      if (i % 2 == 0)
        node["matrix"] = columnsOf(place);
      else
        node.update({{"translation", t}, {"rotation", {0, std::sin(angle / 2), 0, std::cos(angle / 2)}}, {"scale", s}});
      if (i > 0) {
        const std::size_t parent = random() % i;
        place = product(places[parent], place);
        file.root["nodes"][parent]["children"].push_back(i);
      }
      places.push_back(place);
      file.node(node);
    }
    const Model model = file.read();
    ASSERT_EQ(model.objects.size(), places.size());
    for (const Object& object : model.objects) {
      const Matrix& m = places[std::stoul(object.place.substr(7))];  // behind "/nodes/"
      const double corners[3][3] = {{0, 0, 0}, {4, 0, 0}, {0, 2, 0}};
      for (std::size_t i = 0; i < 9; ++i) {
        const auto& [x, y, z] = corners[i / 3];
        const auto& row = m[i % 3];
        EXPECT_NEAR(object.mesh.points[i], row[0] * x + row[1] * y + row[2] * z + row[3], 1e-6);
      }
      const double determinant = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                                 m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                                 m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
      EXPECT_EQ(object.mesh.indices,
                (std::vector<std::uint32_t>{determinant < 0 ? 2U : 0U, 1, determinant < 0 ? 0U : 2U}));
    }
  }
}

TEST(GltfReader, MovesKeepEveryBitThatTheSumHas) {
  GltfBuilder file;
  file.node({{"mesh", file.triangle()}, {"translation", {85227.123456789, 0, -0.1}}});
  EXPECT_THAT(file.read().objects.at(0).mesh.points,
              ElementsAre(85227.123456789, 0, -0.1, 85231.123456789, 0, -0.1, 85227.123456789, 2, -0.1));
}

TEST(GltfReader, OnlyTheSceneIsRead) {
  GltfBuilder file;
  const std::size_t mesh = file.triangle(), other = file.triangle();
  file.node({{"mesh", mesh}, {"name", "a"}});
  file.node({{"mesh", mesh}, {"name", "b"}, {"children", {2}}});
  file.node({{"mesh", mesh}, {"name", "c"}});
  file.root["meshes"][other]["name"] = "unused";
  const auto names = [](const Model& model) {
    std::string all;
    for (const Object& object : model.objects) all += object.name;
    return all;
  };
  EXPECT_EQ(names(file.read()), "abc");
  file.root["scenes"] = {{{"nodes", {1}}}, {{"nodes", {0}}}};
  EXPECT_EQ(names(file.read()), "bc");
  file.root["scene"] = 1;
  const Model model = file.read();
  EXPECT_EQ(names(model), "a");
  EXPECT_EQ(noteCount(model.notes, "nodes outside of the scene"), 2U);
  EXPECT_EQ(noteCount(model.notes, "meshes outside of the scene"), 1U);
}

TEST(GltfReader, ChainsOfNodesMayBeLong) {
  GltfBuilder file;
  const std::size_t mesh = file.triangle();
  constexpr std::size_t kLength = 50000;
  for (std::size_t i = 1; i < kLength; ++i) file.node({{"translation", {0, 0, 1}}, {"children", {i}}});
  file.node({{"mesh", mesh}, {"translation", {0, 0, 1}}});
  EXPECT_EQ(file.read().objects.at(0).mesh.points[2], kLength);
}

TEST(GltfReader, ColorsAndMaterialsAreKept) {
  GltfBuilder file;
  const auto positions = file.add<float>({0, 0, 0, 1, 0, 0, 0, 1, 0}, "VEC3");
  const auto colors = file.add<std::uint8_t>({255, 0, 51, 0, 0, 0, 0, 255, 255, 255, 255, 0}, "VEC4",
                                             {{"type", "VEC3"}, {"normalized", true}});
  file.root["bufferViews"].back()["byteStride"] = 4;
  const auto normals = file.add<float>({0, 0, 1, 0, 0, 1, 0, 0, 1}, "VEC3");
  const Json attributes = {{"POSITION", positions}, {"COLOR_0", colors}, {"NORMAL", normals}};
  const Json flipped = file.add<std::uint16_t>({0, 2, 1}, "SCALAR");
  file.node({{"mesh", file.mesh({{{"attributes", attributes}, {"material", 1}},
                                 {{"attributes", attributes}, {"indices", flipped}}})}});
  file.root["images"] = {{{"uri", "a%20b.png"}}};
  file.root["textures"] = {{{"source", 0}}};
  file.root["materials"] = {
      {{"name", "plain"}},
      {{"pbrMetallicRoughness", {{"baseColorFactor", {0.25, 0.5, 0.75, 1}}, {"baseColorTexture", {{"index", 0}}}}}}};
  const Model model = file.read();
  const Object& object = model.objects.at(0);
  EXPECT_THAT(object.colors, ElementsAre(1, 0, 0.2F, 1, 0, 0, 0, 1, 1, 1, 1, 1));
  EXPECT_EQ(noteCount(model.notes, "normals"), 3U);
  EXPECT_THAT(object.mesh.labels, ElementsAre(0, 1));
  EXPECT_THAT(model.marks, ElementsAre(Mark{.material = 1}, Mark{}));
  ASSERT_EQ(model.materials.size(), 2U);
  EXPECT_EQ(model.materials[0], (Material{.name = "plain", .definition = R"({"name":"plain"})"}));
  EXPECT_EQ(model.materials[1].color, (std::array<double, 4>{0.25, 0.5, 0.75, 1}));
  EXPECT_EQ(model.materials[1].texture, "a b.png");
}

TEST(GltfReader, ColorsOutOfRangeAreClamped) {
  GltfBuilder file;
  const auto positions = file.add<float>({0, 0, 0, 1, 0, 0, 0, 1, 0}, "VEC3");
  const auto colors = file.add<float>({5, -1, 0.5F, 3e38F, 1, 0, 0.25F, 1, 1, 1, 1, -1}, "VEC4");
  file.node({{"mesh", file.mesh({{{"attributes", {{"POSITION", positions}, {"COLOR_0", colors}}}}})}});
  const Model model = file.read();
  EXPECT_THAT(model.objects.at(0).colors, ElementsAre(1, 0, 0.5F, 1, 1, 0, 0.25F, 1, 1, 1, 1, 0));
  EXPECT_EQ(textOf(model.notes), "2 colors below 0 or above 1, of which the nearest is kept");
}

TEST(GltfReader, WhatIsLeftOutIsSaid) {
  GltfBuilder file;
  const auto mesh = file.triangle();
  for (int i = 0; i < 2; ++i) file.node({{"mesh", mesh}, {"name", "node"}});
  file.root["meshes"][0]["name"] = "mesh";
  file.root["asset"].update({{"copyright", "c"}, {"extras", 1}, {"generator", "g"}});
  file.root["scenes"] = {{{"nodes", {0, 1}}, {"name", "s"}, {"extras", 1}, {"extensions", {{"E", 1}}}}};
  file.root["accessors"][0].update({{"extras", 1}, {"extensions", {{"F", 1}}}});
  file.root["buffers"] = {{{"byteLength", file.bytes.size()}, {"extras", 1}}};
  EXPECT_EQ(textOf(parseModel(GltfBuilder::glb(file.root.dump(), file.bytes + "12345678"), Format::glb, "t").notes),
            "1 'copyright' of the asset, 1 'extras' of accessors, 1 'extras' of buffers, 1 'extras' of scenes, "
            "1 'extras' of the asset, 8 bytes behind the end of the buffer, 1 extension 'E', 1 extension 'F', "
            "1 names of meshes whose nodes have other ones, 1 names of scenes");
}

// Whether nodes show one mesh or copies of it makes no difference, but for what is counted.
TEST(GltfReader, AMeshIsTheSameForAllItsNodes) {
  GltfBuilder shared;
  const auto positions = shared.add<float>({0, 0, 0, 4, 0, 0, 0, 2, 0, 1, 1, 1}, "VEC3");
  const auto texCoords = shared.add<float>({0, 0, 1, 0, 0, 1, 0.5F, 0.25F}, "VEC2");
  const auto colors = shared.add<float>({1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1}, "VEC3");
  const Json primitive = {{"attributes", {{"POSITION", positions}, {"TEXCOORD_0", texCoords}, {"COLOR_0", colors}}},
                          {"mode", 5}};
  const auto mesh = shared.mesh({primitive, {{"attributes", {{"POSITION", positions}}}, {"mode", 6}}});
  shared.root["meshes"][mesh]["name"] = "m";
  GltfBuilder copied = shared;
  for (const int scale : {-1, 2, -3, 4, 5, -6}) {
    copied.root["meshes"].push_back(shared.root["meshes"][mesh]);
    Json node = {{"scale", {scale, 1, 2}}, {"translation", {scale, 0.1, 3}}};
    node["mesh"] = mesh;
    shared.node(node);
    node["mesh"] = copied.root["meshes"].size() - 1;
    copied.node(node);
  }
  EXPECT_TRUE(shared.read().objects == copied.read().objects);
  EXPECT_EQ(shared.read().objects.size(), 6U);
}

TEST(GltfReader, BuffersBesideAreReadFromTheModelsFolderOnly) {
  const std::filesystem::path folder = std::filesystem::path(::testing::TempDir()) / "gltf_reader_test";
  std::filesystem::create_directories(folder / "inner");
  const auto write = [](const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  };
  GltfBuilder file;
  file.node({{"mesh", file.triangle()}});
  write(folder / "inner" / "a b.bin", file.bytes);
  write(folder / "outer.bin", file.bytes);
  const auto read = [&](const std::string& uri, bool readsAnywhere) {
    Json root = file.root;
    root["buffers"] = {{{"byteLength", file.bytes.size()}, {"uri", uri}}};
    write(folder / "inner" / "model.gltf", root.dump());
    return readModel(folder / "inner" / "model.gltf", {.readsAnywhere = readsAnywhere}).objects.size();
  };
  EXPECT_EQ(read("a%20b.bin", false), 1U);
  EXPECT_EQ(read("../outer.bin", true), 1U);
  EXPECT_THROW(read("../outer.bin", false), ReadError);
  EXPECT_THROW(read((folder / "outer.bin").string(), false), ReadError);
  EXPECT_THROW(read("missing.bin", true), ReadError);
  std::filesystem::remove_all(folder);
}

// What a file describes may be much larger than the file: the same mesh a thousand times.
TEST(GltfReader, MemoryIsInProportionToTheFile) {
  GltfBuilder file;
  std::vector<float> positions(9 * 3333);
  for (std::size_t i = 0; i < positions.size(); ++i) positions[i] = static_cast<float>(i);
  const auto mesh = file.mesh({{{"attributes", {{"POSITION", file.add(positions, "VEC3")}}}}});
  for (int i = 0; i < 10; ++i) file.node({{"mesh", mesh}});
  EXPECT_EQ(file.read().objects.size(), 10U);
  // These take 215 MB, of a file of 130 KB.
  for (int i = 0; i < 690; ++i) file.node({{"mesh", mesh}});
  EXPECT_EQ(file.read().objects.size(), 700U);
  for (int i = 0; i < 1000; ++i) file.node({{"mesh", mesh}});
  EXPECT_THAT(readErrorOf(file.glb(), Format::glb), HasSubstr("more than ten times"));
}

// One member of a good file is changed to something that cannot be.
TEST(GltfReader, WhatCannotBeIsAnErrorThatNamesTheByte) {
  GltfBuilder good;
  const auto positions = good.add<float>({0, 0, 0, 1, 0, 0, 0, 1, 0}, "VEC3");
  const auto indices = good.add<std::uint16_t>({0, 1, 2}, "SCALAR");
  good.node({{"mesh", good.mesh({{{"attributes", {{"POSITION", positions}}}, {"indices", indices}}})}});
  good.node({{"children", {0}}});
  ASSERT_EQ(readErrorOf(good.glb(), Format::glb), "read");
  constexpr std::uint64_t kHuge = std::uint64_t{1} << 63;
  const std::vector<std::tuple<std::string, Json, std::string>> cases = {
      {"/asset/version", "1.0", "only 2.0"},
      {"/asset/minVersion", "2.1", "asks for a reader"},
      {"/accessors/0/count", 4, "4 elements take 48 bytes, but there are 36"},
      {"/accessors/0/count", 0, "no elements"},
      {"/accessors/0/count", kHuge, "expected an integer"},
      {"/accessors/0/count", 4294967295U, "elements take"},
      {"/accessors/0/count", -1, "expected an integer"},
      {"/accessors/0/count", 2.5, "expected an integer"},
      {"/accessors/0/byteOffset", 4, "3 elements take 36 bytes, but there are 32"},
      {"/accessors/0/byteOffset", kHuge, "expected an integer"},
      {"/accessors/0/componentType", 5124, "no type of numbers"},
      {"/accessors/0/type", "VEC2", "cannot be used here"},
      {"/accessors/0/bufferView", 2, "names element 2 of 'bufferViews', which has 2"},
      {"/accessors/1/componentType", 5122, "must be unsigned"},
      {"/accessors/1/count", 2, "2 corners are no triangles"},
      {"/accessors/0/sparse",
       {{"count", 1},
        {"indices", {{"bufferView", 0}, {"componentType", 5123}, {"byteOffset", 14}}},
        {"values", {{"bufferView", 0}}}},
       "out of range"},
      {"/bufferViews/0/byteLength", 1000, "are none of their buffer"},
      {"/bufferViews/0/byteLength", kHuge, "are none of their buffer"},
      {"/bufferViews/0/byteStride", 8, "elements of 12 bytes, but 8"},
      {"/bufferViews/0/byteStride", 16, "3 elements take 44 bytes, but there are 36"},
      {"/bufferViews/0/buffer", 1, "names element 1 of 'buffers'"},
      {"/bufferViews/1/byteOffset", 0, "read"},  // reads zeros and halves of floats: 0, 0, 0
      {"/bufferViews/1/byteOffset", 14, "but there are 3 vertices"},
      {"/meshes/0/primitives/0/material", 0, "names element 0 of 'materials'"},
      {"/meshes/0/primitives/0/mode", 7, "expected an integer from 0 to 6"},
      {"/meshes/0/primitives/0/attributes/TEXCOORD_0", 0, "cannot be used here"},
      {"/nodes/0/mesh", 1, "names element 1 of 'meshes'"},
      {"/nodes/0/children", {1}, "below itself"},
      {"/nodes/0/children", {0}, "two parents"},
      {"/nodes/1/children", {0, 0}, "two parents"},
      {"/nodes/1/children", {2}, "names element 2 of 'nodes'"},
      {"/nodes/0/matrix", {1, 0}, "2 numbers, expected 16"},
      {"/nodes/0/rotation", {0, 0, 0, 0}, "no rotation"},
      {"/nodes/0/translation", {"a", 0, 0}, "expected a number"},
      {"/scenes", {{{"nodes", {0}}}}, "below node 1"},
      {"/scenes", {{{"nodes", {1, 1}}}}, "twice"},
      {"/scene", 0, "names element 0 of 'scenes'"},
      {"/nodes", "none", "no array"},
      {"/extensionsRequired", {"KHR_draco_mesh_compression"}, "without the extension 'KHR_draco_mesh_compression'"},
      {"/extensionsRequired", {"KHR_mesh_quantization"}, "read"}};
  for (const auto& [place, value, message] : cases) {
    GltfBuilder bad = good;
    bad.root[Json::json_pointer(place)] = value;
    const std::string error = readErrorOf(bad.glb(), Format::glb);
    EXPECT_THAT(error, HasSubstr(message)) << place << ' ' << value;
    EXPECT_THAT(error, StartsWith(message == "read" ? "read" : "t: byte ")) << place << ' ' << value;
  }
  GltfBuilder far = good;
  for (const int node : {0, 1}) far.root["nodes"][node]["scale"] = {1e200, 1, 1};
  EXPECT_THAT(readErrorOf(far.glb(), Format::glb), HasSubstr("where no number reaches"));
  GltfBuilder infinite = good;
  const float notFinite = std::numeric_limits<float>::infinity();
  std::memcpy(&infinite.bytes[16], &notFinite, 4);
  const std::string glb = infinite.glb();
  EXPECT_EQ(readErrorOf(glb, Format::glb), "t: byte " + std::to_string(glb.size() - infinite.bytes.size() - 2 + 12) +
                                               ": element 1 of an accessor has a number that is not finite");
}

TEST(GltfReader, DeepJsonAndDoubleMembersAreErrors) {
  const std::string deep = R"({"asset":{"version":"2.0"},"extras":)";
  EXPECT_EQ(readErrorOf(deep + std::string(1000000, '['), Format::glb),
            "t: byte 291: arrays or objects in each other more than 256 times");
  EXPECT_THAT(readErrorOf(R"({"asset":{"version":"2.0","version":"2.0"}})", Format::glb),
              HasSubstr("'version' stands twice"));
  EXPECT_THAT(readErrorOf(R"({"asset":{"ver\u0073ion":"2.0"}})", Format::glb), HasSubstr("no faces"));
}

}  // namespace
}  // namespace facetbox
