#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include <facetbox/io/GltfFile.h>
#include <facetbox/io/Model.h>

namespace facetbox {

/// What materials of a glTF file refer to, so that they can be written again.
class GltfDocument : public Document {
 public:
  struct Image {
    std::string definition;  ///< JSON
    std::string bytes;       ///< of an image inside the file; empty: it is beside it
    std::string mimeType;    ///< of the bytes
  };

  std::vector<Image> images;
  std::vector<std::string> textures, samplers;  ///< JSON
  std::set<std::string> extensionsRequired;
  /// The file of each texture, "" where it is inside the model.
  std::vector<std::string> textureFiles;
};

/// Notes images that are inside the file.
std::shared_ptr<const GltfDocument> readGltfDocument(GltfFile& file);

/// What a material of a file says, in the terms that formats share.
Material gltfMaterial(const JsonValue& definition, const GltfDocument& document);

}  // namespace facetbox
