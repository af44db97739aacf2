#include <cmath>
#include <limits>
#include <map>

#include <gtest/gtest.h>

#include "IoTestSupport.h"

namespace facetbox {
namespace {

Model parse(const std::string& bytes) { return parseModel(bytes, Format::stl, "t.stl"); }

std::string facet(const std::string& normal, const std::string& a, const std::string& b, const std::string& c) {
  return "facet normal " + normal + "\nouter loop\nvertex " + a + "\nvertex " + b + "\nvertex " + c +
         "\nendloop\nendfacet\n";
}
const std::string kFacet = facet("0 0 1", "0 0 0", "1 0 0", "0 1 0");

template <typename T>
std::string bytesOf(T value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string binary(const std::string& header, const std::vector<std::array<float, 12>>& facets,
                   std::uint16_t attribute = 0) {
  std::string bytes = header;
  bytes.resize(80, '\0');
  bytes += bytesOf(static_cast<std::uint32_t>(facets.size()));
  for (const auto& numbers : facets) {
    for (const float number : numbers) bytes += bytesOf(number);
    bytes += bytesOf(attribute);
  }
  return bytes;
}

TEST(StlFile, ReadsTextOfSeveralSolids) {
  const Model model =
      parse("\n solid  a b \r\n" + kFacet + "endsolid a b\nSOLID\n" + facet("0 0 1", "0 0 0", "1 0 0", "0 0.1 -0") +
            "FACET NORMAL nan +inf -nan(ind) OUTER LOOP VERTEX "
            "-0 0 0 VERTEX 0.1 0 0 VERTEX +1e-400 0 0 ENDLOOP ENDFACET ENDSOLID\nsolid empty\nendsolid");
  ASSERT_EQ(model.objects.size(), 2U);
  EXPECT_EQ(model.objects[0].name, "a b");
  EXPECT_EQ(model.objects[1].name, "");
  EXPECT_EQ(
      model.objects[1].mesh,
      (PolyMesh{.points = {0, 0, 0, 1, 0, 0, 0, 0.1, 0, 0.1, 0, 0}, .counts = {3, 3}, .indices = {0, 1, 2, 0, 3, 0}}));
  EXPECT_FALSE(std::signbit(model.objects[1].mesh.points[8]));
  EXPECT_EQ(textOf(model.notes), "1 solids without facets");
}

TEST(StlFile, ReadsBytesThatBeginWithSolid) {
  const float inf = std::numeric_limits<float>::infinity();
  const Model model = parse(binary("solid, but not text",
                                   {{0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0.1F},
                                    {0, 0, -1, 0, 0, 0, 1, 0, 0, 0, 1, 0},
                                    {inf, 0, 0, -0.0F, 0, 0, 1, 0, 0, 0, 2, 0}},
                                   7));
  ASSERT_EQ(model.objects.size(), 1U);
  EXPECT_EQ(model.objects[0].mesh.points[8], static_cast<double>(0.1F));
  EXPECT_EQ(model.objects[0].mesh.indices, (std::vector<std::uint32_t>{0, 1, 2, 0, 1, 3, 0, 1, 4}));
  EXPECT_EQ(textOf(model.notes), "3 attributes of facets, 1 normals that do not fit the corners");
}

TEST(StlFile, LosesNoFacetBehindEndsolidAndCountsColorsOfTheHeader) {
  const std::string start = "solid facet\n" + kFacet + "endsolid ";
  EXPECT_EQ(parse(start + "facet\n").objects.size(), 1U);
  EXPECT_EQ(readErrorOf(start + "a " + kFacet, Format::stl), "t:9: a facet stands on the line of 'endsolid'");
  EXPECT_EQ(textOf(parse(binary("COLOR=abcd", {{0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0}})).notes),
            "1 colors in the header");
}

TEST(StlFile, KeepsEveryNameThatALineCanHold) {
  Model model = parse("solid\n" + kFacet + "endsolid\n");
  const std::pair<std::string, std::string> names[] = {
      {"a facet normal", "a facet normal"}, {"dir\\", "dir\\"}, {"a\rb", "a\rb"}, {"a\n" + kFacet, ""},
      {std::string("a\0b", 3), "a b"},      {" a ", "a"}};
  for (const auto& [name, readBack] : names) {
    model.objects[0].name = name;
    const Model read = parse(written(model, Format::stl, true));
    ASSERT_EQ(read.objects.size(), 1U) << name;
    EXPECT_EQ(read.objects[0].mesh, model.objects[0].mesh) << name;
    if (!readBack.empty()) {
      EXPECT_EQ(read.objects[0].name, readBack);
    }
  }
  EXPECT_EQ(
      readErrorOf("solid a\n" + kFacet + "endsolid\nsolid b" + std::string(1, '\0') + "\n" + kFacet + "endsolid\n",
                  Format::stl),
      "t:10: a byte of zero stands in the name; text has none");
}

TEST(StlFile, SaysWhatIsWrongAndWhere) {
  const std::string good = binary("", {{0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0}});
  std::string infinite = good, many = good;
  infinite.replace(84 + 16, 4, bytesOf(std::numeric_limits<float>::infinity()));
  many.replace(80, 4, bytesOf(0xFFFFFFFFU));
  const std::vector<std::pair<std::string, std::string>> cases = {
      {infinite, "t: byte 100: this coordinate is not a finite number"},
      {many, "t: byte 80: 4294967295 facets are declared, which would make 214748364834 bytes, but the file has 134"},
      {good + '\0', "t: byte 80: 1 facets are declared, which would make 134 bytes, but the file has 135"},
      {good.substr(0, 83), "t: byte 83: the file ends within the first 84 bytes: it is cut short"},
      {binary("", {}), "t: has no faces, so there is nothing to work on"},
      {"solid a\n", "t:2: the file ends where 'facet' or 'endsolid' is expected: it is cut short"},
      {"solid a\nendsolid\nfacet", "t:3: 'facet' stands where 'solid' is expected"},
      {"solid a\nfacet normal 0 0 1\nouter loop\nvertex 0 0\nx", "t:5: 'x' is not a number; a coordinate is expected"},
      {"solid a\nfacet normal 0 0 1\nouter loop\nvertex 0 0 inf\n",
       "t:4: 'inf' is not a finite number; a coordinate is expected"},
      {"solid a\nfacet normal x", "t:2: 'x' is not a number; a normal is expected"},
      {"solid a\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nvertex 1 1 0",
       "t:7: 'vertex' stands where 'endloop' is expected"}};
  for (const auto& [bytes, error] : cases) EXPECT_EQ(readErrorOf(bytes, Format::stl), error);
}

// The corners' positions, face after face.
std::vector<double> cornersOf(const PolyMesh& mesh) {
  std::vector<double> corners;
  for (const std::uint32_t vertex : mesh.indices)
    for (std::size_t axis = 0; axis < 3; ++axis) corners.push_back(mesh.points[3 * vertex + axis] + 0.0);
  return corners;
}

// Few positions, many corners: vertices of a mesh may stand at the same place.
PolyMesh randomTriangles(std::mt19937& random, bool isFloat) {
  PolyMesh mesh;
  const std::uint32_t vertices = 3 + random() % 60;
  for (std::uint32_t i = 0; i < 3 * vertices; ++i) {
    double value = random() % 3 ? static_cast<double>(random() % 3) * (random() % 2 ? 1 : -1) : randomDouble(random);
    if (isFloat && !(std::abs(value) < 1e38)) value = -0.0;
    mesh.points.push_back(isFloat ? static_cast<double>(static_cast<float>(value)) : value);
  }
  mesh.counts.assign(1 + random() % 80, 3);
  for (std::size_t i = 0; i < 3 * mesh.counts.size(); ++i) mesh.indices.push_back(random() % vertices);
  return mesh;
}

TEST(StlFile, WhatIsWrittenIsReadBackBitForBit) {
  std::mt19937 random(21);
  for (int round = 0; round < 200; ++round) {
    const bool isText = round % 2 == 0;
    Model model;
    model.objects.push_back({.name = isText ? "a  b" : "", .mesh = randomTriangles(random, !isText)});
    if (isText) model.objects.push_back({.mesh = randomTriangles(random, false)});
    const Model back = parse(written(model, Format::stl, isText));
    ASSERT_EQ(back.objects.size(), model.objects.size());
    for (std::size_t i = 0; i < back.objects.size(); ++i) {
      const PolyMesh& mesh = back.objects[i].mesh;
      ASSERT_EQ(bitsOf(cornersOf(model.objects[i].mesh)), bitsOf(cornersOf(mesh)));
      ASSERT_EQ(model.objects[i].name, back.objects[i].name);
      // Each position has one number, in the order in which they come up.
      std::map<std::array<double, 3>, std::uint32_t> known;
      for (const std::uint32_t vertex : mesh.indices) {
        const double* const p = &mesh.points[3 * std::size_t{vertex}];
        ASSERT_EQ(known.try_emplace({p[0], p[1], p[2]}, known.size()).first->second, vertex);
      }
      ASSERT_EQ(mesh.points.size(), 3 * known.size());
    }
    EXPECT_EQ(textOf(back.notes), "");
    ASSERT_TRUE(parse(written(back, Format::stl, isText)).objects == back.objects);
  }
}

TEST(StlFile, WhatItCannotCarryIsCounted) {
  Model model;
  model.objects.push_back({.name = " a\nb ",
                           .mesh = {.points = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0.1, 0.2, 0.5, 9, 9, 9.1},
                                    .counts = {4, 3, 2, 4},
                                    .indices = {0, 1, 2, 3, 0, 1, 4, 0, 1, 0, 1, 0, 1}},
                           .colors = std::vector<float>(24, 1)});
  model.objects.push_back({.mesh = {.points = {0, 0, 0, 4, 0, 0, 4, 4, 0, 0, 4, 0, 1, 1, 0, 2, 1, 0, 1, 2, 0},
                                    .counts = {4, 3},
                                    .indices = {0, 1, 2, 3, 4, 5, 6},
                                    .holes = {0, 1, kNone}}});
  std::vector<Note> notes;
  const Model back = parse(written(model, Format::stl, false, &notes));
  EXPECT_EQ(back.objects[0].mesh.counts, std::vector<std::uint32_t>(10, 3));
  EXPECT_EQ(
      textOf(notes),
      "6 colors of vertices, 2 coordinates that are rounded to floats, 1 faces that cannot be cut into triangles: no "
      "area, 1 faces with fewer than three corners, 2 faces with more than three corners, cut into triangles, 1 "
      "holes, kept open by cutting their faces into triangles, 2 limits between objects, 1 names of objects, 1 "
      "vertices that no triangle uses");
  const Model text = parse(written(model, Format::stl, true, &notes));
  EXPECT_EQ(text.objects[0].name, "a b");
  EXPECT_EQ(text.objects[1].mesh.counts.size(), 7U);
  EXPECT_NE(textOf(notes).find("1 names of objects, changed to fit into a line"), std::string::npos);
  model.objects[0].mesh.points[0] = 1e39;
  EXPECT_THROW(written(model, Format::stl), WriteError);
  EXPECT_NO_THROW(written(model, Format::stl, true));
}

}  // namespace
}  // namespace facetbox
