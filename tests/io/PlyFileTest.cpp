#include <algorithm>
#include <map>
#include <random>

#include <fmt/format.h>

#include <tests/tools/ToolTestSupport.h>

namespace tool {
namespace {

enum Encoding { kAscii, kLittle, kBig };
constexpr const char* kFormats[] = {"ascii", "binary_little_endian", "binary_big_endian"};
constexpr int kVertices = 1100, kFaces = 60;

/// What a file holds, as a mesh of a single object.
struct Read {
  facetbox::PolyMesh mesh;
  std::map<std::string, std::size_t> notes;
};

Read parse(const std::string& text) {
  Model model = facetbox::parseModel(text, Format::ply, "t.ply");
  Read read{std::move(model.objects.at(0).mesh), {}};
  for (const facetbox::Note& note : model.notes) read.notes[note.what] = note.count;
  return read;
}

std::string errorOf(const std::string& text) {
  try {
    parse(text);
  } catch (const facetbox::ReadError& error) {
    return error.what();
  }
  return "read";
}

std::string header(Encoding encoding, const std::string& declarations) {
  return fmt::format("ply\nformat {} 1.0\n{}end_header\n", kFormats[encoding], declarations);
}

std::size_t sizeOfType(const std::string& type) {
  const auto ends = [&](const char* a, const char* b) { return type.ends_with(a) || type.ends_with(b); };
  return ends("char", "int8") ? 1 : ends("short", "16") ? 2 : ends("double", "64") ? 8 : 4;
}

using Row = std::vector<std::pair<std::string, double>>;  // types and values

std::string rowText(Encoding encoding, const Row& row) {
  std::string text;
  for (const auto& [type, value] : row) {
    const auto real = static_cast<float>(value);
    const auto whole = static_cast<std::int64_t>(value);  // its first bytes are the shorter types on this machine
    const void* from = type[0] == 'f' ? static_cast<const void*>(&real) : &whole;
    if (sizeOfType(type) == 8) from = &value;
    std::string bytes(static_cast<const char*>(from), sizeOfType(type));
    if (encoding == kBig) std::ranges::reverse(bytes);
    text += encoding == kAscii ? fmt::format("{} ", value) : bytes;
  }
  if (encoding == kAscii) text.back() = '\n';
  return text;
}

// A file of some layout, and in `model` what it holds.
std::string randomFile(Encoding encoding, std::mt19937& random, Read& model) {
  const auto pick = [&](std::initializer_list<const char*> list) {
    return std::string(list.begin()[random() % list.size()]);
  };
  const std::string type = pick({"double", "float", "short", "int32", "float64", "float32", "int16", "int"});
  const std::string countType = pick({"uchar", "uint8", "char", "int", "uint", "ushort", "int8", "uint32"});
  const std::string indexType = pick({"int", "uint", "int32", "uint32", "ushort", "int16", "int8", "uchar"});
  const bool byVertex = random() % 3 == 0, byCorner = !byVertex && random() % 2, hasExtras = random() % 2;
  const std::string extras = hasExtras ? "property list uchar short tags\nproperty uchar red\n" : "";
  if (hasExtras)
    for (const char* const p : {"property 'red'", "property 'tags'"})
      model.notes.insert({{fmt::format("vertex {}", p), kVertices}, {fmt::format("face {}", p), kFaces}});
  std::string vertices, faces;
  for (int i = 0; i < kVertices; ++i) {
    double p[] = {random() % 60000 - 3e4, random() % 60000 - 3e4, random() % 60000 - 3e4},
           uv[] = {1.0 / (i + 1), i / 7.0};
    if (!type.starts_with("int") && type != "short") p[0] /= 1024;  // exact in floats
    if (sizeOfType(type) == 8) p[1] /= 3;
    Row row{{type, p[2]}, {type, p[0]}, {type, p[1]}};
    if (byVertex) row.insert(row.begin(), {"double", uv[1]}), row.push_back({"double", uv[0]});
    if (hasExtras)
      row.push_back({"uchar", i % 3}), row.insert(row.end(), i % 3, {"short", -7}), row.push_back({"uchar", 255});
    vertices += rowText(encoding, row);
    model.mesh.points.insert(model.mesh.points.end(), p, p + 3);
    if (byVertex) model.mesh.texCoords.insert(model.mesh.texCoords.end(), uv, uv + 2);
  }
  for (std::uint32_t f = 0; f < kFaces; ++f) {
    const std::uint32_t corners = 1 + random() % 9, numbers = byCorner && f % 4 ? corners * 2 : 0;
    Row row;
    if (byCorner) row.push_back({"int8", numbers});
    for (std::uint32_t n = 0; n < numbers; ++n)
      row.push_back({"float64", n / 3.0}), model.mesh.texCoords.push_back(n / 3.0);
    row.push_back({countType, corners});
    for (std::uint32_t c = 0; c < corners; ++c) {
      model.mesh.indices.push_back(random() % (sizeOfType(indexType) == 1 ? 128 : kVertices));
      row.push_back({indexType, model.mesh.indices.back()});
      const auto pairs = static_cast<std::uint32_t>(model.mesh.texCoords.size() / 2);
      if (byCorner) model.mesh.texIndices.push_back(numbers ? pairs - corners + c : kNone);
    }
    if (hasExtras) row.insert(row.end(), {{"uchar", 0}, {"uchar", 1}});
    model.mesh.counts.push_back(corners);
    faces += rowText(encoding, row);
  }
  if (byVertex) model.mesh.texIndices = model.mesh.indices;
  const std::string vertex =
      fmt::format("element vertex {0}\n{2}property {1} z\nproperty {1} x\nproperty {1} y\n{3}{4}", kVertices, type,
                  byVertex ? "property double texture_v\n" : "", byVertex ? "property double texture_u\n" : "", extras);
  const std::string face = fmt::format("element face {}\n{}property list {} {} vertex_ind{}\n{}", kFaces,
                                       byCorner ? "property list int8 float64 texcoord\n" : "", countType, indexType,
                                       byCorner ? "ex" : "ices", extras);
  return random() % 2 ? header(encoding, face + vertex) + faces + vertices
                      : header(encoding, vertex + "element edge 0\nproperty int a\n" + face) + vertices + faces;
}

TEST(PlyFile, readsBackEveryLayoutBitForBit) {
  std::mt19937 random(1);
  for (int round = 0; round < 90; ++round) {
    Read b;
    const std::string text = randomFile(static_cast<Encoding>(round % 3), random, b);
    const Read a = parse(text);
    EXPECT_TRUE(a.mesh == b.mesh) << text.substr(0, 500);
    EXPECT_EQ(a.notes, b.notes);
  }
}

std::string smallFile(Encoding encoding, const std::string& vertices = "12", const std::string& faces = "1") {
  std::string rows;
  for (int i = 0; i < 12; ++i)
    rows += rowText(encoding, {{"float", 0.25}, {"float", i + 0.25}, {"float", 2 * i + 0.25}});
  return header(encoding, "comment a\r\nobj_info b\nelement vertex " + vertices +
                              "\r\nproperty float x\nproperty float y\nproperty float z\nelement face " + faces +
                              "\nproperty list uchar int vertex_index\n") +
         rows + rowText(encoding, {{"uchar", 3}, {"int", 0}, {"int", 1}, {"int", 11}});
}

TEST(PlyFile, neverReadsAPartOrMoreThanDeclared) {
  for (const Encoding encoding : {kAscii, kLittle, kBig}) {
    const std::string whole = smallFile(encoding);
    EXPECT_EQ(parse(whole).mesh.points[34], 11.25);
    // Of text, the last number must have begun.
    for (std::size_t size = 0; size < whole.size() - (encoding == kAscii ? 2 : 0); ++size)
      EXPECT_THROW(parse(whole.substr(0, size)), facetbox::ReadError) << size;
    EXPECT_THAT(errorOf(whole + "1"),
                HasSubstr(encoding == kAscii ? "t.ply:25: '1' comes after all" : ": 1 more bytes"));
    // What remains must be an error or a model that holds together.
    for (std::size_t at = 0; at < whole.size(); ++at)
      for (int mask = 1; mask < 256; mask *= 2) {
        std::string text = whole;
        text[at] = static_cast<char>(text[at] ^ mask);
        EXPECT_TRUE(errorOf(text) != "read" || parse(text).mesh.indices.size() == 3) << text;
      }
  }
  EXPECT_EQ(parse(smallFile(kAscii) + "\n \r\n").mesh.counts.size(), 1U);
  std::string textured = smallFile(kAscii);
  textured.insert(textured.find("element"), "comment TextureFile a.png\ncomment by hand\n");
  EXPECT_EQ(parse(textured).notes["textures named in comments"], 1U);
}

TEST(PlyFile, tellsWhereEveryMistakeIs) {
  const std::string v = "element vertex 1\nproperty int x\nproperty int y\nproperty int z\n", f = "element face 1\n";
  const std::string list = "property list int int vertex_indices\n", all = header(kAscii, v + f + list);
  const std::string bytes = header(kLittle, v + f + list) + std::string(12, 0);
  const std::pair<std::string, const char*> cases[] = {
      {"solid", "t.ply:1: a PLY file starts with"},
      {"ply\nformat ascii 1.0\nproperty int x\n", "t.ply:3: a property stands before"},
      {"ply\nformat ascii 1.0\n" + v, "t.ply:7: the file ends before a line 'end_header'"},
      {header(kAscii, "element vertex -1\n"), "t.ply:3: '-1' is not the count"},
      {header(kAscii, v + "property half a\n"), "t.ply:7: 'half' is not a type"},
      {header(kAscii, v + "property list float int a\n"), "t.ply:7: a list cannot be counted in float"},
      {header(kAscii, v + f + "property list int float vertex_index\n"), "t.ply:7: vertex indices cannot be float"},
      {header(kAscii, v + "property int x\n" + f + list), "t.ply:3: element 'vertex' has two properties for the same"},
      {header(kAscii, "element vertex 1\nproperty int x\n" + f + list),
       "t.ply:3: element 'vertex' has no property 'y'"},
      {header(kAscii, v), "t.ply: has no faces"},
      {all + "0 0 0\n\n1 1\n", "t.ply:12: face 1 refers to vertex 1, but there are only 1"},
      {header(kLittle, v + f + "property list uchar int vertex_index\n") + std::string(12, 0) + "\1\1" +
           std::string(3, 0),
       ": face 1 refers to vertex 1,"},
      {all + "0 0 0\n0\n", "t.ply:11: a face has no vertices"},
      {all + "0 0 0\n9223372036854775808 0\n", "t.ply:11: '9223372036854775808' is out of range"},
      {all + "0 0 0\n4294967296 0\n", "t.ply:11: the line has fewer values"},
      {all + "0 nan 0\n1 0\n", "t.ply:10: 'nan' is not a finite number"},
      {all + "0 1e999 0\n1 0\n", "t.ply:10: '1e999' is not a finite number"},
      {all + "0 0 0 0\n1 0\n", "t.ply:10: '0' is more than the header declares"},
      {all + "0 0\n0 1 0\n", "t.ply:10: the line has fewer values"}};
  for (const auto& [text, message] : cases) EXPECT_THAT(errorOf(text), HasSubstr(message)) << text;
  std::string broken = smallFile(kBig);
  broken.replace(broken.size() - 13 - 11 * 12, 2, "\x7F\xC0");
  EXPECT_THAT(errorOf(broken),
              StartsWith(fmt::format("t.ply: byte {}: this number is not finite", broken.size() - 145)));
  for (const auto& [count, index, message] : {std::tuple{1, -1, "face 1 refers to vertex -1"},
                                              {-1, 0, "a list cannot have -1"},
                                              {0x7FFFFFFF, 0, "a list has 2147483647"}})
    EXPECT_THAT(errorOf(bytes + rowText(kLittle, {{"int", count}, {"int", index}})),
                StartsWith(fmt::format("t.ply: byte {}: {}", bytes.size() + (index < 0 ? 4 : 0), message)));
  for (const char* const count : {"2147483648", "4294967296", "9223372036854775808"})
    for (const std::string& text : {smallFile(kLittle, count), smallFile(kAscii, "12", count)})
      EXPECT_THAT(errorOf(text), HasSubstr(count));
}

TEST(PlyFile, keepsDigitsAndPolygonsOfRealModels) {
  const TestFolder folder;
  std::string text = smallFile(kAscii);
  text.replace(text.rfind("0.25 11.25"), 4, "85227.4312345678");
  EXPECT_EQ(facetbox::readModel(folder.write("m.PLY", text)).objects.at(0).mesh.points[33], 85227.4312345678);
  for (const auto& [name, vertices, faces, corners] :
       {std::tuple{"suzanne.ply", 1966U, 500U, 1968U}, {"scene_large_a.ply", 157824U, 315164U, 945492U}}) {
    const fs::path path = fs::path(FACETBOX_MODELS) / name;
    if (!fs::exists(path)) continue;
    const facetbox::PolyMesh mesh = facetbox::readModel(path).objects.at(0).mesh;
    EXPECT_EQ(mesh.points.size(), vertices * 3);
    EXPECT_EQ(mesh.counts.size(), faces);
    EXPECT_EQ(mesh.indices.size(), corners);
  }
}

}  // namespace
}  // namespace tool
