#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <facetbox/io/JsonText.h>
#include <facetbox/io/Model.h>

namespace facetbox {

/// The colors and images of a file. A face may have one of each, which together are one of Model::materials.
class CityJsonAppearance {
 public:
  CityJsonAppearance(const JsonText& text, std::string_view value, std::vector<Material>& materials);

  std::size_t materialCount() const { return mMaterials.size(); }
  std::size_t textureCount() const { return mTextures.size(); }
  const std::vector<double>& texCoords() const { return mTexCoords; }
  const std::string& materialTheme() const { return mMaterialTheme; }  ///< the default one; may be empty
  const std::string& textureTheme() const { return mTextureTheme; }
  std::string_view value() const { return mValue; }  ///< null where the file has none
  std::string_view verticesTexture() const { return mVerticesTexture; }

  /// The model's material for a color and an image; kNone for neither.
  std::uint32_t materialFor(std::uint32_t material, std::uint32_t texture);

  /// Counts what no surface has, once all are read.
  void noteUnused() const;

  /// Material and texture that each of Model::materials is made of.
  const std::vector<std::pair<std::uint32_t, std::uint32_t>>& pairs() const { return mPairs; }

 private:
  struct Entry {
    std::string_view text;
    Material content;
  };
  void readMaterials(std::string_view value);
  void readTextures(std::string_view value);
  void readTexCoords(std::string_view value);

  const JsonText& mText;
  std::string_view mValue, mVerticesTexture;
  std::vector<Material>& mModelMaterials;
  std::vector<Entry> mMaterials, mTextures;
  std::vector<double> mTexCoords;
  std::string mMaterialTheme, mTextureTheme;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> mPairs;
  std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> mNumbers;
  std::size_t mCopied = 0;
};

}  // namespace facetbox
