#include <tools/ObjFile.h>

#include <bit>
#include <cmath>
#include <random>

#include <tools/ObjectMeshes.h>
#include "ToolTestSupport.h"

namespace tool {
namespace {

using Indices = std::vector<std::uint32_t>;

constexpr const char* kThreeVertices = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";

Model parse(const std::string& text) { return parseObj(text, "t.obj"); }

// The geometry bit for bit, the rest as the file says it.
void expectSameModel(const Model& a, const Model& b) {
  EXPECT_EQ(a.mVertices, b.mVertices);
  EXPECT_EQ(a.mTexCoords, b.mTexCoords);
  EXPECT_EQ(a.mIndices, b.mIndices);
  EXPECT_EQ(a.mTexIndices, b.mTexIndices);
  EXPECT_EQ(a.mHoles, b.mHoles);
  EXPECT_EQ(formatObj(a), formatObj(b));
}

Model throughMeshes(const Model& model) {
  Model result = emptyLike(model);
  const ObjectMeshes objects(model, "m");
  for (std::size_t i = 0; i < objects.size(); ++i) objects.append(i, objects.make(i), result);
  return result;
}

TEST(ObjFile, readsEveryFormOfCornerAndLine) {
  const Model model = parse(
      "\xEF\xBB\xBF# by hand\r\nmtllib a b.mtl\r\nv 0 0 0 0.5 0.5 0.5\r\nv +1 0 0 1\r\nv 1e0 1. .0 \r\n"
      "vt 0 0 0\r\nvt 1\r\nvn 0 0 nan\r\n\tf   1/1/1 \\\r\n 2/2 \\\n -1/-2/-1 # done\r\n f -3 -2 4\nv 5 5 5\nf 1//1 "
      "2//1 3//1");
  EXPECT_THAT(model.mVertices, ElementsAre(0, 0, 0, 1, 0, 0, 1, 1, 0, 5, 5, 5));
  EXPECT_THAT(model.mTexCoords, ElementsAre(0, 0, 1, 0));
  EXPECT_THAT(model.mCounts, ElementsAre(3, 3, 3));
  EXPECT_THAT(model.mIndices, ElementsAre(0, 1, 2, 0, 1, 3, 0, 1, 2));
  const auto none = kNoTexCoord;
  EXPECT_THAT(model.mTexIndices, ElementsAre(0, 1, 0, none, none, none, none, none, none));
  EXPECT_THAT(model.mLibraries, ElementsAre("a b.mtl"));
}

TEST(ObjFile, tellsFileAndLineOfEveryMistake) {
  const std::string v = kThreeVertices;
  const std::pair<std::string, const char*> cases[] = {
      {v + "f 1 2 4\n", "t.obj:4: vertex index 4 is out of range: the file has 3"},
      {v + "f 1 2 99999999999999999999\n", "t.obj:4: vertex index '99999999999999999999' is out of range"},
      {v + "f 1/1 2/1 3/1\n", "t.obj:4: texture coordinate index 1 is out of range: the file has 0"},
      {v + "\n\nf \\\n1 2 \\\n x\n", "t.obj:8: 'x' is not a vertex index"},
      {v + "f 1/2/3/4 2 3\n", "t.obj:4: '/4' does not belong after a corner"},
      {v + "f\n", "t.obj:4: a face has no vertices"},
      {"v 0 0\nf 1 1 1\n", "t.obj:1: a vertex has too few numbers"},
      {v + "f 1 2 3\nv 0 nan 0\n", "t.obj:5: 'nan' in a vertex is not a finite number"},
      {"v 0 0 1e309\n", "t.obj:1: '1e309' in a vertex is not a finite number"},
      {v + "f 1 2 3\n# facetbox:holes 1 2\n", "t.obj:5: face number 2 is out of range: the file has 1 faces"},
      {v + "f 1 2 3\n# facetbox:holes 1 1\n", "t.obj:5: face 1 cannot be a hole of itself"},
      {v + "f 1 2 3\no b\nf 1 2 3\n# facetbox:holes 1 2\n", "t.obj:7: faces 1 and 2 belong to different objects"},
      {v, "t.obj: has no faces"},
  };
  for (const auto& [text, message] : cases)
    EXPECT_THAT([&input = text] { parse(input); }, testing::ThrowsMessage<InputError>(StartsWith(message))) << text;
}

// A model whose objects share no vertices and use all of them, as one that came from meshes.
Model randomModel(unsigned seed) {
  std::mt19937 random(seed);
  const auto below = [&](unsigned n) { return static_cast<std::uint32_t>(random() % n); };
  const auto anyNumber = [&] {
    double value = NAN;
    while (!std::isfinite(value)) value = std::bit_cast<double>(std::uint64_t{random()} << 32 | random());
    return value;
  };
  Model model;
  model.mMaterials = {"Z\xFCrich stone", "\xE7\x93\xA6", "plain"};
  model.mGroups = {"left", "right wing"};
  model.mLibraries = {"some.mtl"};
  for (unsigned object = 0, objects = 1 + below(3); object < objects; ++object) {
    const auto firstFace = static_cast<std::uint32_t>(model.faceCount());
    model.mObjects.push_back({std::to_string(object), firstFace, static_cast<std::uint32_t>(model.vertexCount()),
                              static_cast<std::uint32_t>(model.mTexCoords.size() / 2)});
    Indices holes;
    for (unsigned face = 0, faces = 1 + below(6); face < faces; ++face) {
      const bool textured = below(2) == 0;
      const std::uint32_t corners = below(20) == 0 ? 300 : 1 + below(7);
      model.startRun({static_cast<int>(below(4)) - 1, static_cast<int>(below(3)) - 1});
      if (textured) model.mTexIndices.resize(model.mIndices.size(), kNoTexCoord);
      for (std::uint32_t corner = 0; corner < corners; ++corner) {
        model.mIndices.push_back(static_cast<std::uint32_t>(model.vertexCount()));
        model.mVertices.insert(model.mVertices.end(), {anyNumber(), anyNumber(), anyNumber()});
        if (!textured) continue;
        model.mTexIndices.push_back(static_cast<std::uint32_t>(model.mTexCoords.size() / 2));
        model.mTexCoords.insert(model.mTexCoords.end(), {anyNumber(), anyNumber()});
      }
      if (!model.mTexIndices.empty()) model.mTexIndices.resize(model.mIndices.size(), kNoTexCoord);
      model.mCounts.push_back(corners);
      if (face > 0 && below(3) == 0) holes.push_back(firstFace + face);
    }
    if (holes.empty()) continue;
    model.mHoles.push_back(firstFace);
    model.mHoles.insert(model.mHoles.end(), holes.begin(), holes.end());
    model.mHoles.push_back(kEndOfGroup);
  }
  return model;
}

TEST(ObjFile, anyModelSurvivesMeshesAndFileBitForBit) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    const Model model = randomModel(seed);
    expectSameModel(throughMeshes(model), model);
    expectSameModel(parse(formatObj(model)), model);
    if (HasFailure()) break;
  }
}

