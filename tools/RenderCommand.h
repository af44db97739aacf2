#pragma once

#include <optional>
#include <string>

#include <facetbox/io/Format.h>
#include <tools/Camera.h>
#include <tools/Errors.h>
#include <tools/MeshMaker.h>
#include <tools/Renderer.h>

namespace tool {

struct RenderOptions {
  std::string mModel;   ///< "-" is standard input
  std::string mOther;   ///< drawn to the right of the model, as the same camera sees it; empty: none
  std::string mOutput;  ///< ends in .png, or is a device or a pipe; "-" is standard output
  std::optional<facetbox::Format> mFrom;
  Grouping mGrouping = Grouping::object;
  bool mDefects = false;        ///< draws defects, and a legend below
  bool mIntersections = false;  ///< among them faces that intersect
  CameraOptions mCamera;
  RenderSettings mSettings;
  bool mJson = false;
};

/// Draws a model into a PNG file. Where that fails, nothing has been written.
/// @throws InputError, facetbox::WriteError where the picture cannot be drawn whatever the model
ExitCode runRender(const RenderOptions& options);

}  // namespace tool
