#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <facetbox/io/GltfAccessor.h>
#include <facetbox/io/GltfFile.h>
#include <facetbox/io/GltfNodes.h>
#include <facetbox/io/Model.h>
#include <facetbox/io/Numbered.h>

namespace facetbox {

/// The meshes of a file as its nodes show them. However many nodes show a mesh, it is read three times at most, and
/// what is odd about it is noted once.
class GltfMeshes {
 public:
  /// @param marks  of the model
  GltfMeshes(GltfFile& file, std::vector<Mark>& marks);

  /// The mesh with its name, placed.
  /// @return false where it has no triangles
  bool show(const JsonValue& index, const GltfTransform& transform, Object& object);

  /// Notes the name of a mesh that is not that of the node.
  void noteOtherName(const JsonValue& index, const std::string& nameOfNode);

  /// Notes what no node and no triangle uses.
  void noteUnused() const;

 private:
  struct Mesh {
    std::size_t shown = 0;
    bool isEmpty = false, isNameNoted = false;
    std::string name = {};
    // From the second node on, before it is placed: as it is, and turned inside out.
    std::array<std::unique_ptr<const Object>, 2> kept = {};
  };

  Mesh& meshOf(const JsonValue& index) { return mMeshes[static_cast<std::size_t>(index.integer(mMeshes.size()))]; }
  void readAgain(const JsonValue& value, Mesh& mesh, bool isMirrored, Object& object);
  void place(const JsonValue& value, const GltfTransform& transform, PolyMesh& mesh) const;

  GltfFile& mFile;
  Numbered<Mark> mMarks;
  GltfAccessors mAccessors;
  std::map<std::size_t, std::vector<bool>> mTouched;  // per accessor of positions: what triangles use
  std::vector<Mesh> mMeshes;
};

}  // namespace facetbox
