#include <bit>

#include <gtest/gtest.h>

#include "IoTestSupport.h"

namespace facetbox {
namespace {

const std::string kRows = "0 0 0\n1 0 0\n1 1 0\n0 1 0\n";

Model parse(const std::string& text) { return parseModel(text, Format::off, "t.off"); }

TEST(OffFile, ReadsHeadersCommentsAndBlanksAsTheyAreFound) {
  const std::string faces = "3 0 1 2\n4 0 1 2 3\n";
  for (const std::string& text :
       {"OFF\n4 2 0\n" + kRows + faces, "4 2 0\n" + kRows + faces, "OFF 4 2 0\n" + kRows + faces,
        "OFF4 2 0\n" + kRows + faces,
        "\xEF\xBB\xBF# a\n\nOFF # b\r\n# c\r\n 4\t2 # no edges\n\n" + kRows + "#\n" + faces + "# d",
        "nOFF 3\n4 2 0\n" + kRows + faces, "4OFF\n4 2 0\n0 0 0 1\n2 0 0 2\n4 4 0 4\n0 1 0 1\n" + faces}) {
    const Model model = parse(text);
    ASSERT_EQ(model.objects.size(), 1U);
    EXPECT_EQ(
        model.objects[0].mesh,
        (PolyMesh{.points = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}, .counts = {3, 4}, .indices = {0, 1, 2, 0, 1, 2, 3}}))
        << text;
    EXPECT_EQ(textOf(model.notes),
              text[0] == '4' && text[1] == 'O' ? "2 weights of vertices, after dividing by them" : "");
  }
}

TEST(OffFile, ReadsNormalsColorsAndTexCoordsOfVertices) {
  const Model model =
      parse("STCNOFF\n3 1 0\n0 0 0 0 0 1 255 51 0 .5 .25\n1 0 0 0 0 1 1 0 1 0 0\n0 1 0 0 0 1 0 0 0 -1 7\n3 2 0 1\n");
  const Object& object = model.objects[0];
  EXPECT_EQ(object.colors, (std::vector<float>{1, 0.2F, 0, 1, 1 / 255.0F, 0, 1 / 255.0F, 1, 0, 0, 0, 1}));
  EXPECT_EQ(object.mesh.texCoords, (std::vector<double>{.5, .25, 0, 0, -1, 7}));
  EXPECT_EQ(object.mesh.texIndices, (std::vector<std::uint32_t>{2, 0, 1}));
  EXPECT_EQ(textOf(model.notes), "3 vertex normals");
  EXPECT_EQ(parse("COFF\n1 1 0\n0 0 0 1 0 1 1\n3 0 0 0\n").objects[0].colors, (std::vector<float>{1, 0, 1, 1}));
}

// Ones are 1 / 255 beside larger numbers only, and a decimal point tells as well.
TEST(OffFile, ColorsOfFacesAreMaterials) {
  const Model model = parse("4 7 0\n" + kRows +
                            "3 0 1 2 1 0 0\n3 0 1 2\n3 0 1 2 0.0 0 1\n3 0 1 2 255 0 51 102\n3 0 1 2 1.0 0 0\n"
                            "3 0 1 2 9\n3 0 1 2 0 0 1.\n");
  EXPECT_EQ(faceColor(model, 0, 0), (std::array<double, 4>{1 / 255.0, 0, 0, 1}));
  EXPECT_EQ(faceColor(model, 0, 1)[0], -1);
  EXPECT_EQ(faceColor(model, 0, 2), (std::array<double, 4>{0, 0, 1, 1}));
  EXPECT_EQ(faceColor(model, 0, 3), (std::array<double, 4>{1, 0, 0.2, 0.4}));
  EXPECT_EQ(faceColor(model, 0, 4), (std::array<double, 4>{1, 0, 0, 1}));
  EXPECT_EQ(faceColor(model, 0, 5)[0], -1);
  EXPECT_EQ(model.materials.size(), 4U);
  EXPECT_EQ(textOf(model.notes), "1 colors of faces by number");
  const Model open = parse("4 3 0\n" + kRows + "3 0 1 2 1 0 0\n3 0 1 2 1.0 0 0\n3 0 1 2 1 0 0 1\n");
  EXPECT_EQ(open.materials.size(), 1U);  // three ways to say it
  EXPECT_EQ(faceColor(open, 0, 2), (std::array<double, 4>{1, 0, 0, 1}));
}

std::string bytesOf(std::initializer_list<std::uint32_t> values) {
  std::string bytes;
  for (const std::uint32_t value : values)
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xFF);
  return bytes;
}

