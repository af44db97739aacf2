#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <facetbox/util/Mesh.h>
#include <tools/Model.h>

namespace tool {

enum class Grouping { object, face, material };

/// A model's faces of three corners and more, in sets; a face and its holes are in one set. Faces that are holes of
/// each other only are in none. Set s is numbered mNumbers[s], counted from 1: the object, the face, or the material
/// (one above the last for faces without). No set is empty; numbers ascend.
struct FaceSets {
  std::vector<std::uint32_t> mFaces;  ///< set after set, ascending within each
  std::vector<std::size_t> mStarts;   ///< of each set in mFaces, and its end
  std::vector<std::uint32_t> mNumbers;

  std::size_t size() const { return mNumbers.size(); }
  std::span<const std::uint32_t> faces(std::size_t set) const {
    return std::span(mFaces).subspan(mStarts[set], mStarts[set + 1] - mStarts[set]);
  }
};

/// O(faces log holes).
FaceSets groupFaces(const Model& model, Grouping grouping);

/// Whatever material and group a face is marked with: one label per face.
std::vector<Label> labelsOf(const Model& model);

/// Makes meshes for the library out of sets of a model's faces, with the holes.
class MeshMaker {
 public:
  /// The model must stay as it is.
  explicit MeshMaker(const Model& model);

  /// @param faces  a set of groupFaces(). O(corners of the set).
  util::Mesh make(std::span<const std::uint32_t> faces);

  /// Of the mesh made last: vertex v stands at corner corners()[v] of the model, the first of those where it does.
  std::span<const std::uint32_t> corners() const { return mCorners; }
  /// Of the mesh made last: x, y, z per vertex.
  std::span<const float> coordinates() const { return mCoordinates; }
  /// A face's first corner.
  std::size_t firstCorner(std::uint32_t face) const { return mFirstCorners[face]; }

 private:
  const Model& mModel;
  std::vector<std::size_t> mFirstCorners;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> mHolesOf;  // outer face and hole face, ascending
  std::vector<std::uint32_t> mLocalVertices;  // per vertex of the model, kept unmapped between calls
  std::vector<std::uint32_t> mIndices, mHoles, mCorners;
  std::vector<std::int32_t> mCounts;
  std::vector<float> mCoordinates;
};

}  // namespace tool
