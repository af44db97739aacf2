#include <facetbox/io/GltfReader.h>

#include <fmt/format.h>

#include <facetbox/io/GltfFile.h>
#include <facetbox/io/GltfMaterials.h>
#include <facetbox/io/GltfMeshes.h>
#include <facetbox/io/GltfNodes.h>

namespace facetbox {
namespace {

void readMaterials(GltfFile& file, Model& model) {
  const auto document = readGltfDocument(file);
  file.take(file.count("materials") * sizeof(Material), file.root());
  model.materials.reserve(file.count("materials"));
  for (std::size_t i = 0; i < file.count("materials"); ++i) {
    const JsonValue definition = file.element("materials", i);
    file.take(2 * definition.text().size(), definition);
    model.materials.push_back(gltfMaterial(definition, *document));
    file.take(model.materials.back().texture.size(), definition);
  }
  model.document = document;
}

void readObjects(GltfFile& file, Model& model) {
  GltfMeshes meshes(file, model.marks);
  visitNodes(file, [&](std::size_t index, const JsonValue& node, const GltfTransform& transform) {
    file.context().poll();
    file.noteOthers(node, {"children", "matrix", "mesh", "rotation", "scale", "translation"}, "nodes");
    const auto mesh = node.find("mesh");
    Object object;
    if (!mesh || !meshes.show(*mesh, transform, object)) return;
    if (const auto name = node.find("name")) {
      object.name = name->string();
      meshes.noteOtherName(*mesh, object.name);
    }
    object.place = fmt::format("/nodes/{}", index);
    model.objects.push_back(std::move(object));
  });
  meshes.noteUnused();
}

// What stands beside the geometry, and is not kept.
void noteSurroundings(GltfFile& file) {
  for (const char* array : {"animations", "skins", "cameras"})
    if (const auto list = file.root().find(array))
      for (auto at = list->begin(); !at.atEnd(); at.next()) file.context().notes().add(array);
  file.noteOthers(file.root().at("asset"), {"generator", "minVersion", "version"}, "the asset");
  for (std::size_t i = 0; i < file.count("scenes"); ++i) {
    const JsonValue scene = file.element("scenes", i);
    if (scene.find("name")) file.context().notes().add("names of scenes");
    file.noteOthers(scene, {"nodes"}, "scenes");
  }
}

}  // namespace

Model parseGltf(std::string_view bytes, ReadContext& context) {
  GltfFile file(bytes, context);
  noteSurroundings(file);
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
