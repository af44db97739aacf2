#pragma once

#include <string>

#include <tools/Camera.h>
#include <tools/MeshMaker.h>
#include <tools/Renderer.h>

namespace tool {

struct RenderOptions {
  std::string mModel;
  std::string mOther;   ///< drawn to the right of the model, as the same camera sees it; empty: none
  std::string mOutput;  ///< ends in .png, or is a device or a pipe
  Grouping mGrouping = Grouping::object;
  bool mDefects = false;        ///< draws defects, and a legend below
  bool mIntersections = false;  ///< among them faces that intersect
  CameraOptions mCamera;
  RenderSettings mSettings;
};

/// Draws a model into a PNG file. @throws InputError, RunError: nothing has been written then
void runRender(const RenderOptions& options);

}  // namespace tool
