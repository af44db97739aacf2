#include <algorithm>
#include <array>
#include <bit>
#include <clocale>
#include <cmath>
#include <random>

#include <fmt/format.h>

#include <facetbox/Cancelled.h>
#include <tests/tools/ToolTestSupport.h>

namespace tool {
namespace {

using facetbox::Object;
using facetbox::PolyMesh;

constexpr const char* kThreeVertices = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";

TEST(ObjFile, readsEveryFormOfCornerAndLine) {
  const Model model = parseObj(
      "\xEF\xBB\xBF# by hand\r\nmtllib a b.mtl\r\nv 0 0 0 0.5 0.25 1\r\nv +1 0 0 1\r\nv 1e0 1. .0 \r\n"
      "vt 0 0 0.5\r\nvt 1\r\nvn 0 0 nan\r\n\tf   1/1/1 \\\r\n 2/2 \\\n -1/-2/-1 # done\r\n f -3 -2 4\nv 5 5 5\nf 1//1 "
      "2//1 3//1\n");
  const Object& object = model.objects.at(0);
  EXPECT_THAT(object.mesh.points, ElementsAre(0, 0, 0, 1, 0, 0, 1, 1, 0, 5, 5, 5));
  EXPECT_THAT(object.mesh.texCoords, ElementsAre(0, 0, 1, 0));
  EXPECT_THAT(object.mesh.counts, ElementsAre(3, 3, 3));
  EXPECT_THAT(object.mesh.indices, ElementsAre(0, 1, 2, 0, 1, 3, 0, 1, 2));
  EXPECT_THAT(object.mesh.texIndices, ElementsAre(0, 1, 0, kNone, kNone, kNone, kNone, kNone, kNone));
  EXPECT_THAT(object.colors, ElementsAre(0.5, 0.25, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
  std::vector<std::string> notes;
  for (const facetbox::Note& note : model.notes) notes.push_back(fmt::format("{} {}", note.count, note.what));
  EXPECT_THAT(notes,
              ElementsAre("1 material library 'a' (only the model itself was handed in)",
                          "1 material library 'b.mtl' (only the model itself was handed in)", "1 normals",
                          "1 third texture coordinates", "3 vertices without a color in a file with colors (now white)",
                          "1 weights of vertices"));
}

TEST(ObjFile, tellsFileAndLineOfEveryMistake) {
  const std::string v = kThreeVertices;
  const std::pair<std::string, const char*> cases[] = {
      {v + "f 1 2 4\n", "t.obj:4: vertex index 4 is out of range: the file has 3"},
      {v + "f 1 2 99999999999999999999\n", "t.obj:4: vertex index '99999999999999999999' is out of range"},
      {v + "f 1/1 2/1 3/1\n", "t.obj:4: texture coordinate index 1 is out of range: the file has 0"},
      {v + "\n\nf \\\n1 2 \\\n x\n", "t.obj:8: 'x' is not a vertex index"},
      {v + "vn 0 0 1\nf 1//1 2//1 3//2\n", "t.obj:5: normal index 2 is out of range: the file has 1"},
      {v + "f 1 2 3\nf 1//-1 2 3\n", "t.obj:5: normal index -1 goes back beyond the first"},
      {v + "f 1 2 3\nf 1//0 2 3\n", "t.obj:5: normal index 0 is not valid"},
      {v + "f 9 9 9\nf 1 2 12\nf 11 2 3\n", "t.obj:5: vertex index 12 is out of range: the file has 3"},
      {"v 0 0 0 1 1 1 1 junk 9\n", "t.obj:1: 'junk' is more than a vertex has"},
      {"vt 0 0 junk\n", "t.obj:1: 'junk' is not a number"},
      {"vt 0 0 0 0\n", "t.obj:1: '0' is more than a texture coordinate has"},
      {v + "f 1/2/3/4 2 3\n", "t.obj:4: '/4' does not belong after a corner"},
      {v + "f\n", "t.obj:4: a face has no vertices"},
      {"v 0 0\nf 1 1 1\n", "t.obj:1: a vertex has too few numbers"},
      {v + "f 1 2 3\nv 0 nan 0\n", "t.obj:5: 'nan' in a vertex is not a finite number"},
      {"v 0 0 1e309\n", "t.obj:1: '1e309' in a vertex is not a finite number"},
      {v + "f 1 2 3\n# facetbox:holes 1 2\n", "t.obj:5: face number 2 is out of range: the file has 1 faces"},
      {v + "f 1 2 3\n# facetbox:holes 1 1\n", "t.obj:5: face 1 cannot be a hole of itself"},
      {v + "f 1 2 3\no b\nf 1 2 3\n# facetbox:holes 1 2\n", "t.obj:7: faces 1 and 2 belong to different objects"},
      {v + "f 1 2 3\nf 1 2 3\nf 1 2 3\n# facetbox:holes 1 2\n# facetbox:holes 3 2\n",
       "t.obj:8: face 2 is a hole of face 1 and of face 3"},
      {v + "f 1 2 3\nf 1 2 3\nf 1 2 3\n# facetbox:holes 1 2\n# facetbox:holes 2 3\n",
       "t.obj:8: face 2 is a hole of face 1 and has holes itself"},
      {v + "f 1 2 3 1\nf 1 2 3", "t.obj:5: the file ends within this face, which has fewer corners than all before"},
      {v, "t.obj: has no faces"},
  };
  for (const auto& [text, message] : cases)
    EXPECT_THAT([&input = text] { parseObj(input); }, testing::ThrowsMessage<facetbox::ReadError>(StartsWith(message)))
        << text;
}

// Objects share vertices where `isShared`: those with the same number in the file.
Model randomModel(unsigned seed, bool isShared) {
  std::mt19937 random(seed);
  const auto below = [&](unsigned n) { return static_cast<std::uint32_t>(random() % n); };
  const auto anyNumber = [&] {
    double value = NAN;
    while (!std::isfinite(value)) value = std::bit_cast<double>(std::uint64_t{random()} << 32 | random());
    return value;
  };
  Model model;
  model.materials = {{.name = "Z\xFCrich stone"},
                     {.name = "\xE7\x93\xA6", .color = {{0.1, 0.2, 1.0 / 3, 0.5}}},
                     {.name = "plain", .texture = "a b.png", .definition = "Ns 10\nmap_Kd -s 2 2 a b.png\n"}};
  model.groups = {"left", "right wing"};
  model.format = Format::obj;
  const bool isColored = below(2) == 0;
  std::vector<double> pool(90);
  for (double& value : pool) value = anyNumber();
  std::uint32_t vertexCount = 0;
  for (unsigned number = 0, objects = 1 + below(3) + (isShared ? 1 : 0); number < objects; ++number) {
    Object object{.name = std::to_string(number)};
    PolyMesh& mesh = object.mesh;
    for (std::uint32_t vertex = 0; vertex < 30; ++vertex) {
      if (isShared && below(2) == 0) continue;
      const auto at = pool.begin() + vertex * 3;
      mesh.points.insert(mesh.points.end(), at, at + 3);
      if (isColored) object.colors.insert(object.colors.end(), {0.25F, 1.0F / 3, static_cast<float>(vertex) / 30, 1});
      object.fileVertices.push_back(isShared ? vertex : vertexCount++);
    }
    if (!isShared) object.fileVertices.clear();
    const auto vertices = static_cast<std::uint32_t>(mesh.points.size() / 3);
    std::vector<std::uint32_t> holes;
    for (std::uint32_t face = 0, faces = 1 + below(6); face < faces; ++face) {
      const std::uint32_t corners = face == 0 ? vertices : below(20) == 0 ? 300 : 1 + below(7);
      const bool isTextured = below(2) == 0;
      for (std::uint32_t corner = 0; corner < corners; ++corner) {
        mesh.indices.push_back(face == 0 ? corner : below(vertices));  // the first face uses all
        mesh.texIndices.push_back(isTextured ? static_cast<std::uint32_t>(mesh.texCoords.size() / 2) : kNone);
        if (isTextured) mesh.texCoords.insert(mesh.texCoords.end(), {anyNumber(), anyNumber()});
      }
      mesh.counts.push_back(corners);
      const facetbox::Mark mark{below(4) - 1, below(3) - 1};
      const auto known = std::find(model.marks.begin(), model.marks.end(), mark);
      mesh.labels.push_back(static_cast<std::uint32_t>(known - model.marks.begin()));
      if (known == model.marks.end()) model.marks.push_back(mark);
      if (face > 0 && below(3) == 0) holes.push_back(face);
    }
    if (mesh.texCoords.empty()) mesh.texIndices.clear();
    if (!holes.empty()) {
      mesh.holes = {0};
      mesh.holes.insert(mesh.holes.end(), holes.begin(), holes.end());
      mesh.holes.push_back(kNone);
    }
    model.objects.push_back(std::move(object));
  }
  return model;
}

facetbox::Mark markOf(const Model& model, const PolyMesh& mesh, std::size_t face) {
  return mesh.labels.empty() ? facetbox::Mark{} : model.marks[mesh.labels[face]];
}

TEST(ObjFile, anyModelSurvivesBitForBit) {
  const TestFolder folder;
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    const Model model = randomModel(seed, seed % 3 == 0);
    const std::string path = folder.path("m.obj");
    EXPECT_THAT(facetbox::writeModel(model, path), IsEmpty());
    const Model copy = facetbox::readModel(path);
    EXPECT_THAT(copy.notes, IsEmpty());
    EXPECT_EQ(copy.groups.size(), copy.groups.size());
    ASSERT_EQ(copy.objects.size(), model.objects.size());
    for (std::size_t i = 0; i < copy.objects.size(); ++i) {
      Object a = copy.objects[i], b = model.objects[i];
      for (std::size_t face = 0; face < b.mesh.counts.size(); ++face) {
        const facetbox::Mark p = markOf(copy, a.mesh, face), q = markOf(model, b.mesh, face);
        EXPECT_EQ(p.material == kNone ? "" : copy.materials[p.material].name,
                  q.material == kNone ? "" : model.materials[q.material].name);
        EXPECT_EQ(p.group == kNone ? "" : copy.groups[p.group], q.group == kNone ? "" : model.groups[q.group]);
      }
      a.mesh.labels = b.mesh.labels = {};
      if (copy.objects.size() == 1) a.fileVertices = b.fileVertices;
      if (seed % 3 == 0) a.fileVertices = b.fileVertices;  // numbers are dense in the copy
      EXPECT_TRUE(a == b);
    }
    for (const facetbox::Material& material : model.materials) {
      const auto same = std::find_if(copy.materials.begin(), copy.materials.end(),
                                     [&](const facetbox::Material& m) { return m.name == material.name; });
      if (same == copy.materials.end()) continue;  // a name alone, which no face has
      EXPECT_EQ(same->color, material.color);
      EXPECT_EQ(same->texture, material.texture);
    }
    if (HasFailure()) break;
  }
}

TEST(ObjFile, aLibraryKeepsItsStatementsAndTakesUpChanges) {
  const TestFolder folder;
  folder.write("m.mtl",
               "newmtl a\r\n Kd 0.5 0.25 1\r\nNs 9 # shiny\nTr 0.25\nmap_Kd -o 1 2 -clamp on my tile.png\n"
               "newmtl spectral\nKd spectral f.rfl 1\nnewmtl a\nKd 1 1 1\n");
  folder.write("outside.mtl", "newmtl a\n");
  fs::create_directory(folder.path("in"));
  const std::string faces = std::string(kThreeVertices) + "usemtl a\nf 1 2 3\n";
  Model model = facetbox::readModel(folder.write("m.obj", "mtllib m.mtl\n" + faces));
  ASSERT_EQ(model.materials.size(), 2U);
  EXPECT_EQ(model.materials[0].texture, "my tile.png");
  EXPECT_EQ(model.materials[0].color, (std::array{0.5, 0.25, 1.0, 0.75}));
  EXPECT_FALSE(model.materials[1].color);
  EXPECT_THAT(model.notes, ElementsAre(facetbox::Note{"second definition of material 'a'", 1}));
  facetbox::writeModel(model, folder.path("out.obj"));
  EXPECT_EQ(readText(folder.path("out.mtl")),
            "newmtl a\nKd 0.5 0.25 1\nNs 9 # shiny\nTr 0.25\nmap_Kd -o 1 2 -clamp on my tile.png\n"
            "newmtl spectral\nKd spectral f.rfl 1\n");
  (*model.materials[0].color)[0] = 1;
  model.materials[0].texture = "b.png";
  facetbox::writeModel(model, folder.path("out.obj"));
  EXPECT_EQ(readText(folder.path("out.mtl")),
            "newmtl a\nNs 9 # shiny\nKd 1 0.25 1\nd 0.75\nmap_Kd b.png\nnewmtl spectral\nKd spectral f.rfl 1\n");
  // Files that are named but lie elsewhere stay closed unless asked for.
  for (const std::string& library : {std::string("../outside.mtl"), folder.path("outside.mtl")}) {
    const std::string path = folder.write("in/m.obj", "mtllib " + library + "\n" + faces);
    EXPECT_THAT(
        facetbox::readModel(path).notes,
        ElementsAre(facetbox::Note{"material library '" + library + "' (it lies outside the folder of the model)", 1}));
    EXPECT_THAT(facetbox::readModel(path, {.readsAnywhere = true}).notes, IsEmpty());
  }
}

std::vector<std::string> notesOf(const Model& model) {
  std::vector<std::string> notes;
  for (const facetbox::Note& note : model.notes) notes.push_back(fmt::format("{} {}", note.count, note.what));
  return notes;
}

TEST(ObjFile, numbersBeyondDoubleAreZeroOrErrorsInEveryLocale) {
  const std::string before = setlocale(LC_ALL, nullptr);
  setlocale(LC_ALL, "de_DE.UTF-8");  // a decimal comma, where it is installed
  const std::string zeros = std::string(400, '0');
  const Model model =
      parseObj("v 1.5e-400 -1e-400 5e-324\nv 2e-324 0." + zeros + "1 1" + zeros +
               "e-800\nv 1e-99999999999999999999 0e999 3e-310\nv 0." + zeros + "1e401 1.5 -0\nf 1 2 3\n");
  const std::vector<double>& p = model.objects[0].mesh.points;
  EXPECT_THAT(p, ElementsAre(0, 0, 5e-324, 0, 0, 0, 0, 0, 3e-310, 1, 1.5, 0));
  EXPECT_TRUE(std::signbit(p[1]) && !std::signbit(p[0]));
  for (const std::string& huge : {std::string("4.5e400"), "-1" + zeros, "0." + zeros + "1e+999", "1" + zeros + "e-9",
                                  std::string("1e99999999999999999999")})
    EXPECT_THAT([&] { parseObj("v 0 0 " + huge + "\n"); },
                testing::ThrowsMessage<facetbox::ReadError>(HasSubstr("is not a finite number")));
  setlocale(LC_ALL, before.c_str());
}

TEST(ObjFile, colorsAreFromZeroToOne) {
  const auto read = [](const std::string& a, const std::string& b) {
    return parseObj("v 0 0 0 " + a + "\nv 1 0 0 " + b + "\nv 0 1 0\nf 1 2 3\n");
  };
  const Model bytes = read("255 0 51", "0 0 102 255"), beyond = read("255 128 -3", "0.5 1e300 1 -1e300");
  EXPECT_THAT(bytes.objects[0].colors, ElementsAre(1, 0, 0.2F, 1, 0, 0, 0.4F, 1, 1, 1, 1, 1));
  EXPECT_THAT(notesOf(bytes), ElementsAre("2 colors of vertices from 0 to 255 (now from 0 to 1)", testing::_));
  EXPECT_THAT(beyond.objects[0].colors, ElementsAre(1, 1, 0, 1, 0.5, 1, 1, 0, 1, 1, 1, 1));
  EXPECT_THAT(notesOf(beyond), ElementsAre("5 numbers in colors of vertices outside 0 to 1 (now 0 or 1)", testing::_));
}

TEST(ObjFile, commentsEndWithTheirLine) {
  const Model model = parseObj(
      "# C:\\models\\\nv 9 9 9 # \\\nv 1 0 0\nv 0 1 0\ns 1 # \\\r\nf 1 2 \\\n3\nf 1 2 3\n"
      "# facetbox:holes 1 2\ncurv # \\\nf 3 2 1\n");
  EXPECT_EQ(model.objects[0].mesh.counts.size(), 3U);
}

TEST(ObjFile, unusedTextureCoordinatesOfSeveralObjectsAreCounted) {
  const Model model =
      parseObj(std::string(kThreeVertices) +
               "vt 0 0\nvt 1 1\nvt 2 2\no a\nf 1/1 2/1 3/1\no none\no b\ng x\nf 1 2 3\nf 3/3 2/1 1/1\no end\n");
  ASSERT_EQ(model.objects.size(), 2U);
  EXPECT_THAT(notesOf(model), ElementsAre("2 objects without faces", "1 texture coordinates that no face uses"));
  EXPECT_THAT(model.objects[1].mesh.texIndices, ElementsAre(kNone, kNone, kNone, 1, 0, 0));
  EXPECT_THAT(model.objects[0].mesh.labels, IsEmpty());
}

TEST(ObjFile, aLibraryIsReadOnceAndAbandonedOnRequest) {
  const TestFolder folder;
  folder.write("m.mtl",
               "newmtl a\nKd 0.1 0.2\nnewmtl b\nKd 0.1 x 0.3\nnewmtl c\nKd 0.5 # gray\nnewmtl d\nKd 0.5 0 1 1");
  std::string text = "mtllib none m.mtl none ./m.mtl";
  for (int i = 0; i < 500000; ++i) text += " a";
  const std::string path = folder.write("m.obj", text + "\nmtllib m.mtl\n" + kThreeVertices + "f 1 2 3\n");
  const Model model = facetbox::readModel(path);
  EXPECT_THAT(notesOf(model), ElementsAre("1 line end of material library 'm.mtl', which may be cut short",
                                          "1 material library 'a' (there is no such file)",
                                          "1 material library 'none' (there is no such file)"));
  ASSERT_EQ(model.materials.size(), 4U);
  EXPECT_FALSE(model.materials[0].color || model.materials[1].color);
  EXPECT_EQ(model.materials[1].definition, "Kd 0.1 x 0.3\n");
  EXPECT_EQ(model.materials[2].color, (std::array{0.5, 0.5, 0.5, 1.0}));
  EXPECT_EQ(model.materials[3].color, (std::array{0.5, 0.0, 1.0, 1.0}));
  int asked = 0;
  EXPECT_THROW(facetbox::readModel(path, {.cancel = [&] { return ++asked > 1; }}), facetbox::Cancelled);
}

TEST(ObjFile, linksToModelsAreFollowed) {
  const TestFolder folder;
  fs::create_directory(folder.path("far"));
  const std::string tetrahedron =
      "solid a\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\n"
      "endloop\nendfacet\nendsolid a\n";
  for (const std::string name : {"m.stl", "m.x"}) {
    const std::string text =
        name == "m.stl" ? tetrahedron : "xof 0303txt 0032\nMesh m { 3; 0;0;0;, 1;0;0;, 0;1;0;; 1; 3;0,1,2;; }\n";
    fs::create_symlink(folder.write("far/" + name, text), folder.path(name));
    EXPECT_EQ(facetbox::readModel(folder.path(name)).objects.at(0).mesh.counts.size(), 1U) << name;
  }
}

}  // namespace
}  // namespace tool
