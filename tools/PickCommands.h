#pragma once

#include <array>
#include <optional>
#include <string>

#include <tools/Camera.h>
#include <tools/MeshMaker.h>
#include <tools/Vector.h>

namespace tool {

struct PickOptions {
  std::string mModel;
  Grouping mGrouping = Grouping::object;
  Vector mOrigin, mDirection;
  bool mJson = false;
};

/// Prints what a ray hits first, or "nothing". @throws InputError, RunError
void runPick(const PickOptions& options);

struct SelectOptions {
  std::string mModel;
  Grouping mGrouping = Grouping::object;
  std::optional<std::array<Vector, 8>> mVolume;  ///< else the camera's
  CameraOptions mCamera;
  std::array<int, 2> mSize{640, 480};         ///< of the picture that the window is a part of
  std::array<double, 4> mWindow{0, 0, 1, 1};  ///< left, top, right, bottom, as parts of the picture
  bool mWholeInside = false;
  bool mJson = false;
};

/// Prints what lies in a view volume, a line for each, or "nothing". @throws InputError, RunError
void runSelect(const SelectOptions& options);

}  // namespace tool
