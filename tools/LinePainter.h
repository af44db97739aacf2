#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include <tools/Arguments.h>
#include <tools/Camera.h>
#include <tools/PngFile.h>
#include <tools/SampleGrid.h>
#include <tools/Vector.h>

namespace tool {

/// How much of each pixel is painted, from 0 to 1. What is painted twice counts once: lines that end where others begin
/// make no knots.
class Coverage {
 public:
  Coverage(int width, int height);

  int width() const { return mWidth; }
  int height() const { return mHeight; }
  float at(int x, int y) const { return mParts[indexOf(x, y)]; }
  void raise(int x, int y, float part);

  /// Paints it over a picture of the same size.
  void blendInto(Picture& picture, const Color& color) const;

 private:
  std::size_t indexOf(int x, int y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(mWidth) + static_cast<std::size_t>(x);
  }

  int mWidth, mHeight;
  std::vector<float> mParts;
};

/// A straight line between points of the picture, in pixels from its upper left corner, with round ends.
/// @param strengthAt  called for pixels that the line touches, with the part of the way to the second point that is
///                    nearest to the pixel: how much the line shows there, from 0 to 1
void paintLine(Coverage& coverage, double x0, double y0, double x1, double y1, double width,
               const std::function<double(double part)>& strengthAt);

enum class DotShape { disc, diamond, square };

/// @param radius  pixels; of a square, half its side
void paintDot(Coverage& coverage, double x, double y, double radius, DotShape shape, double strength);

/// Paints edges and vertices of a scene, smoothly and with constant widths, as far as no face hides them.
class LinePainter {
 public:
  /// @param hidden  how much of what is hidden shows, from 0 to 1
  LinePainter(const SampleGrid& grid, const Camera& camera, double hidden)
      : mGrid(grid), mCamera(camera), mHidden(hidden) {}

  /// @param width  pixels
  void paintEdge(Coverage& coverage, const Vector& from, const Vector& to, double width) const;
  /// Wholly visible or wholly hidden.
  void paintVertex(Coverage& coverage, const Vector& place, double radius, DotShape shape) const;

 private:
  struct Point {
    double mColumn, mRow;  // pixels
    double mDepth;
  };

  Vector projected(const Vector& place) const;
  Point pointOf(const Vector& projected) const;
  template <typename Use>
  void forSamplesAround(const Point& point, Use use) const;
  bool isHiddenBy(const Sample& sample, const Vector& ray, const Point& point) const;

  const SampleGrid& mGrid;
  const Camera& mCamera;
  double mHidden;
};

}  // namespace tool
