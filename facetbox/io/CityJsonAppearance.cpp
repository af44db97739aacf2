#include <facetbox/io/CityJsonAppearance.h>

#include <set>

#include <fmt/format.h>

#include <facetbox/PolyMesh.h>

namespace facetbox {

CityJsonAppearance::CityJsonAppearance(const JsonText& text, std::string_view value, std::vector<Material>& materials)
    : mText(text), mValue(value), mModelMaterials(materials) {
  if (value.data() == nullptr) return;
  const auto [colors, images, texCoords, textureTheme, materialTheme] =
      text.members<5>(value, "the appearance",
                      {"materials", "textures", "vertices-texture", "default-theme-texture", "default-theme-material"});
  if (colors.data() != nullptr) readMaterials(colors);
  if (images.data() != nullptr) readTextures(images);
  if (texCoords.data() != nullptr) readTexCoords(texCoords);
  if (textureTheme.data() != nullptr) mTextureTheme = text.string(textureTheme, "the default theme of textures");
  if (materialTheme.data() != nullptr) mMaterialTheme = text.string(materialTheme, "the default theme of materials");
  mVerticesTexture = texCoords;
}

void CityJsonAppearance::readMaterials(std::string_view value) {
  for (JsonCursor cursor = mText.array(value, "the materials"); cursor.next();) {
    Entry entry;
    entry.text = cursor.skip();
    const auto [name, color, transparency] =
        mText.members<3>(entry.text, "a material", {"name", "diffuseColor", "transparency"});
    if (name.data() != nullptr) entry.content.name = mText.string(name, "the name of a material");
    if (color.data() != nullptr) {
      std::array<double, 4> rgba = {0, 0, 0, 1};
      std::size_t count = 0;
      for (JsonCursor channel = mText.array(color, "a color"); channel.next(); ++count) {
        const std::string_view part = channel.skip();
        if (count < 3) rgba[count] = mText.number(part, "a color channel");
      }
      if (count != 3) mText.failExpecting(color, "a color must have three channels");
      if (transparency.data() != nullptr) rgba[3] = 1 - mText.number(transparency, "the transparency");
      entry.content.color = rgba;
    }
    mMaterials.push_back(std::move(entry));
  }
}

void CityJsonAppearance::readTextures(std::string_view value) {
  for (JsonCursor cursor = mText.array(value, "the textures"); cursor.next();) {
    Entry entry;
    entry.text = cursor.skip();
    const auto [image] = mText.members<1>(entry.text, "a texture", {"image"});
    if (image.data() == nullptr) mText.failExpecting(entry.text, "a texture must have an image");
    entry.content.texture = mText.string(image, "the image of a texture");
    mTextures.push_back(std::move(entry));
  }
}

void CityJsonAppearance::readTexCoords(std::string_view value) {
  for (JsonCursor cursor = mText.array(value, "the texture vertices"); cursor.next();) {
    mText.context().poll();
    const std::string_view pair = cursor.skip();
    std::size_t count = 0;
    for (JsonCursor number = mText.array(pair, "a texture vertex"); number.next(); ++count)
      mTexCoords.push_back(mText.number(number.skip(), "a texture coordinate"));
    if (count != 2) mText.failExpecting(pair, "a texture vertex must be two numbers");
  }
}

std::uint32_t CityJsonAppearance::materialFor(std::uint32_t material, std::uint32_t texture) {
  if (material == kNone && texture == kNone) return kNone;
  const auto [known, isNew] =
      mNumbers.try_emplace({material, texture}, static_cast<std::uint32_t>(mModelMaterials.size()));
  if (!isNew) return known->second;
  Material made;
  if (material != kNone) made = mMaterials[material].content;
  const auto words = [](const char* name, const std::vector<Entry>& entries, std::uint32_t index) {
    return index == kNone ? std::string() : fmt::format("\"{}\":{}", name, entries[index].text);
  };
  if (texture != kNone) made.texture = mTextures[texture].content.texture;
  made.definition = fmt::format("{{{}{}{}}}", words("material", mMaterials, material),
                                material != kNone && texture != kNone ? "," : "", words("texture", mTextures, texture));
  // A few materials that are long and in use with very many textures must not fill the memory.
  mCopied += made.definition.size() + made.name.size() + made.texture.size();
  if (mCopied > 3 * mText.root().size() + 4096)
    mText.context().fail("its materials and textures are combined in too many ways to be read");
  mModelMaterials.push_back(std::move(made));
  mPairs.emplace_back(material, texture);
  return known->second;
}

void CityJsonAppearance::noteUnused() const {
  std::set<std::uint32_t> materials, textures;
  for (const auto& [material, texture] : mPairs) {
    if (material != kNone) materials.insert(material);
    if (texture != kNone) textures.insert(texture);
  }
  Notes& notes = mText.context().notes();
  notes.add("materials that no surface has (kept in CityJSON only)", mMaterials.size() - materials.size());
  notes.add("textures that no surface has (kept in CityJSON only)", mTextures.size() - textures.size());
}

}  // namespace facetbox
