#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <numeric>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <facetbox/io/readModel.h>
#include <facetbox/io/writeModel.h>

namespace facetbox {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Model read(std::string_view text) { return parseModel(text, Format::cityJson, "m.json"); }

std::string write(const Model& model, std::vector<Note>* notes = nullptr) {
  std::string text;
  std::vector<Note> found = writeModel(model, Format::cityJson, [&](std::string_view bytes) { text += bytes; });
  if (notes != nullptr) *notes = std::move(found);
  return text;
}

std::size_t countOf(const std::vector<Note>& notes, std::string_view beginning) {
  for (const Note& note : notes)
    if (note.what.starts_with(beginning)) return note.count;
  return 0;
}

// A house as a surface and as a solid with a hole in its roof, a part of several solids, one of them with a cavity, and
// much that only CityJSON knows.
constexpr const char* kHouse = R"({
  "type": "CityJSON", "version": "2.0",
  "metadata": {"referenceSystem": "https://www.opengis.net/def/crs/EPSG/0/7415"},
  "transform": {"scale": [0.001, 0.001, 0.001], "translate": [85000.0, 446000.0, -1.5]},
  "+unknown": {"big": 123456789012345678901234567890, "x": 1.10, "list": [[], {}, "]}\"\\"]},
  "CityObjects": {
    "house/1": {
      "type": "Building", "children": ["part"], "attributes": {"height": 3.0, "note": "caf\u00e9"},
      "geometry": [
        {"type": "MultiSurface", "lod": "0", "boundaries": [[[0, 1, 2, 3]]]},
        {"type": "Solid", "lod": "2",
         "boundaries": [[[[0,3,2,1]],[[4,5,6,7],[8,11,10,9]],[[0,1,5,4]],[[1,2,6,5]],[[2,3,7,6]],[[3,0,4,7]]]],
         "semantics": {"surfaces": [{"type":"GroundSurface"},{"type":"RoofSurface","slope":0},{"type":"WallSurface"}],
                       "values": [[0,1,2,2,2,null]]},
         "material": {"day": {"values": [[0,null,1,1,1,1]]}, "night": {"value": 1}},
         "texture": {"winter": {"values": [[[[0,0,1,2,3]],[[null],[null]],[[1,3,2,1,0]],[[null]],[[null]],[[null]]]]}}}]},
    "part": {
      "type": "BuildingPart", "parents": ["house/1"],
      "address": [{"location": {"type": "MultiPoint", "lod": "0", "boundaries": [12]}}],
      "geometry": [
        {"type": "MultiPoint", "lod": "0", "boundaries": [12, 0]},
        {"type": "MultiSolid", "lod": "2", "boundaries": [[[[[0,1,2]],[[0,2,3]]]],[[[[4,5,6]]],[[[8,9,10]]]]]}]},
    "yard": {"type": "LandUse", "attributes": {}}
  },
  "vertices": [[0,0,0],[4000,0,0],[4000,4000,0],[0,4000,0],[0,0,3000],[4000,0,3000],[4000,4000,3000],[0,4000,3000],
               [1000,1000,3000],[2000,1000,3000],[2000,2000,3000],[1000,2000,3000],[99,99,99]],
  "appearance": {
    "default-theme-texture": "winter",
    "materials": [{"name":"stone","diffuseColor":[0.5,0.25,1],"transparency":0.25,"shininess":0.2},{"name":"plain"}],
    "textures": [{"type":"PNG","image":"a.png"},{"type":"JPG","image":"b/c.jpg"}],
    "vertices-texture": [[0,0],[1,0],[1,1],[0,1]]}
})";

// A file of one geometry over four vertices; `more` goes into the file.
std::string fileOf(const std::string& geometry, const std::string& more = "", const std::string& version = "2.0") {
  return R"({"type":"CityJSON","version":")" + version + R"(","transform":{"scale":[1,1,1],"translate":[0,0,0]},)" +
         more + R"("CityObjects":{"a":{"type":"Building","geometry":[)" + geometry +
         R"(]}},"vertices":[[0,0,0],[1,0,0],[1,1,0],[0,1,0]]})";
}

