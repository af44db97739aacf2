#include <gtest/gtest.h>

#include "IoTestSupport.h"

namespace facetbox {
namespace {

Model parse(const std::string& bytes) { return parseModel(bytes, Format::ply, "t.ply"); }

enum Pairs { kNoPairs, kPairPerVertex, kPairPerCorner };

Object randomObject(std::mt19937& random, Pairs pairs, bool hasColors) {
  Object object;
  PolyMesh& mesh = object.mesh;
  const std::uint32_t vertices = 1 + random() % 700, faces = 1 + random() % 700;
  const bool isFloat = random() % 2, isByte = random() % 2, isLarge = random() % 8 == 0;
  for (std::uint32_t i = 0; i < 3 * vertices; ++i) {
    const double value = isFloat ? static_cast<double>(static_cast<float>(random() / 1e3)) : randomDouble(random);
    mesh.points.push_back(random() % 9 ? value : -0.0);
  }
  for (std::uint32_t i = 0; i < 4 * vertices && hasColors; ++i)
    object.colors.push_back(static_cast<float>(isByte ? random() % 256 / 255.0 : random() / 4294967296.0));
  for (std::uint32_t i = 0; i < faces; ++i) {
    mesh.counts.push_back(isLarge && i == 3 ? 260 : 1 + random() % 6);
    for (std::uint32_t c = 0; c < mesh.counts.back(); ++c) mesh.indices.push_back(random() % vertices);
  }
  if (pairs == kNoPairs) return object;
  if (pairs == kPairPerVertex) mesh.texIndices = mesh.indices;
  for (const std::uint32_t count : mesh.counts)
    for (std::uint32_t c = 0; c < count && pairs == kPairPerCorner; ++c)
      mesh.texIndices.push_back(count % 2 ? kNone : random() % vertices);
  for (std::uint32_t i = 0; i < 2 * vertices; ++i) mesh.texCoords.push_back(randomDouble(random));
  return object;
}

// The texture coordinates of the corners, 0 where there are none.
std::vector<double> pairsOf(const PolyMesh& mesh) {
  std::vector<double> pairs(2 * mesh.indices.size());
  for (std::size_t c = 0; c < mesh.texIndices.size(); ++c)
    for (std::size_t i = 0; i < 2 && mesh.texIndices[c] != kNone; ++i)
      pairs[2 * c + i] = mesh.texCoords[2 * std::size_t{mesh.texIndices[c]} + i];
  return pairs;
}

TEST(PlyWriter, WhatIsWrittenIsReadBackBitForBit) {
  std::mt19937 random(22);
  for (int round = 0; round < 120; ++round) {
    const auto pairs = static_cast<Pairs>(round % 3);
    Model model;
    model.objects.push_back(randomObject(random, pairs, random() % 2));
    std::vector<Note> notes;
    const bool isText = round % 2;
    const std::string bytes = written(model, Format::ply, isText, &notes);
    EXPECT_EQ(textOf(notes), "");
    const Model back = parse(bytes);
    EXPECT_EQ(textOf(back.notes), "");
    ASSERT_EQ(back.objects.size(), 1U);
    const PolyMesh &a = model.objects[0].mesh, &b = back.objects[0].mesh;
    ASSERT_EQ(bitsOf(a.points), bitsOf(b.points));
    ASSERT_EQ(bitsOf(model.objects[0].colors), bitsOf(back.objects[0].colors));
    ASSERT_EQ(a.counts, b.counts);
    ASSERT_EQ(a.indices, b.indices);
    ASSERT_EQ(bitsOf(pairsOf(a)), bitsOf(pairsOf(b)));
    ASSERT_TRUE(pairs != kPairPerVertex || bitsOf(a.texCoords) == bitsOf(b.texCoords));
    EXPECT_EQ(written(back, Format::ply, isText), bytes);
  }
}

TEST(PlyWriter, WritesTheSmallestTypesThatHoldAllNumbers) {
  Model model;
  model.objects.push_back(
      {.mesh = {.points = {0.5, 0, 0}, .counts = {3}, .indices = {0, 0, 0}}, .colors = {1, 0, 51 / 255.0F, 1}});
  const std::string head = "element vertex 1\nproperty float x\nproperty float y\nproperty float z\n";
  const std::string bytes = written(model, Format::ply);
  EXPECT_NE(bytes.find(head + "property uchar red\nproperty uchar green\nproperty uchar blue\nelement face 1\n"
                              "property list uchar int vertex_indices\nend_header\n"),
            std::string::npos);
  EXPECT_EQ(bytes.size() - bytes.find("end_header\n"), 11U + 12 + 3 + 13);
  model.objects[0].mesh.points[0] = 0.1;
  model.objects[0].colors[3] = 0.3F;
  EXPECT_EQ(written(model, Format::ply, true),
            "ply\nformat ascii 1.0\nelement vertex 1\nproperty double x\nproperty double y\nproperty double z\n"
            "property float red\nproperty float green\nproperty float blue\nproperty float alpha\nelement face 1\n"
            "property list uchar int vertex_indices\nend_header\n0.1 0 0 1 0 0.2 0.3 \n3 0 0 0 \n");
}

TEST(PlyWriter, PairsOfCornersThatAgreeBecomePairsOfVertices) {
  const std::string head =
      "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\nelement face 2\n"
      "property list uchar int vertex_indices\nproperty list uchar float texcoord\nend_header\n0 0 0\n1 0 0\n0 1 0\n";
  const Model agreeing = parse(head + "3 2 1 0 6 5 6 3 4 1 2\n1 2 2 5 6\n");
  const std::string bytes = written(agreeing, Format::ply, true);
  EXPECT_NE(bytes.find("property double s\nproperty double t\nelement face 2\n"), std::string::npos);
  const PolyMesh back = parse(bytes).objects[0].mesh;
  EXPECT_EQ(back.texCoords, (std::vector<double>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(back.texIndices, (std::vector<std::uint32_t>{2, 1, 0, 2}));
  for (const char* faces : {"3 2 1 0 6 5 6 3 4 1 2\n1 2 2 5 7\n", "3 2 1 0 6 5 6 3 4 1 2\n1 2 0\n"})
    EXPECT_NE(written(parse(head + faces), Format::ply, true).find("texcoord"), std::string::npos) << faces;
}

TEST(PlyWriter, ObjectsBecomeOneAndHolesStayOpen) {
  Model model;
  model.objects.push_back({.name = "a",
                           .mesh = {.points = {0, 0, 0, 4, 0, 0, 4, 4, 0, 0, 4, 0, 1, 1, 0, 2, 1, 0, 1, 2, 0},
                                    .counts = {4, 3},
                                    .indices = {0, 1, 2, 3, 4, 5, 6},
                                    .labels = {0, 0},
                                    .holes = {0, 1, kNone}}});
  model.objects.push_back({.mesh = {.points = {0, 0, 1}, .counts = {0, 1}, .indices = {0}}, .colors = {2, 0, 0, 1}});
  model.materials.push_back({.name = "brick"});
  model.marks.push_back({.material = 0});
  std::vector<Note> notes;
  const Model back = parse(written(model, Format::ply, false, &notes));
  EXPECT_EQ(textOf(notes),
            "1 colors of vertices: not all have one from 0 to 1, 1 faces without corners, 1 holes, kept open by "
            "cutting their faces into "
            "triangles, 2 limits between objects, 1 materials, 1 names of objects");
  EXPECT_EQ(back.objects[0].mesh.counts, (std::vector<std::uint32_t>{3, 3, 3, 3, 3, 3, 3, 1}));
  EXPECT_EQ(back.objects[0].mesh.indices.back(), 7U);
}

std::string colored(const std::string& type, const std::string& row) {
  return "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\nproperty float z\nproperty " +
         type + " red\nproperty " + type + " green\nproperty " + type +
         " blue\nelement face 1\nproperty list uchar int vertex_index\nend_header\n0 0 0 " + row + "\n3 0 0 0\n";
}

TEST(PlyReader, ReadsColorsOfVertices) {
  EXPECT_EQ(parse(colored("uchar", "255 51 0")).objects[0].colors, (std::vector<float>{1, 0.2F, 0, 1}));
  EXPECT_EQ(parse(colored("ushort", "65535 13107 0")).objects[0].colors, (std::vector<float>{1, 0.2F, 0, 1}));
  EXPECT_EQ(parse(colored("float", "1 .2 0")).objects[0].colors, (std::vector<float>{1, 0.2F, 0, 1}));
  const Model unclear = parse(colored("float", "255 51 0"));
  EXPECT_TRUE(unclear.objects[0].colors.empty());
  EXPECT_EQ(textOf(unclear.notes), "1 vertex colors: not all from 0 to 1");
  EXPECT_EQ(textOf(parse(colored("int", "255 51 0")).notes),
            "1 vertex property 'blue', 1 vertex property 'green', 1 vertex property 'red'");
}

}  // namespace
}  // namespace facetbox
