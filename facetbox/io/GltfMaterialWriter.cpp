#include <facetbox/io/GltfMaterialWriter.h>

#include <algorithm>
#include <filesystem>
#include <optional>

#include <fmt/format.h>

#include <facetbox/io/GltfNames.h>

namespace facetbox {
namespace {

using Json = nlohmann::ordered_json;

// The functions below call themselves. What a file says has a limit for things in each other; see JsonTree.

void collectExtensions(const Json& value, std::set<std::string>& names) {
  if (value.is_object() && value.contains("extensions") && value["extensions"].is_object())
    for (const auto& extension : value["extensions"].items()) names.insert(extension.key());
  if (value.is_structured())
    for (const Json& inner : value) collectExtensions(inner, names);
}

bool isTextureUse(const std::string& name, const Json& value) {
  return name.ends_with("Texture") && value.is_object() && value.contains("index");
}

bool usesFurtherSet(const Json& use) {
  if (use.contains("texCoord") && use["texCoord"] != 0) return true;
  const Json::json_pointer transformed("/extensions/KHR_texture_transform/texCoord");
  return use.contains(transformed) && use[transformed] != 0;
}

// Takes out textures, all or those on further texture coordinates; returns how many.
std::size_t removeTextures(Json& value, bool isAll) {
  std::size_t removed = 0;
  std::vector<std::string> names;
  if (value.is_object())
    for (const auto& member : value.items())
      if (isTextureUse(member.key(), member.value()) && (isAll || usesFurtherSet(member.value())))
        names.push_back(member.key());
  for (const std::string& name : names) removed += value.erase(name);
  if (value.is_structured())
    for (Json& inner : value) removed += removeTextures(inner, isAll);
  return removed;
}

bool isImageOfGltf(const std::string& file) {
  std::string ending = std::filesystem::path(file).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return ending == ".png" || ending == ".jpg" || ending == ".jpeg";
}

std::string dump(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

}  // namespace

std::string gltfString(const std::string& text, Notes& notes) {
  std::string replaced = dump(text);
  if (Json::parse(replaced).get<std::string>() != text) notes.add("names that are not UTF-8");
  return replaced;
}

GltfMaterialWriter::GltfMaterialWriter(const Model& model, GltfBuffer& buffer, Notes& notes)
    : mNotes(notes), mDocument(std::dynamic_pointer_cast<const GltfDocument>(model.document)) {
  if (mDocument && !model.materials.empty()) {
    writeImages(buffer);
    mTextures = mDocument->textures;
    mSamplers = mDocument->samplers;
  }
  for (const Material& material : model.materials) {
    std::string definition = definitionOf(material);
    if (definition.find("\"texCoord\"") != std::string::npos) {
      Json json = Json::parse(definition);
      const std::size_t removed = removeTextures(json, false);
      notes.add("textures on further texture coordinates", removed);
      if (removed > 0) definition = dump(json);
    }
    mMaterials.push_back(std::move(definition));
  }
}

void GltfMaterialWriter::writeImages(GltfBuffer& buffer) {
  for (const GltfDocument::Image& image : mDocument->images) {
    Json definition = Json::parse(image.definition);
    if (!image.bytes.empty()) {
      definition["bufferView"] = buffer.addBytes(image.bytes);
      definition["mimeType"] = image.mimeType;
    }
    mImages.push_back(image.bytes.empty() ? image.definition : dump(definition));
  }
}

std::size_t GltfMaterialWriter::index(std::uint32_t material, bool isTextured) {
  if (isTextured) return material;
  const auto [known, isNew] = mWithoutTextures.try_emplace(material, material);
  if (isNew && mMaterials[material].find("Texture\"") != std::string::npos) {
    Json definition = Json::parse(mMaterials[material]);
    if (removeTextures(definition, true) > 0) {
      mNotes.add("textures of faces without texture coordinates");
      known->second = mMaterials.size();
      mMaterials.push_back(dump(definition));
    }
  }
  return known->second;
}

// The material as its definition has it; nothing where that is not from glTF.
std::optional<Material> GltfMaterialWriter::readBack(const Material& material) const {
  if (!mDocument || material.definition.empty()) return std::nullopt;
  try {
    const ReadOptions options;
    const ReadContext context("material", std::nullopt, options);
    const JsonTree tree(material.definition, 0, context);
    return gltfMaterial(tree.root(), *mDocument);
  } catch (const ReadError&) {
    return std::nullopt;
  }
}

std::string GltfMaterialWriter::definitionOf(const Material& material) {
  const auto before = readBack(material);
  if (before && *before == material) return material.definition;
  // Without a definition of its own it is a plain color: no metal, which is what glTF takes it for else.
  Json definition = before ? Json::parse(material.definition) : Json{{"pbrMetallicRoughness", {{"metallicFactor", 0}}}};
  if (!before && !material.definition.empty()) mNotes.add("materials of which only name, color and texture are kept");
  change(definition, before.value_or(Material()), material);
  return dump(definition);
}

void GltfMaterialWriter::change(Json& definition, const Material& before, const Material& after) {
  if (before.name != after.name) definition["name"] = Json::parse(gltfString(after.name, mNotes));
  if (before.color != after.color) {
    Json& surface = definition["pbrMetallicRoughness"];
    surface.erase("baseColorFactor");
    if (after.color) {
      std::array<double, 4> color = *after.color;
      for (double& part : color) part = part >= 0 ? std::min(part, 1.0) : 0;
      if (color != *after.color) mNotes.add("colors of materials below 0 or above 1");
      surface["baseColorFactor"] = color;
      if (color[3] < 1) definition["alphaMode"] = "BLEND";
    }
  }
  if (before.texture != after.texture) {
    Json& surface = definition["pbrMetallicRoughness"];
    surface.erase("baseColorTexture");
    if (after.texture.empty()) return;
    if (isImageOfGltf(after.texture))
      surface["baseColorTexture"] = {{"index", textureOf(after.texture)}};
    else
      mNotes.add("textures that are neither PNG nor JPEG");
  }
}

std::size_t GltfMaterialWriter::textureOf(const std::string& file) {
  const auto [known, isNew] = mTextureOf.try_emplace(file, mTextures.size());
  if (isNew) {
    mTextures.push_back(fmt::format(R"({{"source":{}}})", mImages.size()));
    mImages.push_back(dump(Json{{"uri", toUri(file)}}));
  }
  return known->second;
}

std::set<std::string> GltfMaterialWriter::extensionsUsed() const {
  std::set<std::string> names;
  for (const auto* list : {&mMaterials, &mTextures, &mImages, &mSamplers})
    for (const std::string& text : *list)
      if (text.find("\"extensions\"") != std::string::npos) collectExtensions(Json::parse(text), names);
  return names;
}

std::set<std::string> GltfMaterialWriter::extensionsRequired() const {
  std::set<std::string> names;
  for (const std::string& name : extensionsUsed())
    if (mDocument && mDocument->extensionsRequired.contains(name)) names.insert(name);
  return names;
}

}  // namespace facetbox
