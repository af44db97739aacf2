#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <facetbox/check.h>
#include <facetbox/io/Model.h>
#include <tools/Tolerance.h>

namespace tool {

class Joined;

/// What a check looks for, one after the other.
enum class DefectKind {
  shortFaces,
  repeatedCorners,
  zeroFaces,
  zeroEdges,
  doubleFaces,
  openEdges,
  overusedEdges,
  sameDirectionEdges,
  tCorners,
  sameVertices,
  unusedVertices,
  badHoles,
  selfIntersections
};
inline constexpr std::size_t kDefectKinds = 13;

struct DefectNames {
  const char* mOption;  ///< on the command line: "open-edges"
  const char* mKey;     ///< in JSON: "openEdges"
  const char* mLabel;   ///< in text: "edges used once"
};
const DefectNames& namesOf(DefectKind kind);

/// The kind of that name on the command line.
std::optional<DefectKind> defectNamed(std::string_view option);

/// Where a defect is.
struct Place {
  std::uint32_t mObject = 0;                   ///< in the model as it was read
  std::vector<std::uint32_t> mFaces;           ///< numbers in the file, from 1
  std::vector<std::uint32_t> mVertices;        ///< likewise
  std::vector<const double*> mPoints;          ///< of the vertices; in the model that was checked
  std::optional<facetbox::DroppedHole> mHole;  ///< with face numbers of the file
};

/// All defects of a kind.
struct DefectList {
  DefectKind mKind;
  std::size_t mCount = 0;
  bool mIsCounted = true;           ///< false: there are more, which were not counted
  std::vector<Place> mPlaces = {};  ///< the first ones
};

struct DefectOptions {
  std::optional<Tolerance> mZeroEdges, mZeroArea, mTCornerDistance;
  bool mTCorners = false, mSelfIntersections = false;
  std::size_t mLimit = 0;  ///< places of a kind; 0: all
};

/// What facetbox::check() finds in each object.
struct CheckedModel {
  std::vector<DefectList> mLists;  ///< by kind; those that were not looked for are missing
  std::size_t mFaces = 0, mVertices = 0, mComponents = 0;
  bool mIsClosed = true, mIsOriented = true;  ///< all objects
  double mArea = 0, mVolume = 0;
};

/// @param model   has to outlive the result
/// @param joined  where `model` is one object made of several; may be null
CheckedModel checkModel(const facetbox::Model& model, const Joined* joined, const DefectOptions& options);

}  // namespace tool
