#pragma once

#include <string>

#include <tools/Camera.h>
#include <tools/MeshMaker.h>
#include <tools/Renderer.h>

namespace tool {

struct RenderOptions {
  std::string mModel;
  std::string mOutput;  ///< ends in .png, or is a device or a pipe
  Grouping mGrouping = Grouping::object;
  CameraOptions mCamera;
  RenderSettings mSettings;
};

/// Draws a model into a PNG file. @throws InputError, RunError: nothing has been written then
void runRender(const RenderOptions& options);

}  // namespace tool
