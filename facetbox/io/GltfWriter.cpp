#include <facetbox/io/GltfWriter.h>

#include <limits>
#include <string>
#include <vector>

#include <fmt/format.h>

#include <facetbox/io/Base64.h>
#include <facetbox/io/FileError.h>
#include <facetbox/io/GltfBuffer.h>
#include <facetbox/io/GltfMaterialWriter.h>
#include <facetbox/io/GltfMeshWriter.h>
#include <facetbox/io/LeftOut.h>
#include <facetbox/version.h>

namespace facetbox {
namespace {

struct Scene {
  std::vector<std::string> nodes, meshes;  // JSON
};

std::string nodeOf(const Object& object, const std::array<double, 3>& translation, std::size_t mesh, Notes& notes) {
  std::string node = fmt::format(R"({{"mesh":{})", mesh);
  if (!object.name.empty()) node += fmt::format(R"(,"name":{})", gltfString(object.name, notes));
  if (translation != std::array<double, 3>{})
    node += fmt::format(R"(,"translation":[{},{},{}])", translation[0], translation[1], translation[2]);
  return node + '}';
}

Scene writeObjects(const Model& model, GltfBuffer& buffer, GltfMaterialWriter& materials, Notes& notes) {
  Scene scene;
  const auto indexOf = [&](std::uint32_t material, bool isTextured) { return materials.index(material, isTextured); };
  GltfMeshWriter writer(model, buffer, indexOf, notes);
  for (const Object& object : model.objects) {
    auto written = writer.write(object);
    if (!written) continue;
    scene.nodes.push_back(nodeOf(object, written->translation, scene.meshes.size(), notes));
    scene.meshes.push_back(std::move(written->mesh));
  }
  writer.noteRounding();
  return scene;
}

void addArray(std::string& json, const char* name, const std::vector<std::string>& elements) {
  if (elements.empty()) return;
  json += fmt::format(R"(,"{}":[)", name);
  for (const std::string& element : elements) {
    json += element;
    json += ',';
  }
  json.back() = ']';
}

std::vector<std::string> quoted(const std::set<std::string>& names, Notes& notes) {
  std::vector<std::string> strings;
  for (const std::string& name : names) strings.push_back(gltfString(name, notes));
  return strings;
}

// All but the buffer, whose JSON differs, and the last brace.
std::string jsonOf(const Scene& scene, const GltfBuffer& buffer, const GltfMaterialWriter& materials, Notes& notes) {
  std::string json = fmt::format(R"({{"asset":{{"version":"2.0","generator":"facetbox {}"}},"scene":0,"scenes":[{{)",
                                 FACETBOX_VERSION_STRING);
  for (std::size_t node = 0; node < scene.nodes.size(); ++node)
    json += fmt::format("{}{}", node == 0 ? R"("nodes":[)" : ",", node);
  json += "]}]";
  addArray(json, "nodes", scene.nodes);
  addArray(json, "meshes", scene.meshes);
  addArray(json, "accessors", buffer.accessors());
  addArray(json, "bufferViews", buffer.views());
  addArray(json, "materials", materials.materials());
  addArray(json, "textures", materials.textures());
  addArray(json, "images", materials.images());
  addArray(json, "samplers", materials.samplers());
  addArray(json, "extensionsUsed", quoted(materials.extensionsUsed(), notes));
  addArray(json, "extensionsRequired", quoted(materials.extensionsRequired(), notes));
  return json;
}

void writeGlb(std::string json, const std::string& bytes, Output& output) {
  if (!bytes.empty()) json += fmt::format(R"(,"buffers":[{{"byteLength":{}}}])", bytes.size());
  json += '}';
  json.resize((json.size() + 3) / 4 * 4, ' ');
  constexpr std::uint32_t kVersion = 2, kJson = 0x4E4F534A, kBinary = 0x004E4942;
  const std::size_t length = 20 + json.size() + (bytes.empty() ? 0 : 8 + bytes.size());
  if (length > std::numeric_limits<std::uint32_t>::max())
    throw WriteError(fmt::format("the model takes {} bytes as GLB, which holds 4 GB at most", length));
  output.text("glTF");
  output.raw(kVersion);
  output.raw(static_cast<std::uint32_t>(length));
  output.raw(static_cast<std::uint32_t>(json.size()));
  output.raw(kJson);
  output.text(json);
  if (bytes.empty()) return;
  output.raw(static_cast<std::uint32_t>(bytes.size()));
  output.raw(kBinary);
  output.text(bytes);
}

void writeText(const std::string& json, const std::string& bytes, Output& output) {
  output.text(json);
  if (!bytes.empty()) {
    output.text(
        fmt::format(R"(,"buffers":[{{"byteLength":{},"uri":"data:application/octet-stream;base64,)", bytes.size()));
    constexpr std::size_t kPiece = 3 << 14;
    for (std::size_t at = 0; at < bytes.size(); at += kPiece) {
      std::string piece;
      appendBase64(piece, std::string_view(bytes).substr(at, kPiece));
      output.text(piece);
    }
    output.text(R"("}])");
  }
  output.text("}\n");
}

}  // namespace

void writeGltf(const Model& model, bool isBinary, WriteContext& context) {
  GltfBuffer buffer;
  GltfMaterialWriter materials(model, buffer, context.notes());
  noteGroups(model, context.notes());
  noteSemantics(model, context.notes());
  noteParts(model, context.notes());
  const Scene scene = writeObjects(model, buffer, materials, context.notes());
  if (scene.meshes.empty()) context.fail("has no face that glTF can hold; nothing is written");
  const std::string json = jsonOf(scene, buffer, materials, context.notes());
  if (isBinary)
    writeGlb(json, buffer.take(), context.output());
  else
    writeText(json, buffer.take(), context.output());
}

}  // namespace facetbox