TEST(OffFile, ReadsBytes) {
  const std::uint32_t one = std::bit_cast<std::uint32_t>(1.0F), half = std::bit_cast<std::uint32_t>(0.5F);
  const std::string header = "STCOFF BINARY\n";
  const std::string vertex = bytesOf({one, half, 0, one, half, 0, one, half, 0});
  const std::string good = header + bytesOf({1, 2, 0}) + vertex + bytesOf({3, 0, 0, 0, 3, one, 0, half, 1, 0, 0});
  const Model model = parse(good);
  EXPECT_EQ(model.objects[0].mesh.points, (std::vector<double>{1, .5, 0}));
  EXPECT_EQ(model.objects[0].mesh.counts, (std::vector<std::uint32_t>{3, 1}));
  EXPECT_EQ(model.objects[0].colors, (std::vector<float>{1, .5, 0, 1}));
  EXPECT_EQ(model.objects[0].mesh.texCoords, (std::vector<double>{.5, 0}));
  EXPECT_EQ(faceColor(model, 0, 0), (std::array<double, 4>{1, 0, .5, 1}));
  EXPECT_EQ(readErrorOf(good + '\0', Format::off), "t: byte 106: 1 more bytes come after all 2 faces");
  EXPECT_EQ(readErrorOf(header + bytesOf({1, 1, 0}) + vertex + bytesOf({3, 0, 1, 0, 0}), Format::off),
            "t: byte 70: face 0 refers to vertex 1, but there are only 1, counted from 0");
}

TEST(OffFile, SaysWhatIsWrongAndWhere) {
  const std::string head = "OFF\n4 1 0\n" + kRows;
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"OOF\n", "t:1: 'OOF' is no header; OFF is expected, with ST, C, N, 4 or n before it"},
      {"STSTOFF\n", "t:1: 'STSTOFF' is no header; OFF is expected, with ST, C, N, 4 or n before it"},
      {"nOFF 4\n1 1 0\n", "t:1: vertices have 4 dimensions; 3 are expected"},
      {"OFF\n4 x\n", "t:2: 'x' is not an integer from 0 on; the number of faces is expected"},
      {"OFF\n2147483648 4294967296 0\n0 0 0\n",
       "t:2: 2147483648 vertices and 4294967296 faces are declared, but only 7 bytes are left for them; the file is "
       "cut "
       "short"},
      {"OFF\n4 1 0\n0 0 0 1\n" + kRows, "t:3: '1' is more than is expected on this line"},
      {"OFF\n4 1 0\n0 0\n0\n" + kRows, "t:3: the line ends where a coordinate is expected"},
      {"OFF\n4 1 0\n0 0 nan\n" + kRows, "t:3: 'nan' is not a finite number; a coordinate is expected"},
      {"OFF\n4 1 0\n0 0 1e999\n" + kRows, "t:3: '1e999' is not a finite number; a coordinate is expected"},
      {"4OFF\n4 1 0\n0 0 1 0\n0 0 0 1\n" + kRows, "t:3: divided by 0, this vertex is at no finite place"},
      {"COFF\n1 1 0\n0 0 0 1 1\n3 0 0 0\n",
       "t:3: the line has 2 numbers behind the position and the normal; 3 or 4 are expected"},
      {"COFF\n2 1 0\n0 0 0 1 1 1\n0 0 0 1 1 1 1\n3 0 0 0\n",
       "t:4: this color has 4 components, but those before have 3"},
      {head + "3 0 1 2 -1 0 0\n", "t:7: -1 is no component of a color; from 0 to 1 or to 255 is expected"},
      {head + "3 0 1 2 0 0\n",
       "t:7: 2 numbers come after the corners of this face; 3 or 4 are a color, and 1 is its number"},
      {head + "3 0 1 2 0 0 0 0 0\n", "t:7: '0' is more than is expected on this line"},
      {head + "0\n", "t:7: face 0 has no vertices"},
      {head + "3 0 1 4\n", "t:7: face 0 refers to vertex 4, but there are only 4, counted from 0"},
      {head + "3 0 1 -1\n", "t:7: '-1' is not an integer from 0 on; a vertex is expected"},
      {"OFF\n4 2 0\n" + kRows + "3 0 1 2\n", "t:8: the file ends where face 2 of 2 is expected: it is cut short"},
      {head + "3 0 1 2\n3 0 1 2\n", "t:8: '3' comes after all 1 faces"},
      {"OFF\n1 0 0\n0 0 0\n", "t: has no faces, so there is nothing to work on"}};
  for (const auto& [text, error] : cases) EXPECT_EQ(readErrorOf(text, Format::off), error) << text;
}

