#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <facetbox/io/GltfBuffer.h>
#include <facetbox/io/GltfElements.h>
#include <facetbox/io/Model.h>
#include <facetbox/io/Notes.h>

namespace facetbox {

/// Writes objects as meshes of triangles, a primitive per material.
class GltfMeshWriter {
 public:
  /// The index in the file of a material, for faces with or without texture coordinates.
  using MaterialIndex = std::function<std::size_t(std::uint32_t material, bool isTextured)>;

  GltfMeshWriter(const Model& model, GltfBuffer& buffer, MaterialIndex materialIndex, Notes& notes)
      : mModel(model), mBuffer(buffer), mMaterialIndex(std::move(materialIndex)), mNotes(notes) {}

  struct Written {
    std::string mesh;                   ///< JSON
    std::array<double, 3> translation;  ///< that the node needs; map coordinates keep their digits by it
  };
  /// Nothing where the object has no triangles.
  std::optional<Written> write(const Object& object);

  /// To be called at the end.
  void noteRounding();

 private:
  std::array<double, 3> addPositions(const PolyMesh& triangles, const GltfElements& elements);
  std::vector<float> colorsOf(const Object& object, const GltfElements& elements);

  const Model& mModel;
  GltfBuffer& mBuffer;
  const MaterialIndex mMaterialIndex;
  Notes& mNotes;
  Rounding mCoordinates, mTexCoords;
};

}  // namespace facetbox
