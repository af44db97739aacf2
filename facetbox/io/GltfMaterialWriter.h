#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <facetbox/io/GltfBuffer.h>
#include <facetbox/io/GltfMaterials.h>
#include <facetbox/io/Model.h>
#include <facetbox/io/Notes.h>

namespace facetbox {

/// Writes the materials of a model, and what they refer to. A material that was read from glTF, and has not been
/// changed since, is written in the words of its file; of a changed one, what was changed.
class GltfMaterialWriter {
 public:
  GltfMaterialWriter(const Model& model, GltfBuffer& buffer, Notes& notes);

  /// The index in the file. The materials of the model come first; one for faces without texture coordinates is added
  /// where the material has textures.
  std::size_t index(std::uint32_t material, bool isTextured);

  const std::vector<std::string>& materials() const { return mMaterials; }  ///< JSON, like the others
  const std::vector<std::string>& textures() const { return mTextures; }
  const std::vector<std::string>& images() const { return mImages; }
  const std::vector<std::string>& samplers() const { return mSamplers; }

  /// Extensions that these use, and those of them that a reader must know.
  std::set<std::string> extensionsUsed() const;
  std::set<std::string> extensionsRequired() const;

 private:
  void writeImages(GltfBuffer& buffer);
  std::string definitionOf(const Material& material);
  std::optional<Material> readBack(const Material& material) const;
  void change(nlohmann::ordered_json& definition, const Material& before, const Material& after);
  std::size_t textureOf(const std::string& file);

  Notes& mNotes;
  std::shared_ptr<const GltfDocument> mDocument;  // null: the model is of another format
  std::vector<std::string> mMaterials, mTextures, mImages, mSamplers;
  std::map<std::string, std::size_t> mTextureOf;          // by file
  std::map<std::uint32_t, std::size_t> mWithoutTextures;  // by material
};

/// A string as JSON; bytes that are no UTF-8 become the replacement character, which is noted.
std::string gltfString(const std::string& text, Notes& notes);

}  // namespace facetbox
