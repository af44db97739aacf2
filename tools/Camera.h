#pragma once

#include <array>
#include <optional>
#include <string>

#include <tools/Frame.h>
#include <tools/Vector.h>

namespace tool {

/// A part of the picture: -1 is its left and lower edge, 1 its right and upper one.
struct Window {
  double mLeft = -1, mBottom = -1, mRight = 1, mTop = 1;
};

/// A view as given on the command line, in the coordinates of the model.
struct CameraOptions {
  std::optional<Vector> mEye, mLookAt;
  Vector mUp{0, 1, 0};
  double mFieldOfView = 40;  ///< from the lower to the upper edge of the picture, degrees
};

/// A perspective view of a scene, in the scene's coordinates.
struct Camera {
  Vector mEye, mRight, mUp, mForward;  ///< directions of unit length, at right angles
  double mTanX = 1, mTanY = 1;         ///< half the picture's size at depth 1
  double mFocus = 1;                   ///< depth of the point looked at
  double mNear = 0.1, mFar = 10;       ///< depths that enclose the part of the scene in front of the eye

  /// By default the camera looks at the center of what the picture shows, from in front, right and above, at a distance
  /// where all faces just fit in the picture. O(corners) then.
  /// @param aspect  width of the picture divided by its height
  /// @throws InputError where the eye equals the point looked at, or `up` is parallel to the view direction
  Camera(const Frame& scene, const CameraOptions& options, double aspect);

  double depthOf(const Vector& point) const { return dot(point - mEye, mForward); }

  /// Direction to a point of the picture; its depth is 1.
  Vector directionTo(double x, double y) const { return mForward + mRight * (x * mTanX) + mUp * (y * mTanY); }

  /// View-projection matrix that maps the volume behind a window onto the cube from -1 to 1; column-major.
  std::array<float, 16> matrixOf(const Window& window) const;
};

/// A view volume as given on the command line.
struct ViewOptions {
  std::optional<std::array<Vector, 8>> mVolume;  ///< without it, the camera's
  CameraOptions mCamera;
  std::array<int, 2> mSize{640, 480};         ///< of the picture that the window is a part of
  std::array<double, 4> mWindow{0, 0, 1, 1};  ///< left, top, right, bottom, as parts of the picture

  double aspect() const { return static_cast<double>(mSize[0]) / mSize[1]; }
};

/// The matrix of this volume. @throws InputError
std::array<float, 16> matrixOf(const ViewOptions& options, const Frame& frame);

/// The matrix that maps a volume of eight corners onto the cube from -1 to 1, column-major. Corners 0 to 3 run around
/// the near face, corner k + 4 lies behind corner k.
/// @throws InputError where no matrix does so: the volume is flat, or its sides are not those of a block or a frustum
std::array<float, 16> matrixOfCorners(const std::array<Vector, 8>& corners, const std::string& option);

}  // namespace tool