std::string surfaceOf(const std::string& boundaries, const std::string& more = "") {
  return R"({"type":"MultiSurface","lod":"1","boundaries":)" + boundaries + more + "}";
}

TEST(CityJsonReader, makesAnObjectOfEachGeometryWithSurfaces) {
  const Model model = read(kHouse);
  ASSERT_EQ(model.objects.size(), 3u);
  const auto& [surface, solid, part] = std::tie(model.objects[0], model.objects[1], model.objects[2]);
  EXPECT_EQ(surface.name, "house/1");
  EXPECT_EQ(surface.place, "/CityObjects/house~11/geometry/0");
  EXPECT_EQ(surface.mesh.points[3], 4000 * 0.001 + 85000.0);
  EXPECT_EQ(part.place, "/CityObjects/part/geometry/1");
  EXPECT_THAT(solid.mesh.counts, ElementsAre(4, 4, 4, 4, 4, 4, 4));
  EXPECT_THAT(solid.mesh.holes, ElementsAre(1, 2, kNone));
  EXPECT_THAT(solid.mesh.texIndices.front(), 0u);
  EXPECT_THAT(solid.mesh.texIndices[4], kNone);
  EXPECT_THAT(solid.mesh.texCoords, ElementsAre(0, 0, 1, 0, 1, 1, 0, 1));
  EXPECT_THAT(part.fileVertices, ElementsAre(0, 1, 2, 3, 4, 5, 6, 8, 9, 10));

  const auto markOf = [&](const Object& object, std::size_t face) { return model.marks[object.mesh.labels[face]]; };
  EXPECT_EQ(model.semantics[markOf(solid, 2).semantics].definition, R"({"type":"RoofSurface","slope":0})");
  EXPECT_EQ(model.semantics[markOf(solid, 3).semantics].type, "WallSurface");
  EXPECT_EQ(markOf(solid, 6).semantics, kNone);
  EXPECT_EQ(markOf(solid, 1).material, kNone);
  const Material& stone = model.materials[markOf(solid, 0).material];
  EXPECT_EQ(stone.name, "stone");
  EXPECT_EQ(stone.color, (std::array{0.5, 0.25, 1.0, 0.75}));
  EXPECT_EQ(stone.texture, "a.png");
  EXPECT_EQ(model.materials[markOf(solid, 3).material].texture, "b/c.jpg");
  EXPECT_EQ(markOf(part, 1).part, 0u);
  EXPECT_EQ(markOf(part, 2).part, 1u);
  EXPECT_EQ(markOf(part, 3).part, 2u);
  EXPECT_EQ(markOf(solid, 0).part, kNone);
  EXPECT_EQ(countOf(model.notes, "geometry \"MultiPoint\""), 1u);
  EXPECT_EQ(countOf(model.notes, "materials of further themes"), 1u);
}

TEST(CityJsonWriter, givesBackAnUnchangedFileByteForByte) { EXPECT_EQ(write(read(kHouse)), kHouse); }

// Takes a face that is in no hole group away.
void removeFace(PolyMesh& mesh, std::uint32_t face) {
  std::size_t corner = 0;
  for (std::uint32_t i = 0; i < face; ++i) corner += mesh.counts[i];
  const auto cut = [](auto& values, std::size_t from, std::size_t count) {
    if (values.empty()) return;
    const auto start = values.begin() + static_cast<std::ptrdiff_t>(from);
    values.erase(start, start + static_cast<std::ptrdiff_t>(count));
  };
  cut(mesh.indices, corner, mesh.counts[face]);
  cut(mesh.texIndices, corner, mesh.counts[face]);
  cut(mesh.counts, face, 1);
  cut(mesh.labels, face, 1);
  for (std::uint32_t& hole : mesh.holes)
    if (hole != kNone && hole > face) --hole;
}

