#include <facetbox/io/GltfReader.h>

#include <algorithm>
#include <map>

#include <fmt/format.h>

#include <facetbox/io/GltfFile.h>
#include <facetbox/io/GltfMaterials.h>
#include <facetbox/io/GltfMesh.h>
#include <facetbox/io/GltfNodes.h>
#include <facetbox/io/Numbered.h>

namespace facetbox {
namespace {

std::string nameOf(const JsonValue& value) {
  const auto name = value.find("name");
  return name ? name->string() : "";
}

void readMaterials(GltfFile& file, Model& model) {
  const auto document = readGltfDocument(file);
  file.take(file.count("materials") * sizeof(Material), file.root());
  model.materials.reserve(file.count("materials"));
  for (std::size_t i = 0; i < file.count("materials"); ++i) {
    const JsonValue definition = file.element("materials", i);
    file.take(2 * definition.text().size(), definition);
    model.materials.push_back(gltfMaterial(definition, *document));
  }
  model.document = document;
}

void readObjects(GltfFile& file, Model& model) {
  Numbered<Mark> marks(model.marks);
  std::map<std::size_t, std::vector<bool>> touched;
  std::vector<bool> isShown(file.count("meshes"));
  visitNodes(file, [&](std::size_t index, const JsonValue& node, const GltfTransform& transform) {
    file.context().poll();
    file.noteOthers(node, {"children", "matrix", "mesh", "rotation", "scale", "translation"}, "nodes");
    const auto meshIndex = node.find("mesh");
    if (!meshIndex) return;
    const JsonValue mesh = file.element("meshes", *meshIndex);
    isShown[static_cast<std::size_t>(meshIndex->integer(isShown.size()))] = true;
    Object object;
    if (!GltfMesh(file, mesh, marks, touched).read(transform, object)) return;
    object.name = node.find("name") ? nameOf(node) : nameOf(mesh);
    object.place = fmt::format("/nodes/{}", index);
    model.objects.push_back(std::move(object));
  });
  Notes& notes = file.context().notes();
  notes.add("meshes outside of the scene", static_cast<std::size_t>(std::count(isShown.begin(), isShown.end(), false)));
  for (const auto& [accessor, elements] : touched)
    notes.add("vertices that no triangle uses",
              static_cast<std::size_t>(std::count(elements.begin(), elements.end(), false)));
}

}  // namespace

Model parseGltf(std::string_view bytes, ReadContext& context) {
  GltfFile file(bytes, context);
  for (const char* array : {"animations", "skins", "cameras"})
    if (const auto list = file.root().find(array))
      for (auto at = list->begin(); !at.atEnd(); at.next()) context.notes().add(array);
  Model model;
  readMaterials(file, model);
  readObjects(file, model);
  file.noteOthers(
      file.root(),
      {"accessors", "animations", "asset", "bufferViews", "buffers", "cameras", "extensionsRequired", "extensionsUsed",
       "images", "materials", "meshes", "nodes", "samplers", "scene", "scenes", "skins", "textures"},
      "the file");
  return model;
}

}  // namespace facetbox
