#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <tools/Model.h>

namespace tool {

/// The objects of a model, each as a mesh of the library, and the way back.
///
/// A mesh has the vertices that its faces use, and those that belong to the object and no face of the model uses; in
/// the order of the model, as its texture coordinates. The label of a face is the number of what it is marked with.
class ObjectMeshes {
 public:
  /// Finds the parts of all objects in one pass.
  /// @param model  must not change or go away
  /// @param name   of the model, for messages
  /// @throws InputError where a face is a hole of two faces, or is a hole and has holes
  ObjectMeshes(const Model& model, const std::string& name);

  std::size_t size() const { return mSlices.size(); }
  facetbox::PolyMesh make(std::size_t object) const;

  /// Appends a mesh with the labels of make() to `result` as the object that it was made from. Texture coordinates that
  /// no corner uses are dropped.
  /// @param result  has the names (mMaterials, mGroups) of the model
  void append(std::size_t object, const facetbox::PolyMesh& mesh, Model& result) const;

 private:
  struct Slice {
    std::size_t mFirstCorner = 0, mEndCorner = 0;
    std::vector<std::uint32_t> mUnusedVertices;  // its vertices that no face of the model uses, ascending
    std::vector<std::uint32_t> mHoles;           // its hole groups, in face numbers of the object
  };

  void sliceCorners();
  void sliceHoles(const std::string& name);
  void numberLabels();

  const Model& mModel;
  std::vector<Slice> mSlices;
  std::vector<Label> mLabels;              // by number
  std::vector<std::uint32_t> mFaceLabels;  // number per face of the model
};

/// An empty model with the names and libraries of `model`, to append objects to.
Model emptyLike(const Model& model);

}  // namespace tool
