#pragma once

#include <optional>
#include <string>

#include <facetbox/io/Format.h>
#include <tools/Camera.h>
#include <tools/MeshMaker.h>
#include <tools/Vector.h>

namespace tool {

struct Ray {
  Vector mOrigin, mDirection;
};

struct QueryOptions {
  std::string mModel;  ///< "-" is standard input
  std::optional<facetbox::Format> mFrom;
  Grouping mGrouping = Grouping::object;
  ViewOptions mView;
  bool mWholeInside = false;  ///< of the view volume
  bool mWantsNearest = false;
  std::string mRaster;  ///< a picture of the set cells; empty for none
  std::string mOutput;  ///< picture of the raster's verdict on the objects; empty for none
  std::string
      mWriteMask;  ///< picture of the cells that the objects cover; if set, nothing else is asked; empty for none
  std::optional<Ray> mRay;
  bool mJson = false;
};

/// Answers one question about each object separately: does it lie on the set cells of a raster, where does a ray hit
/// it, where is it nearest in a view volume, or, by default, does it lie in the volume? Or writes a mask and prints
/// nothing.
/// @throws InputError, RunError
void runQuery(const QueryOptions& options);

}  // namespace tool
