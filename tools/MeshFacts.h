#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <tools/Model.h>

namespace tool {

/// Counts and defects of a model. Faces with fewer than three corners are counted as illegal and otherwise ignored, as
/// the library ignores them.
struct MeshFacts {
  std::map<std::size_t, std::size_t> mFacesByCorners;
  std::array<float, 3> mMin = {}, mMax = {};  ///< box around all vertices, used or not
  double mDiagonal = 0;
  std::vector<std::pair<std::string, std::size_t>> mFacesByMaterial;  ///< those in use, in order of appearance
  std::size_t mMaterialRuns = 0;  ///< sequences of faces of one material; 0 when no face has a material
  std::size_t mHoleGroups = 0;    ///< faces with holes
  std::size_t mHoleFaces = 0;

  std::size_t mIllegalFaces = 0;         ///< fewer than three corners
  std::size_t mRepeatingFaces = 0;       ///< visit a vertex twice
  std::size_t mZeroAreaFaces = 0;        ///< area exactly 0
  std::size_t mNearlyZeroAreaFaces = 0;  ///< area at most 1e-12 of the squared diagonal, zero included
  std::size_t mZeroLengthEdges = 0;      ///< edges whose ends lie at the same position
  std::size_t mBorderEdges = 0;          ///< used once
  std::size_t mOverusedEdges = 0;        ///< used more than twice
  std::size_t mSameDirectionEdges = 0;   ///< used twice, both times in the same direction
  std::size_t mUnusedVertices = 0;       ///< no face refers to them
  // Filled in by probeDefects().
  std::size_t mDuplicateVertices = 0;        ///< at the position of an earlier one
  std::size_t mNearlyDuplicateVertices = 0;  ///< within 1e-4 of the diagonal of an earlier one, duplicates included
  std::size_t mDoubleFaces = 0;              ///< repeat an earlier face, in either direction
};

/// Only the length of the bounding box's diagonal.
double boundingBoxDiagonal(const Model& model);

/// Whether the list has a vertex more than once; `scratch` is working space.
bool repeatsVertex(std::span<const std::uint32_t> corners, std::vector<std::uint32_t>& scratch);

/// O(corners log corners). The model must have passed checkModel().
MeshFacts gatherFacts(const Model& model);

}  // namespace tool
