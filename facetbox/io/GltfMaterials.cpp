#include <facetbox/io/GltfMaterials.h>

#include <algorithm>
#include <limits>

#include <fmt/format.h>

#include <facetbox/io/GltfNames.h>

namespace facetbox {
namespace {

constexpr std::size_t kMostElements = std::numeric_limits<std::uint32_t>::max();

GltfDocument::Image readImage(GltfFile& file, const JsonValue& image) {
  GltfDocument::Image kept{std::string(image.text()), "", ""};
  const auto view = image.find("bufferView");
  const auto uri = image.find("uri");
  if (view && uri) image.fail("an image has both bytes in the file and a URI");
  if (view) {
    const GltfBytes bytes = file.bufferView(*view);
    file.take(bytes.bytes.size(), image);
    kept.bytes = bytes.bytes;
    kept.mimeType = image.at("mimeType").string();
    if (kept.mimeType.empty()) image.at("mimeType").fail("expected the type of the image");
  } else if (uri) {
    if (auto data = file.dataOf(*uri)) {
      kept = {"{}", std::move(*data), ""};
      if (kept.bytes.empty()) uri->fail("an image of no bytes");
      kept.mimeType = kept.bytes.starts_with("\x89PNG") ? "image/png" : "image/jpeg";
    }
  }
  return kept;
}

std::vector<std::string> textsOf(GltfFile& file, const char* array) {
  std::vector<std::string> texts;
  file.take(file.count(array) * sizeof(std::string), file.root());
  texts.reserve(file.count(array));
  for (std::size_t i = 0; i < file.count(array); ++i) {
    const JsonValue value = file.element(array, i);
    file.take(value.text().size(), value);
    texts.emplace_back(value.text());
  }
  return texts;
}

// The file that a texture is in.
std::string fileOf(GltfFile& file, const JsonValue& texture, const GltfDocument& document) {
  const auto source = texture.find("source");
  if (!source) return "";
  const JsonValue image = file.element("images", *source);
  const auto uri = image.find("uri");
  const bool isInside = !document.images[static_cast<std::size_t>(source->integer(kMostElements))].mimeType.empty();
  return uri && !isInside ? fromUri(uri->string()) : "";
}

}  // namespace

std::shared_ptr<const GltfDocument> readGltfDocument(GltfFile& file) {
  const auto document = std::make_shared<GltfDocument>();
  std::size_t inside = 0;
  file.take(file.count("images") * sizeof(GltfDocument::Image), file.root());
  document->images.reserve(file.count("images"));
  for (std::size_t i = 0; i < file.count("images"); ++i) {
    const JsonValue image = file.element("images", i);
    file.take(image.text().size(), image);
    document->images.push_back(readImage(file, image));
    if (!document->images.back().mimeType.empty()) ++inside;
  }
  file.context().notes().add("images inside the file (only glTF files keep them)", inside);
  if (const auto required = file.root().find("extensionsRequired"))
    for (auto at = required->begin(); !at.atEnd(); at.next()) document->extensionsRequired.insert(at.value().string());
  document->textures = textsOf(file, "textures");
  document->samplers = textsOf(file, "samplers");
  file.take(file.count("textures") * sizeof(std::string), file.root());
  document->textureFiles.reserve(file.count("textures"));
  for (std::size_t i = 0; i < file.count("textures"); ++i)
    document->textureFiles.push_back(fileOf(file, file.element("textures", i), *document));
  return document;
}

Material gltfMaterial(const JsonValue& definition, const GltfDocument& document) {
  Material material;
  material.definition = definition.text();
  if (const auto name = definition.find("name")) material.name = name->string();
  const auto surface = definition.find("pbrMetallicRoughness");
  if (!surface) return material;
  if (const auto factor = surface->find("baseColorFactor")) {
    std::array<double, 4> color = {};
    std::size_t count = 0;
    for (auto at = factor->begin(); !at.atEnd(); at.next(), ++count)
      if (count < color.size()) color[count] = at.value().number();
    if (count != color.size()) factor->fail(fmt::format("a color of {} numbers, expected 4", count));
    material.color = color;
  }
  if (const auto texture = surface->find("baseColorTexture")) {
    const JsonValue index = texture->at("index");
    const std::uint64_t i = index.integer(kMostElements);
    if (i >= document.textureFiles.size())
      index.fail(fmt::format("names texture {} of {}, counted from 0", i, document.textureFiles.size()));
    material.texture = document.textureFiles[static_cast<std::size_t>(i)];
  }
  return material;
}

}  // namespace facetbox