TEST(ObjFile, damagedTextGivesAModelOrAMessage) {
  std::string clean = "o a\nusemtl m\n" + std::string(kThreeVertices) + "vt 0.5 1e-3\nvt 1 1\n" +
                      "f 1/1 2/2 \\\n-1/-1\nf 1/1/1 2//1 3\n# facetbox:holes 1 2\n";
  constexpr std::string_view kBytes = "0123456789-+/\\#.\n\r \tfvtneo:\xFF\xC3";
  int accepted = 0;
  for (unsigned seed = 0; seed < 3000; ++seed) {
    std::mt19937 random(seed);
    std::string text = clean;
    for (unsigned edits = 1 + random() % 4; edits > 0; --edits) {
      const std::size_t at = random() % text.size();
      if (random() % 4 == 0)
        text.erase(at, random() % 8);
      else
        text[at] = kBytes[random() % kBytes.size()];
      if (text.empty()) text.push_back('f');
    }
    try {
      checkModel(parse(text), "t.obj");
      ++accepted;
    } catch (const InputError& error) {
      EXPECT_THAT(error.what(), StartsWith("t.obj:")) << seed;
      EXPECT_THAT(error.what(), Not(HasSubstr("damaged"))) << seed;
    }
  }
  EXPECT_GT(accepted, 100);
}

}  // namespace
}  // namespace tool
