// Files that are cut short, damaged, or lie: an error or a valid model, never a made-up face, a crash or a huge request
// for memory.

#include <bit>
#include <chrono>
#include <functional>

#include <gmock/gmock.h>

#include <facetbox/io/JoinedPositions.h>

#include "GltfBuilder.h"
#include "IoTestSupport.h"

namespace facetbox {
namespace {

struct Sample {
  std::string name;  // of the test
  Format format;
  std::string bytes;
  // From how many bytes on the file is complete. Shorter ones are errors or, where a format says nowhere how much is to
  // come, hold the first faces.
  std::size_t wholeFrom;
  bool saysHowMuch;
  // The file with some count replaced, which nothing in it justifies.
  std::function<std::string(std::uint64_t count)> withCount = {};
};

// For messages of tests.
void PrintTo(const Sample& sample, std::ostream* out) { *out << sample.name; }

const std::string kOff =
    "COFF # text\n4 2 0\n0 0 0 255 0 0 255\n1 0 0 0 255 0 255\n0 1 0 0 0 255 255\n0 0 12 9 9 9 255\n3 0 1 2 255 0 0\n"
    "4 0 1 2 3\n";

std::string bigEndian(std::initializer_list<std::uint32_t> values) {
  std::string bytes;
  for (const std::uint32_t value : values)
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xFF);
  return bytes;
}
std::string binaryOff(std::uint32_t vertices, std::uint32_t faces, std::uint32_t corners) {
  return "OFF BINARY\n" + bigEndian({vertices, faces, 0}) + std::string(36, '\0') +
         bigEndian({corners, 0, 1, 2, 0, 3, 0, 1, 1, 0});
}

const std::string kFacet =
    "facet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 12 0\nendloop\nendfacet\n";
const std::string kTextStl = "solid a\n" + kFacet + kFacet + "endsolid a\nsolid b\n" + kFacet + "endsolid b\n";

std::string binaryStl(std::uint32_t facets) {
  std::string bytes = "solid";
  bytes.resize(80, '\0');
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(facets >> shift & 0xFF);
  for (char facet = 0; facet < 2; ++facet) {
    bytes += std::string(47, '\0');
    bytes += '\x40';  // 2 or so, highest byte last
    bytes += std::string(2, facet);
  }
  return bytes;
}

const std::string kObj =
    "o a\nv 0 0 0\nv 1 0 0 1 0 0\nv 0 12 0\nvn 0 0 1\nvt 0.5 1e-3\nvt 1 1\nusemtl m\ng x y\nf 1/1 2/2 \\\n-1/-1\nf "
    "1/1/1 2//1 3\n"
    "f 3 2 1\n# facetbox:holes 1 2\n";

const std::string kCityJson =
    R"({"type":"CityJSON","version":"1.1","transform":{"scale":[0.5,1,1e-3],"translate":[7,-2,0]},"CityObjects":{
"a\u00e4/~":{"type":"Building","attributes":{"x":[{},[],null,true,"]"]},"geometry":[{"type":"Solid","lod":"2.2",
"boundaries":[[[[0,1,2,3],[0,2,1]],[[3,2,1]]],[[[0,1,3]]]],"semantics":{"surfaces":[{"type":"RoofSurface"},
{"type":"WallSurface","parent":0}],"values":[[0,null],null]},"material":{"m":{"values":[[0,null],[0]]}},
"texture":{"t":{"values":[[[[0,0,1,0,1],[null]],[[0,1,1,1]]],null]}}},{"type":"MultiPoint","lod":"0",
"boundaries":[0]}]},"b":{"type":"Road","geometry":[{"type":"MultiSurface","lod":"1","boundaries":[[[2,1,0]]],
"material":{"m":{"value":0}}}]}},"vertices":[[0,0,0],[1,0,0],[1,1,0],[-9,1,123]],"appearance":{"materials":[
{"name":"n","diffuseColor":[0,0.5,1],"transparency":0.5}],"textures":[{"type":"PNG","image":"../i.png"}],
"vertices-texture":[[0,0],[1,0.5]]}}
)";