TEST(CityJsonWriter, replacesOnlyWhatHasChanged) {
  Model model = read(kHouse);
  removeFace(model.objects[1].mesh, 3);
  std::vector<Note> notes;
  const std::string text = write(model, &notes);
  json expected = json::parse(kHouse);
  json& solid = expected["CityObjects"]["house/1"]["geometry"][1];
  solid["boundaries"][0].erase(2);
  solid["semantics"]["values"][0].erase(2);
  solid["material"]["day"]["values"][0].erase(2);
  solid["material"].erase("night");
  solid["texture"]["winter"]["values"][0].erase(2);
  EXPECT_EQ(json::parse(text), expected);
  EXPECT_THAT(notes, ElementsAre(Note{"further themes of geometries that have changed", 1}));
  for (const char* kept : {"123456789012345678901234567890, \"x\": 1.10", R"("caf\u00e9")", R"([[[0, 1, 2, 3]]])"})
    EXPECT_THAT(text, HasSubstr(kept));
}

TEST(CityJsonWriter, keepsShellsApartAndTakesEmptyGeometriesOut) {
  Model model = read(kHouse);
  removeFace(model.objects[2].mesh, 3);  // the cavity
  model.objects[0].mesh = {};
  json geometries = json::parse(write(model))["CityObjects"];
  EXPECT_EQ(geometries["part"]["geometry"][1]["boundaries"], json::parse("[[[[[0,1,2]],[[0,2,3]]]],[[[[4,5,6]]]]]"));
  EXPECT_EQ(geometries["house/1"]["geometry"].size(), 1u);
  EXPECT_EQ(geometries["house/1"]["geometry"][0]["type"], "Solid");

  // Without what is around it, a cavity is no solid.
  model = read(kHouse);
  removeFace(model.objects[2].mesh, 2);
  std::vector<Note> notes;
  geometries = json::parse(write(model, &notes))["CityObjects"];
  EXPECT_EQ(geometries["part"]["geometry"][1]["type"], "MultiSurface");
  EXPECT_EQ(geometries["part"]["geometry"][1]["boundaries"], json::parse("[[[0,1,2]],[[0,2,3]],[[8,9,10]]]"));
  EXPECT_EQ(countOf(notes, "solids whose outer shell is gone"), 1u);
}

TEST(CityJsonWriter, addsObjectsThatTheFileDidNotHave) {
  Model model = read(kHouse);
  Object joined = model.objects[1];
  joined.place = "";
  model.objects = {joined};
  const json objects = json::parse(write(model))["CityObjects"];
  EXPECT_THAT(objects["house/1"]["geometry"], IsEmpty());
  const json& added = objects["house/1 (2)"];
  EXPECT_EQ(added["type"], "GenericCityObject");
  EXPECT_EQ(added["geometry"][0]["boundaries"][1], json::parse("[[4,5,6,7],[8,11,10,9]]"));
  EXPECT_EQ(added["geometry"][0]["semantics"]["values"], json::parse("[0,1,2,2,2,null]"));
  EXPECT_EQ(read(write(model)).objects[0].mesh.texCoords, joined.mesh.texCoords);
}

// Coordinates by the formula of the standard, from what another parser finds in the file.
std::vector<double> plainVertices(const std::string& text) {
  const json file = json::parse(text);
  std::vector<double> points;
  for (const json& vertex : file["vertices"])
    for (std::size_t axis = 0; axis < 3; ++axis) {
      EXPECT_TRUE(vertex[axis].is_number_integer()) << vertex;
      points.push_back(vertex[axis].get<double>() * file["transform"]["scale"][axis].get<double>() +
                       file["transform"]["translate"][axis].get<double>());
    }
  return points;
}

TEST(CityJsonWriter, putsNewCoordinatesOnAGridThatHoldsThem) {
  const std::vector<double> before = plainVertices(kHouse);
  Model model = read(kHouse);
  double& x = model.objects[0].mesh.points[0];
  // On the grid of the file: the other vertices stay as they are.
  x = 17 * 0.001 + 85000.0;
  std::vector<Note> notes;
  std::string text = write(model, &notes);
  EXPECT_EQ(json::parse(text)["vertices"].back(), json::parse("[17,0,0]"));
  EXPECT_EQ(json::parse(text)["transform"], json::parse(kHouse)["transform"]);

  // Off that grid: a finer one for all.
  x = 85000.1234567;
  text = write(model, &notes);
  std::vector<double> after = plainVertices(text);
  EXPECT_THAT(notes, IsEmpty());
  EXPECT_EQ(after[before.size()], x);
  after.resize(before.size());
  EXPECT_EQ(after, before);

  // No grid can hold both: the finest that can be, and what it costs is said.
  x = 1e-5 / 3;
  text = write(model, &notes);
  after = plainVertices(text);
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_EQ(notes[0].count, 1u);
  const double error = std::abs(after[before.size()] - x);
  EXPECT_GT(error, 0);
  EXPECT_LT(error, 1e-11);
  EXPECT_EQ(std::stod(notes[0].what.substr(notes[0].what.rfind(' '))), error);
}

