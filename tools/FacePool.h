#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <facetbox/io/Model.h>

namespace tool {

/// Faces from mFirstFace up to the next object belong to it.
struct ObjectStart {
  std::string mName;
  std::uint32_t mFirstFace = 0;
};

/// The faces of all objects of a model in one list, for what looks at all of them at once.
struct FacePool {
  std::vector<double> mVertices;           ///< x, y, z per vertex
  std::vector<std::uint32_t> mCounts;      ///< corners per face
  std::vector<std::uint32_t> mIndices;     ///< vertex per corner, face after face
  std::vector<std::uint32_t> mHoles;       ///< groups: outer face, its hole faces ..., facetbox::kNone
  std::vector<std::uint32_t> mMaterialOf;  ///< per face, facetbox::kNone for none
  std::vector<std::string> mMaterials;     ///< names
  std::vector<ObjectStart> mObjects;       ///< ascending

  std::size_t vertexCount() const { return mVertices.size() / 3; }
  std::size_t faceCount() const { return mCounts.size(); }

  /// The face after the last one of object `object`.
  std::uint32_t endFace(std::size_t object) const;
};

/// @throws InputError that starts with `name` where the model is too large for 32 bits
FacePool poolOf(const facetbox::Model& model, const std::string& name);

}  // namespace tool