// Colors, and texture coordinates per corner where there are some.
std::string ply(bool isText, const std::string& vertices = "3", const std::string& faces = "2") {
  Model model;
  model.objects.push_back({.mesh = {.points = {0, 0, 0, 1, 0, 0, 0, 1, 12.25},
                                    .counts = {3, 2},
                                    .indices = {0, 1, 2, 1, 2},
                                    .texCoords = {0, 0.5, 1, 1},
                                    .texIndices = {0, 1, 0, kNone, kNone}},
                           .colors = {1, 0, 0, 1, 0, 1, 0, 1, 0, 0, 0, 0}});
  std::string bytes = written(model, Format::ply, isText);
  bytes.replace(bytes.find("vertex 3") + 7, 1, vertices);
  return bytes.replace(bytes.find("face 2") + 5, 1, faces);
}

GltfBuilder gltf(std::uint64_t vertices = 4) {
  GltfBuilder file;
  const auto positions = file.add<float>({0, 0, 0, 4, 0, 0, 0, 2, 0, 1, 1, 1}, "VEC3", {{"count", vertices}});
  const auto texCoords = file.add<std::uint16_t>({0, 0, 1, 2, 3, 4, 5, 6}, "VEC2", {{"normalized", true}});
  const auto indices = file.add<std::uint8_t>({0, 1, 2, 3}, "SCALAR");
  file.node({{"mesh", file.mesh({{{"attributes", {{"POSITION", positions}, {"TEXCOORD_0", texCoords}}},
                                  {"indices", indices},
                                  {"material", 0},
                                  {"mode", 5}}})}});
  file.node({{"children", {0}}, {"rotation", {0, 0.6, 0, 0.8}}, {"translation", {3, 2, 1}}});
  file.root["materials"] = {{{"pbrMetallicRoughness", {{"baseColorFactor", {1, 1, 0, 1}}}}}};
  file.root["scenes"] = {{{"nodes", {1}}}};
  return file;
}
// With nothing behind the counts but zeros.
GltfBuilder gltfOfZeros(std::uint64_t vertices) {
  GltfBuilder file = gltf(vertices);
  file.root["accessors"][0].erase("bufferView");
  file.root["meshes"][0]["primitives"][0]["attributes"].erase("TEXCOORD_0");
  file.root["meshes"][0]["primitives"][0].erase("indices");
  return file;
}

