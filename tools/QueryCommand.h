#pragma once

#include <optional>
#include <string>

#include <tools/Camera.h>
#include <tools/MeshMaker.h>
#include <tools/Vector.h>

namespace tool {

struct Ray {
  Vector mOrigin, mDirection;
};

struct QueryOptions {
  std::string mModel;
  Grouping mGrouping = Grouping::object;
  ViewOptions mView;
  bool mWholeInside = false;  ///< of the view volume
  bool mWantsNearest = false;
  std::string mRaster;     ///< a picture that tells which cells are set; empty for none
  std::string mOutput;     ///< picture of what the raster makes of the objects; empty for none
  std::string mWriteMask;  ///< picture of the cells that the objects cover; empty for none, else there is no question
  std::optional<Ray> mRay;
  bool mJson = false;
};

/// Asks one question about each object by itself, and prints the answers: whether it lies on the set cells of a raster,
/// where a ray meets it, where it is nearest in a view volume, or, if none of these is wanted, whether it lies in the
/// volume. Or writes a mask and prints nothing.
/// @throws InputError, RunError
void runQuery(const QueryOptions& options);

}  // namespace tool
