#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <facetbox/io/Model.h>

namespace tool {

/// Vertices closer than this fraction of the bounding box's diagonal count as nearly the same.
constexpr double kNearlySame = 1e-4;

/// Counts and defects of a model. Defects are those that facetbox::check() finds in each object on its own, added up.
struct MeshFacts {
  std::size_t mVertices = 0, mFaces = 0, mCorners = 0, mTexCoords = 0;
  std::map<std::size_t, std::size_t> mFacesByCorners;
  std::array<double, 3> mMin = {}, mMax = {};  ///< box around all vertices, used or not
  double mDiagonal = 0;
  std::vector<std::pair<std::string, std::size_t>> mFacesByMaterial;  ///< those in use, in order of appearance
  std::size_t mMaterialRuns = 0;  ///< sequences of faces of one material; 0 when no face has a material
  std::size_t mHoleGroups = 0;    ///< faces with holes
  std::size_t mHoleFaces = 0;

  double mArea = 0, mVolume = 0;
  bool mIsSolid = true;  ///< all objects are closed and oriented, so that there is a volume

  std::size_t mIllegalFaces = 0;             ///< fewer than three corners
  std::size_t mRepeatingFaces = 0;           ///< visit a vertex twice
  std::size_t mZeroAreaFaces = 0;            ///< area exactly 0, as far as doubles tell
  std::size_t mNearlyZeroAreaFaces = 0;      ///< area at most 1e-12 of the squared diagonal, zero included
  std::size_t mZeroLengthEdges = 0;          ///< edges whose ends lie at the same position
  std::size_t mBorderEdges = 0;              ///< used once
  std::size_t mOverusedEdges = 0;            ///< used more than twice
  std::size_t mSameDirectionEdges = 0;       ///< used twice, both times in the same direction
  std::size_t mUnusedVertices = 0;           ///< no face refers to them
  std::size_t mDuplicateVertices = 0;        ///< at the position of an earlier one
  std::size_t mNearlyDuplicateVertices = 0;  ///< within 1e-4 of the diagonal of an earlier one, duplicates included
  std::size_t mDoubleFaces = 0;              ///< repeat an earlier face, in either direction
  std::size_t mBadHoles = 0;                 ///< holes that the clean-up drops before its first step
};

/// Only the length of the bounding box's diagonal.
double boundingBoxDiagonal(const facetbox::Model& model);
double boundingBoxDiagonal(const facetbox::PolyMesh& mesh);

MeshFacts gatherFacts(const facetbox::Model& model);

}  // namespace tool