Model randomModel(std::mt19937& random) {
  Model model;
  Object& object = model.objects.emplace_back();
  PolyMesh& mesh = object.mesh;
  const std::uint32_t vertices = 1 + random() % 20, faces = 1 + random() % 20;
  const bool is255 = random() % 2 == 0;
  const auto component = [&] {
    return is255 ? static_cast<double>(random() % 256) / 255 : static_cast<double>(random()) / 4294967296.0;
  };
  for (std::uint32_t i = 0; i < 3 * vertices; ++i) mesh.points.push_back(randomDouble(random));
  if (random() % 2)
    for (std::uint32_t i = 0; i < 4 * vertices; ++i) object.colors.push_back(static_cast<float>(component()));
  for (std::uint32_t i = 0; i < faces; ++i) {
    mesh.counts.push_back(1 + random() % 6);
    for (std::uint32_t c = 0; c < mesh.counts.back(); ++c) mesh.indices.push_back(random() % vertices);
  }
  if (random() % 2) {
    for (std::uint32_t i = 0; i < 2 * vertices; ++i) mesh.texCoords.push_back(randomDouble(random));
    mesh.texIndices = mesh.indices;
  }
  if (random() % 2) {
    model.marks.emplace_back();
    for (std::uint32_t i = 0; i < 3; ++i) {
      model.marks.push_back({.material = i});
      model.materials.push_back(
          {.color = std::array{component(), component(), component(), random() % 2 ? component() : 1.0}});
    }
    for (std::uint32_t i = 0; i < faces; ++i) mesh.labels.push_back(random() % 4);
  }
  return model;
}

TEST(OffFile, WhatIsWrittenIsReadBackBitForBit) {
  std::mt19937 random(20);
  for (int round = 0; round < 300; ++round) {
    const Model model = randomModel(random);
    std::vector<Note> notes;
    const std::string bytes = written(model, Format::off, false, &notes);
    EXPECT_EQ(textOf(notes), "");
    const Model back = parse(bytes);
    ASSERT_EQ(back.objects.size(), 1U);
    const PolyMesh &a = model.objects[0].mesh, &b = back.objects[0].mesh;
    ASSERT_EQ(bitsOf(a.points), bitsOf(b.points)) << bytes;
    ASSERT_EQ(bitsOf(a.texCoords), bitsOf(b.texCoords)) << bytes;
    ASSERT_EQ(bitsOf(model.objects[0].colors), bitsOf(back.objects[0].colors)) << bytes;
    ASSERT_EQ(a.counts, b.counts);
    ASSERT_EQ(a.indices, b.indices);
    ASSERT_EQ(a.texIndices, b.texIndices);
    for (std::size_t face = 0; face < a.counts.size(); ++face)
      ASSERT_EQ(faceColor(model, 0, face), faceColor(back, 0, face)) << bytes;
    EXPECT_EQ(written(back, Format::off), bytes);
  }
}

TEST(OffFile, WhatItCannotCarryIsCounted) {
  Model model;
  PolyMesh& square = model.objects.emplace_back().mesh;
  square = {.points = {0, 0, 0, 4, 0, 0, 4, 4, 0, 0, 4, 0, 1, 1, 0, 2, 1, 0, 1, 2, 0},
            .counts = {4, 3},
            .indices = {0, 1, 2, 3, 4, 5, 6},
            .texCoords = {0, 0, 1, 1},
            .texIndices = {0, 1, 0, 1, 0, 0, 0},
            .labels = {0, 0},
            .holes = {0, 1, kNone}};
  model.objects.push_back({.name = "b", .mesh = {.points = {0, 0, 9}}, .colors = {1, 1, 1, 1}});
  model.materials.push_back({.name = "brick"});
  model.groups = {"g", "h"};
  model.marks.push_back({.material = 0, .group = 1});
  std::vector<Note> notes;
  const Model back = parse(written(model, Format::off, false, &notes));
  EXPECT_EQ(textOf(notes),
            "1 colors of vertices: not all have one from 0 to 1, 2 groups of faces, 1 holes, kept open by cutting "
            "their faces into "
            "triangles, 2 limits between objects, 1 materials, but for their colors, 1 names of objects, 2 texture "
            "coordinates: not every vertex has one pair");
  EXPECT_EQ(back.objects[0].mesh.points.size(), 24U);
  EXPECT_EQ(back.objects[0].mesh.counts, std::vector<std::uint32_t>(7, 3));
}

}  // namespace
}  // namespace facetbox
