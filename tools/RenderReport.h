#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <facetbox/io/Model.h>
#include <tools/Camera.h>
#include <tools/DefectMarks.h>
#include <tools/Frame.h>
#include <tools/Progress.h>

namespace tool {

/// How much of a model there is to draw.
struct DrawnCounts {
  std::size_t mObjects = 0, mFaces = 0;  ///< those with faces of three or more corners; such faces, with their holes
  std::size_t mTriangles = 0;            ///< that these are cut into
};

/// Triangulates all faces: for those who ask only.
DrawnCounts countDrawn(const Frame& frame, const std::string& name, Progress& progress);

/// What is told of one model in a picture.
struct DrawnModel {
  std::string mName;  ///< as given on the command line
  DrawnCounts mCounts = {};
  std::optional<DefectMarks> mMarks = {};  ///< none where defects are not drawn
  bool mIntersections = false;             ///< whether `mMarks` has faces that intersect
  std::vector<facetbox::Note> mNotes = {};
};

nlohmann::ordered_json jsonOf(const DrawnModel& model);

/// @param camera  with an eye and a point looked at
nlohmann::ordered_json jsonOf(const CameraOptions& camera);

}  // namespace tool
