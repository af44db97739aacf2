#include <facetbox/io/GltfMaterials.h>

#include <algorithm>
#include <limits>

#include <fmt/format.h>

#include <facetbox/io/GltfNames.h>

namespace facetbox {
namespace {

constexpr std::size_t kMostElements = std::numeric_limits<std::uint32_t>::max();

// "data:image/webp;base64,..." is image/webp; "" where that is not said.
std::string typeOfData(const JsonValue& uri) {
  const auto plain = uri.plainString();
  const std::string decoded = plain ? std::string() : uri.string();
  const std::string_view text = plain ? *plain : decoded;
  constexpr std::string_view kScheme = "data:";
  return std::string(text.substr(kScheme.size(), text.find_first_of(";,") - kScheme.size()));
}

std::string guessedType(std::string_view bytes) { return bytes.starts_with("\x89PNG") ? "image/png" : "image/jpeg"; }

// All that is said of an image but for its bytes.
std::string withoutUri(const JsonValue& image) {
  std::string definition = "{";
  for (auto member = image.begin(); !member.atEnd(); member.next()) {
    if (member.name().string() == "uri") continue;
    definition += fmt::format("{}{}:{}", definition.size() > 1 ? "," : "", member.name().text(), member.value().text());
  }
  return definition + '}';
}

GltfDocument::Image readImage(GltfFile& file, const JsonValue& image) {
  const auto view = image.find("bufferView");
  const auto uri = image.find("uri");
  if (view && uri) image.fail("an image has both bytes in the file and a URI");
  if (view) {
    const std::string_view bytes = file.bufferView(*view).data.bytes;
    file.take(bytes.size(), image);
    const JsonValue type = image.at("mimeType");
    if (type.string().empty()) type.fail("expected the type of the image");
    return {std::string(image.text()), std::string(bytes), type.string()};
  }
  auto data = uri ? file.dataOf(*uri) : std::nullopt;
  if (!data) return {std::string(image.text()), "", ""};
  if (data->empty()) uri->fail("an image of no bytes");
  const auto given = image.find("mimeType");
  std::string type = given ? given->string() : typeOfData(*uri);
  if (type.empty()) type = guessedType(*data);
  return {withoutUri(image), std::move(*data), std::move(type)};
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

// The file that each image is in, "" for one inside the model.
std::vector<std::string> filesOf(GltfFile& file, const GltfDocument& document) {
  std::vector<std::string> files;
  file.take(file.count("images") * sizeof(std::string), file.root());
  for (std::size_t i = 0; i < file.count("images"); ++i) {
    const auto uri = file.element("images", i).find("uri");
    const bool isInside = !document.images[i].mimeType.empty();
    files.push_back(uri && !isInside ? fromUri(uri->string()) : "");
    file.take(files.back().size(), file.root());
  }
  return files;
}

void readTextureFiles(GltfFile& file, GltfDocument& document) {
  const std::vector<std::string> files = filesOf(file, document);
  file.take(file.count("textures") * sizeof(std::string), file.root());
  document.textureFiles.reserve(file.count("textures"));
  for (std::size_t i = 0; i < file.count("textures"); ++i) {
    const auto source = file.element("textures", i).find("source");
    if (source) file.element("images", *source);
    const std::string name = source ? files[static_cast<std::size_t>(source->integer(kMostElements))] : "";
    file.take(name.size(), file.root());
    document.textureFiles.push_back(name);
  }
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
  readTextureFiles(file, *document);
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