TEST(CityJsonReader, takesCoordinatesWithoutTransformInVersion10) {
  const std::string text = R"({"type":"CityJSON","version":"1.0","CityObjects":{"a":{"type":"Building","geometry":
      [{"type":"MultiSurface","lod":1,"boundaries":[[[0,1,2]]]}]}},"vertices":[[0.1,0,0],[1e3,0,0],[1,1,-0.25]]})";
  Model model = read(text);
  EXPECT_THAT(model.objects[0].mesh.points, ElementsAre(0.1, 0, 0, 1000, 0, 0, 1, 1, -0.25));
  EXPECT_EQ(write(model), text);
  model.objects[0].mesh.points[0] = 0.2;
  EXPECT_EQ(read(write(model)).objects[0].mesh.points[6], 0.2);
}

struct Wrong {
  std::string text, message;
};

TEST(CityJsonReader, namesWhatIsWrongAndWhere) {
  const std::string good = surfaceOf("[[[0,1,2]]]");
  const auto replaced = [&](std::string_view old, const std::string& by) {
    std::string text = fileOf(good);
    return text.replace(text.find(old), old.size(), by);
  };
  const std::string deep(100000, '[');
  const std::vector<Wrong> wrongs = {
      {"{\"type\":\"CityJSON\",\n  ]", "m.json:2: column 3: this is not JSON"},
      {"[1]", "must be an object"},
      {"12", "must be an object"},
      {R"({"asset":{"version":"2.0"}})", "this is no CityJSON file"},
      {R"({"type":"CityJSONFeature"})", "CityJSONSeq"},
      {fileOf("") + "\n{\"type\":\"CityJSONFeature\",\"id\":\"a\"}\n", "CityJSONSeq"},
      {fileOf(good, "", "3.0"), "must be \"1.0\", \"1.1\" or \"2.0\", found \"3.0\""},
      {deep, "nested more than"},
      {fileOf(good, "\"a\":" + deep + std::string(deep.size(), ']') + ","), "nested more than"},
      {fileOf(surfaceOf("[[[0,1,4]]]")), "m.json:1: column 189: vertex 4 does not exist; there are 4"},
      {fileOf(surfaceOf("[[[0,1,-1]]]")), "vertex must be an integer from 0, found -1"},
      {fileOf(surfaceOf("[[[0,1,18446744073709551616]]]")), "does not exist"},
      {fileOf(surfaceOf("[[[0,1,4294967297]]]")), "vertex 4294967297 does not exist"},
      {fileOf(surfaceOf("[[0,1,2]]")), "a ring of boundaries must be an array, found 0"},
      {fileOf(surfaceOf("[[[[0,1,2]]]]")), "vertex must be an integer from 0, found [0,1,2]"},
      {fileOf(R"({"type":"MultiSurface"})"), "must have boundaries"},
      {fileOf(""), "no faces"},
      {replaced("[0,0,0],[1", "[0,0],[1"), "a vertex must be three numbers, found [0,0]"},
      {replaced("[1,0,0],", "[1,0,0,7],"), "a vertex must be three numbers"},
      {replaced("[1,0,0],", "[1.5,0,0],"), "must be an integer, found 1.5"},
      {replaced("[1,0,0],", "[9007199254740993000,0,0],"), "at most 2^53"},
      {replaced("[1,0,0],", "[1e400,0,0],"), "this is not JSON"},
      {replaced("[1,0,0],", "[\"1\",0,0],"), "must be a number, found \"1\""},
      {replaced("\"scale\":[1,", "\"scale\":[0,"), "must not be zero"},
      {replaced("\"scale\":[1,", "\"scale\":[1e308,"), ""},  // 1 * 1e308 is finite
      {replaced("\"transform\"", "\"other\""), "\"transform\" is missing"},
      {replaced("\"vertices\"", "\"other\""), "\"vertices\" is missing"},
      {replaced("\"version\"", "\"type\""), "stands twice"},
      {replaced("{\"a\":{", "{\"a\":{},\"a\":{"), "the city object \"a\" stands twice"},
      {fileOf(surfaceOf("[[[0,1,2]]]", R"(,"semantics":{"surfaces":[],"values":[0]})")), "semantic surface 0 does not"},
      {fileOf(surfaceOf("[[[0,1,2]]]", R"(,"semantics":{"surfaces":[],"values":[null,null]})")), "more than the 1"},
      {fileOf(surfaceOf("[[[0,1,2]]]", R"(,"semantics":{"surfaces":[],"values":[]})")), "fewer than the 1"},
      {fileOf(surfaceOf("[[[0,1,2]]]", R"(,"semantics":{"surfaces":[{}],"values":[0]})")), "must have a type"},
      {fileOf(surfaceOf("[[[0,1,2]]]", R"(,"material":{"":{"value":0}})")), "material 0 does not exist; there are 0"},
      {fileOf(surfaceOf("[[[0,1,2]]]", R"(,"texture":{"":{"values":[[[0,0]]]}})")), "texture 0 does not exist"},
      {fileOf(surfaceOf("[[[0,1,2]]]", R"(,"texture":{"":{"values":[[[0,0]]]}})"),
              R"("appearance":{"textures":[{"image":"a.png"}],"vertices-texture":[[0,0]]},)"),
       "one texture vertex for each corner"},
  };
  for (const Wrong& wrong : wrongs) {
    SCOPED_TRACE(wrong.text.substr(0, 400));
    if (wrong.message.empty()) {
      EXPECT_NO_THROW(read(wrong.text));
      continue;
    }
    try {
      read(wrong.text);
      ADD_FAILURE() << "no error";
    } catch (const ReadError& error) {
      EXPECT_THAT(error.what(), HasSubstr(wrong.message));
    }
  }
}