std::vector<Sample> samples() {
  return {
      // Lines may end anywhere, but not within.
      {"Obj", Format::obj, kObj, kObj.size(), false,
       [](std::uint64_t count) { return "v 0 0 0\nf 1 1 " + std::to_string(count) + "\n"; }},
      {"Off", Format::off, kOff, kOff.size(), true,
       [](std::uint64_t count) { return "OFF\n" + std::to_string(count) + " 1 0\n0 0 0\n3 0 0 0\n"; }},
      {"OffFaces", Format::off, kOff, kOff.size(), true,
       [](std::uint64_t count) { return "OFF\n1 " + std::to_string(count) + " 0\n0 0 0\n3 0 0 0\n"; }},
      {"OffCorners", Format::off, kOff, kOff.size(), true,
       [](std::uint64_t count) { return "OFF\n1 1 0\n0 0 0\n" + std::to_string(count) + " 0 0 0\n"; }},
      {"OffBytes", Format::off, binaryOff(3, 2, 3), binaryOff(3, 2, 3).size(), true,
       [](std::uint64_t count) { return binaryOff(static_cast<std::uint32_t>(count - 1), 2, 3); }},
      {"OffBytesFaces", Format::off, binaryOff(3, 2, 3), binaryOff(3, 2, 3).size(), true,
       [](std::uint64_t count) { return binaryOff(3, static_cast<std::uint32_t>(count - 1), 3); }},
      {"OffBytesCorners", Format::off, binaryOff(3, 2, 3), binaryOff(3, 2, 3).size(), true,
       [](std::uint64_t count) { return binaryOff(3, 2, static_cast<std::uint32_t>(count - 1)); }},
      {"Ply", Format::ply, ply(true), ply(true).size() - 1, true,
       [](std::uint64_t count) { return ply(true, std::to_string(count)); }},
      {"PlyFaces", Format::ply, ply(true), ply(true).size() - 1, true,
       [](std::uint64_t count) { return ply(true, "3", std::to_string(count)); }},
      {"PlyBytes", Format::ply, ply(false), ply(false).size(), true,
       [](std::uint64_t count) { return ply(false, std::to_string(count)); }},
      {"PlyBytesFaces", Format::ply, ply(false), ply(false).size(), true,
       [](std::uint64_t count) { return ply(false, "3", std::to_string(count)); }},
      // The name behind the last endsolid does not matter. Solids may end anywhere.
      {"Stl", Format::stl, kTextStl, kTextStl.size() - 3, false},
      {"StlBytes", Format::stl, binaryStl(2), binaryStl(2).size(), true,
       [](std::uint64_t count) { return binaryStl(static_cast<std::uint32_t>(count - 1)); }},
      {"CityJson", Format::cityJson, kCityJson, kCityJson.size() - 1, true,
       [](std::uint64_t count) {
         std::string text = kCityJson;
         return text.replace(text.find("[3,2,1]") + 1, 1, std::to_string(count));
       }},

      {"Gltf", Format::gltf, gltf().text(), gltf().text().size(), true,
       [](std::uint64_t count) { return gltf(count).text(); }},
      {"Glb", Format::glb, gltf().glb(), gltf().glb().size(), true,
       [](std::uint64_t count) { return gltfOfZeros(count - 1).glb(); }},
  };
}

constexpr const char* kMissingLineEnd = "line end of the last line, which may be cut short";

class HostileFiles : public testing::TestWithParam<Sample> {};

TEST_P(HostileFiles, CutAtAnyByteHoldNoFaceThatIsNotThere) {
  const Sample& sample = GetParam();
  const auto whole = facesOf(parseModel(sample.bytes, sample.format, "t"));
  const auto isCutFace = [](const Note& note) { return note.what == kMissingLineEnd; };
  for (std::size_t size = 0; size <= sample.bytes.size(); ++size) {
    try {
      const Model model = parseModel(sample.bytes.substr(0, size), sample.format, "t");
      const auto faces = facesOf(model);
      // The last face may have lost something then, and the model says so.
      const bool isNoted = std::ranges::any_of(model.notes, isCutFace);
      EXPECT_TRUE(!sample.saysHowMuch || size >= sample.wholeFrom || isNoted) << size;
      ASSERT_LE(faces.size(), whole.size()) << size;
      EXPECT_TRUE(std::equal(faces.begin(), faces.end() - (isNoted ? 1 : 0), whole.begin())) << size;
      EXPECT_TRUE(size < sample.wholeFrom || faces.size() == whole.size()) << size;
    } catch (const ReadError&) {
      EXPECT_LT(size, sample.wholeFrom);
    }
  }
}

TEST(HostileText, WithoutItsLastLineEndIsReadAndSaid) {
  for (const auto& [format, text] : {std::pair{Format::obj, kObj},
                                     {Format::obj, "v 0 0 0\nf 1 1\nf 1\nf 1\n"},
                                     {Format::off, kOff},
                                     {Format::ply, ply(true)}}) {
    Model whole = parseModel(text, format, "t");
    const Model open = parseModel(text.substr(0, text.size() - 1), format, "t");
    EXPECT_TRUE(open.objects == whole.objects) << text;
    whole.notes.push_back({kMissingLineEnd, 1});
    EXPECT_THAT(open.notes, testing::UnorderedElementsAreArray(whole.notes)) << text;
  }
}

