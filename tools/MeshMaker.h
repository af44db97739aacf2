#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <facetbox/util/Mesh.h>
#include <tools/FacePool.h>
#include <tools/Vector.h>

namespace tool {

enum class Grouping { object, face, material };

/// A model's faces with three or more corners, in sets. A face and its holes are in one set. Faces that are only holes
/// of each other are in none. mNumbers[s] is the number of set s, counted from 1: of its object, face or material
/// (faces without material have the last number plus one). No set is empty; numbers ascend.
struct FaceSets {
  std::vector<std::uint32_t> mFaces;  ///< set after set, ascending within each
  std::vector<std::size_t> mStarts;   ///< start of each set in mFaces, and the end of the last
  std::vector<std::uint32_t> mNumbers;

  std::size_t size() const { return mNumbers.size(); }
  std::span<const std::uint32_t> faces(std::size_t set) const {
    return std::span(mFaces).subspan(mStarts[set], mStarts[set + 1] - mStarts[set]);
  }
};

/// O(faces log holes).
FaceSets groupFaces(const FacePool& model, Grouping grouping);

/// Makes meshes for the library from sets of a model's faces, with their holes.
class MeshMaker {
 public:
  /// Meshes have the model's coordinates minus `center`, times `scale`, as floats.
  /// @param model  must not change or go away
  MeshMaker(const FacePool& model, const Vector& center, double scale);

  /// @param faces  a set of groupFaces(). O(corners of the set).
  util::Mesh make(std::span<const std::uint32_t> faces);

  /// For the mesh made last: x, y, z per vertex.
  std::span<const float> coordinates() const { return mCoordinates; }

 private:
  const FacePool& mModel;
  const Vector mCenter;
  const double mScale;
  std::vector<std::size_t> mFirstCorners;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> mHolesOf;  // outer face and hole face, ascending
  std::vector<std::uint32_t> mLocalVertices;  // per vertex of the model, kept unmapped between calls
  std::vector<std::uint32_t> mIndices, mHoles,
      mVertices;  // of the mesh made last, vertices by their numbers in the model
  std::vector<std::int32_t> mCounts;
  std::vector<float> mCoordinates;
};

}  // namespace tool