// What the standard asks of any file, checked on what another parser finds in it.
void checkFile(const std::string& text) {
  const json file = json::parse(text);
  EXPECT_EQ(file.at("type"), "CityJSON");
  EXPECT_EQ(file.at("version"), "2.0");
  const std::size_t vertices = plainVertices(text).size() / 3;
  const json appearance = file.value("appearance", json::object());
  for (const json& texture : appearance.value("textures", json::array()))
    EXPECT_TRUE(texture.at("type") == "PNG" || texture.at("type") == "JPG");
  for (const json& material : appearance.value("materials", json::array()))
    EXPECT_TRUE(material.at("name").is_string());
  for (const auto& [id, object] : file.at("CityObjects").items()) {
    EXPECT_EQ(object.at("type"), "GenericCityObject");
    for (const json& geometry : object.at("geometry")) {
      EXPECT_EQ(geometry.at("type"), "MultiSurface");
      EXPECT_TRUE(geometry.at("lod").is_string());
      for (const json& surface : geometry.at("boundaries"))
        for (const json& ring : surface)
          for (const json& vertex : ring) EXPECT_LT(vertex.get<std::size_t>(), vertices);
      const json material = geometry.value("material", json::object());
      for (const json& values : material) EXPECT_EQ(values.at("values").size(), geometry.at("boundaries").size());
    }
  }
}

using Random = std::mt19937_64;

std::uint32_t below(Random& random, std::size_t count) { return static_cast<std::uint32_t>(random() % count); }