// parseModel() hands out valid meshes only: those can be written.
TEST_P(HostileFiles, WithAnyBitTurnedAreErrorsOrModels) {
  const Sample& sample = GetParam();
  int errors = 0;
  for (std::size_t i = 0; i < 8 * sample.bytes.size(); ++i) {
    std::string bytes = sample.bytes;
    bytes[i / 8] = static_cast<char>(bytes[i / 8] ^ 1 << i % 8);
    try {
      const Model model = parseModel(bytes, sample.format, "t");
      EXPECT_LE(facesOf(model).size(), bytes.size());
      written(model, sample.format, true);
    } catch (const ReadError& error) {
      EXPECT_TRUE(std::string(error.what()).starts_with("t:")) << error.what();
      ++errors;
    }
  }
  EXPECT_GT(errors, 0);
}

TEST_P(HostileFiles, WithCountsOutOfAllProportionAreErrors) {
  if (!GetParam().withCount) return;
  for (const int bits : {31, 32, 63})
    EXPECT_THROW(parseModel(GetParam().withCount(std::uint64_t{1} << bits), GetParam().format, "t"), ReadError) << bits;
}

double secondsOf(const std::function<void()>& what) {
  const auto start = std::chrono::steady_clock::now();
  what();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Work that is not in proportion to the file: many uses of one thing that is large.
TEST(HostileGltf, ThingsAreReadOnceHoweverOftenTheyAreUsed) {
  using Json = GltfBuilder::Json;
  GltfBuilder points, views, triangles;
  const auto pointMesh = points.mesh(Json(9000, {{"attributes", Json::object()}, {"mode", 0}}));
  for (int i = 0; i < 15000; ++i) points.node({{"mesh", pointMesh}});
  EXPECT_LT(secondsOf([&] { EXPECT_THAT(readErrorOf(points.glb(), Format::glb), testing::HasSubstr("no face")); }), 2);

  const auto positions = views.add<float>({0, 0, 0, 4, 0, 0, 0, 2, 0}, "VEC3");
  for (int i = 0; i < 20000; ++i) views.root["bufferViews"][0][std::to_string(i) + "x"] = i;
  for (int i = 1; i < 2000; ++i) views.root["accessors"].push_back(views.root["accessors"][0]);
  Json primitives;
  for (int i = 0; i < 2000; ++i) primitives.push_back({{"attributes", {{"POSITION", i}}}});
  views.node({{"mesh", views.mesh(primitives)}});
  EXPECT_LT(secondsOf([&] { EXPECT_EQ(views.read().objects.at(0).mesh.counts.size(), 2000U); }), 2);

  triangles.triangle();
  triangles.root["meshes"][0]["primitives"] = Json(9000, {{"attributes", {{"POSITION", positions}}}});
  for (int i = 0; i < 15000; ++i) triangles.node({{"mesh", 0}});
  EXPECT_LT(secondsOf([&] { EXPECT_NE(readErrorOf(triangles.glb(), Format::glb), "read"); }), 2);
}

// Places that all had one hash if it were the same in every process and could be turned back.
TEST(HostileStl, NobodyCanMakePlacesOfOneHash) {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
  std::uint64_t inverse = 1;
  for (int i = 0; i < 6; ++i) inverse *= 2 - kFactor * inverse;
  std::vector<double> points, file;
  JoinedPositions join(points);
  for (std::uint64_t i = 1; file.size() < 3 * 60000; ++i) {
    const double x = static_cast<double>(i);
    std::uint64_t hash = std::bit_cast<std::uint64_t>(x) * kFactor;
    hash = (hash ^ hash >> 32) * kFactor;
    hash ^= hash >> 32;
    const std::uint64_t wanted = i << 40;  // no low bits
    const double z = std::bit_cast<double>(hash ^ (wanted ^ wanted >> 32) * inverse);
    if (z - z == 0) file.insert(file.end(), {x, 0, z});
  }
  EXPECT_LT(secondsOf([&] {
              for (std::size_t i = 0; i < file.size(); i += 3)
                EXPECT_EQ(join(file[i], file[i + 1], file[i + 2]), i / 3);
            }),
            1);
}

INSTANTIATE_TEST_SUITE_P(Formats, HostileFiles, testing::ValuesIn(samples()),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace facetbox
