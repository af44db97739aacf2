#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include <tools/Camera.h>
#include <tools/Progress.h>
#include <tools/Scene.h>
#include <tools/Vector.h>

namespace tool {

/// What the ray through one point of the picture has hit.
struct Sample {
  float mDistance = std::numeric_limits<float>::infinity();  ///< infinite: nothing
  std::uint32_t mId = 0;
  float mNormal[3] = {};

  bool isHit() const { return mDistance < std::numeric_limits<float>::infinity(); }
  Vector normal() const { return {mNormal[0], mNormal[1], mNormal[2]}; }
};

/// What a camera sees of a scene: a square of samples per pixel, row by row from the top.
class SampleGrid {
 public:
  /// Casts one ray per sample and candidate object.
  /// @param width, height  of the picture, pixels
  /// @param perPixel       samples along each side of a pixel
  SampleGrid(const Scene& scene, const Camera& camera, int width, int height, int perPixel, Progress& progress);

  int width() const { return mWidth; }    ///< samples
  int height() const { return mHeight; }  ///< samples
  int perPixel() const { return mPerPixel; }
  const Sample& at(int x, int y) const { return mSamples[indexOf(x, y)]; }

  Vector directionTo(int x, int y) const { return mCamera.directionTo(acrossOf(x + 0.5), upOf(y + 0.5)); }

 private:
  struct Rectangle;

  std::size_t indexOf(int x, int y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(mWidth) + static_cast<std::size_t>(x);
  }
  // Positions in the grid as positions in the picture.
  double acrossOf(double x) const { return 2 * x / mWidth - 1; }
  double upOf(double y) const { return 1 - 2 * y / mHeight; }

  void trace(const Rectangle& part);
  std::vector<std::uint32_t> candidatesFor(const Rectangle& part) const;

  const Scene& mScene;
  const Camera& mCamera;
  int mPerPixel, mWidth, mHeight;
  std::vector<Sample> mSamples;
  std::vector<std::uint32_t> mAlwaysTried;
};

}  // namespace tool