// Materials in the order in which the faces need them, with images that CityJSON knows; holes right behind their faces.
Object randomObject(Random& random, std::size_t number, std::size_t marks) {
  Object object;
  object.name = "object \"" + std::to_string(number) + "\" \xC3\xA4\n/~";
  PolyMesh& mesh = object.mesh;
  const std::uint32_t vertices = 3 + below(random, 20);
  for (std::uint32_t i = 0; i < 3 * vertices; ++i)
    mesh.points.push_back(std::ldexp(static_cast<double>(static_cast<std::int64_t>(random() % 2000001) - 1000000),
                                     static_cast<int>(below(random, 20)) - 25));
  for (std::uint32_t i = 0; i < vertices; ++i) mesh.indices.push_back(i);
  mesh.counts = {vertices};
  const std::uint32_t pairs = 1 + below(random, 5);
  for (std::uint32_t i = 0; i < 2 * pairs; ++i) mesh.texCoords.push_back(static_cast<double>(random() % 4096) / 4095);
  for (std::uint32_t face = 1 + below(random, 8); face > 0; --face) {
    mesh.counts.push_back(1 + below(random, 6));
    for (std::uint32_t i = 0; i < mesh.counts.back(); ++i) mesh.indices.push_back(below(random, vertices));
  }
  for (std::uint32_t face = 0; face + 1 < mesh.counts.size(); face += 3)
    if (below(random, 2) == 0) mesh.holes.insert(mesh.holes.end(), {face, face + 1, kNone});
  for (std::size_t face = 0; face < mesh.counts.size(); ++face) {
    const bool isHole = face % 3 == 1 && std::find(mesh.holes.begin(), mesh.holes.end(), face) != mesh.holes.end();
    mesh.labels.push_back(isHole ? mesh.labels.back() : below(random, marks));
    // Marks of odd number have an image.
    for (std::uint32_t i = 0; i < mesh.counts[face]; ++i)
      mesh.texIndices.push_back(mesh.labels.back() % 2 == 1 ? below(random, pairs) : kNone);
  }
  return object;
}

// What has to come back of a face.
struct Face {
  std::vector<double> points, texCoords;
  Material material;
  friend bool operator==(const Face&, const Face&) = default;
};

std::vector<Face> facesOf(const Model& model, const Object& object) {
  std::vector<Face> faces;
  std::size_t corner = 0;
  for (std::size_t f = 0; f < object.mesh.counts.size(); ++f) {
    Face& face = faces.emplace_back();
    for (const std::size_t end = corner + object.mesh.counts[f]; corner < end; ++corner) {
      for (std::size_t i = 0; i < 3; ++i)
        face.points.push_back(object.mesh.points[3 * object.mesh.indices[corner] + i]);
      const std::uint32_t pair = object.mesh.texIndices.empty() ? kNone : object.mesh.texIndices[corner];
      for (std::size_t i = 0; i < 2 && pair != kNone; ++i)
        face.texCoords.push_back(object.mesh.texCoords[2 * pair + i]);
    }
    const Mark mark = object.mesh.labels.empty() ? Mark() : model.marks[object.mesh.labels[f]];
    if (mark.material != kNone) face.material = model.materials[mark.material];
    face.material.definition.clear();
  }
  return faces;
}

TEST(CityJson, carriesAnyModelThereAndBack) {
  Random random(7);
  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE(round);
    Model model;
    const std::size_t marks = 1 + below(random, 6);
    for (std::uint32_t i = 0; i < marks; ++i) {
      model.marks.push_back({.material = i % 3 == 2 && i % 2 == 0 ? kNone : i});
      model.materials.push_back(
          {.name = "m" + std::to_string(i), .texture = i % 2 == 1 ? "t\\" + std::to_string(i) + ".PNG" : ""});
      if (below(random, 2) == 0) model.materials.back().color = {0.1, 1.0 / 3, 1, 0.5};
    }
    for (std::uint32_t i = 0, count = 1 + below(random, 4); i < count; ++i)
      model.objects.push_back(randomObject(random, i, marks));
    std::vector<Note> notes;
    const std::string text = write(model, &notes);
    EXPECT_THAT(notes, IsEmpty());
    checkFile(text);
    const Model back = read(text);
    ASSERT_EQ(back.objects.size(), model.objects.size());
    for (std::size_t i = 0; i < model.objects.size(); ++i) {
      const Object &object = model.objects[i], &copy = back.objects[i];
      EXPECT_EQ(copy.name, object.name);
      EXPECT_EQ(copy.mesh.points, object.mesh.points);
      EXPECT_EQ(copy.mesh.counts, object.mesh.counts);
      EXPECT_EQ(copy.mesh.indices, object.mesh.indices);
      EXPECT_EQ(copy.mesh.holes, object.mesh.holes);
      EXPECT_TRUE(facesOf(back, copy) == facesOf(model, object));
    }
    EXPECT_EQ(write(back), text);
  }
}

