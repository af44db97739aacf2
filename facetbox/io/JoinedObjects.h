#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include <facetbox/io/Model.h>
#include <facetbox/io/Notes.h>

namespace facetbox {

/// The objects of a model one after the other, for formats that know vertices and faces, but neither objects nor holes.
/// Faces with holes are cut into triangles. What such a format cannot carry is noted, but for colors and texture
/// coordinates: formats differ in them.
class JoinedObjects {
 public:
  struct Part {
    const Object* object;
    const PolyMesh* mesh;  ///< without holes
    std::uint32_t firstVertex;
    const std::vector<float>* colors;  ///< as of the object; made vertices are white

    /// Per vertex the only pair of texture coordinates that its corners have; empty where that is not so.
    std::vector<std::uint32_t> pairOfVertex = {};
  };

  /// @param model  must stay
  JoinedObjects(const Model& model, Notes& notes);

  const std::vector<Part>& parts() const { return mParts; }
  std::uint64_t vertexCount() const { return mVertexCount; }
  /// Without faces that have no corners: these are noted, and not to be written.
  std::uint64_t faceCount() const { return mFaceCount; }

  bool hasTexCoords() const;
  /// Whether every vertex has one pair of them.
  bool hasTexCoordPerVertex() const;
  /// Whether every vertex has a color. Those of fewer are noted.
  bool hasColors() const { return mHasColors; }

 private:
  const std::vector<float>* colorsOf(const Object& object, const PolyMesh& mesh, Notes& notes);
  void checkColors(Notes& notes);

  std::vector<Part> mParts;
  std::deque<PolyMesh> mCutMeshes;
  std::deque<std::vector<float>> mLongerColors;
  std::uint64_t mVertexCount = 0, mFaceCount = 0;
  bool mHasColors = false;
};

/// The face's material; null where it has none.
const Material* materialOf(const Model& model, const PolyMesh& mesh, std::size_t face);

}  // namespace facetbox