TEST(CityJson, carriesDecimalsOfMapsExactly) {
  Random random(11);
  for (const double unit : {1e2, 1e3, 1e5, 1e6}) {
    Model model;
    model.objects.resize(1);
    PolyMesh& mesh = model.objects[0].mesh;
    for (int i = 0; i < 3 * 5000; ++i)
      mesh.points.push_back(std::round((static_cast<double>(random() % 400000) - 50000) * unit) / unit / 8);
    for (double& value : mesh.points) value = std::round(value * unit) / unit;  // the double next to a decimal
    mesh.indices.resize(5000);
    std::iota(mesh.indices.begin(), mesh.indices.end(), 0u);
    mesh.counts = {5000};
    std::vector<Note> notes;
    EXPECT_EQ(plainVertices(write(model, &notes)), mesh.points) << unit;
    EXPECT_THAT(notes, IsEmpty());
  }
}

TEST(CityJson, carriesModelsOfBuildingsThereAndBack) {
  for (const char* name : {"rotterdam_buildings.obj", "zurich_buildings.obj", "spider.obj"}) {
    const std::filesystem::path path = std::filesystem::path(FACETBOX_MODELS) / name;
    if (!std::filesystem::exists(path)) GTEST_SKIP() << path << " is not there";
    const Model model = readModel(path);
    const std::string text = write(model);
    checkFile(text);
    const Model back = read(text);
    std::size_t next = 0;
    for (const Object& object : model.objects) {
      if (object.mesh.counts.empty()) continue;
      EXPECT_EQ(back.objects[next].name, object.name.empty() ? "object 1" : object.name);
      std::vector<Face> faces = facesOf(model, object), copies = facesOf(back, back.objects[next++]);
      for (std::vector<Face>* all : {&faces, &copies})
        for (Face& face : *all) {
          face.material = {.name = face.material.name, .color = face.material.color};
          face.texCoords.clear();
        }
      EXPECT_TRUE(copies == faces) << object.name;
    }
    EXPECT_EQ(next, back.objects.size());
  }
}

TEST(CityJsonWriter, saysWhatItCannotCarry) {
  Model model;
  model.groups = {"g"};
  model.materials = {{.name = "\xFF", .texture = "a.tga"}};
  model.marks = {{.material = 0, .group = 0}};
  Object object;
  object.mesh.points = {0, 0, 0, 1, 0, 0, 1, 1, 0, 5, 5, 5};
  object.mesh.counts = {3};
  object.mesh.indices = {0, 1, 2};
  object.mesh.labels = {0};
  object.mesh.texCoords = {0, 0};
  object.mesh.texIndices = {0, 0, 0};
  object.colors.resize(16);
  model.objects = {object, object, Object{}};
  std::vector<Note> notes;
  const json file = json::parse(write(model, &notes));
  EXPECT_TRUE(file["CityObjects"].contains("object 1") && file["CityObjects"].contains("object 2"));
  EXPECT_THAT(notes,
              ElementsAre(Note{"bytes of names that are not UTF-8, in materials", 1}, Note{"colors of vertices", 8},
                          Note{"groups of faces", 2}, Note{"images of materials that are neither PNG nor JPEG", 1},
                          Note{"objects without faces", 1}, Note{"texture coordinates of faces without an image", 2},
                          Note{"vertices that no face uses", 2}));
}

TEST(CityJsonWriter, writesSharedVerticesOnce) {
  Model model = read(kHouse);
  model.document = nullptr;
  const std::string text = write(model);
  EXPECT_EQ(json::parse(text)["vertices"].size(), 12u);
  const Model back = read(text);
  ASSERT_EQ(back.objects.size(), 3u);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(back.objects[i].fileVertices, model.objects[i].fileVertices);
  EXPECT_EQ(back.semantics, model.semantics);
}

}  // namespace
}  // namespace facetbox
