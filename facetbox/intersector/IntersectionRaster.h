#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

/// Where a point shows.
struct RasterPosition {
  std::int32_t mColumn, mRow;
  std::int32_t mDepthFlag;  ///< 1 between the near and the far plane, both included, else -1
};

/// A mask of cells over a part of a viewport. Refers to the caller's cells.
class IntersectionRaster {
 public:
  /// The arguments of Intersector::testRaster().
  IntersectionRaster(const float matrix[16], const int viewport[4], const std::int32_t* raster, int rasterWidth,
                     int rasterHeight, int offsetX, int offsetY);
  virtual ~IntersectionRaster() = default;

  int width() const { return mRasterWidth; }
  int height() const { return mRasterHeight; }

  /// Single precision all the way, in the order in which it is written.
  RasterPosition project(float x, float y, float z) const {
    const float* m = mMatrix;
    const float w = std::fabs(m[3] * x + m[7] * y + m[11] * z + m[15]);
    float nx = 0, ny = 0, nz = 0;
    // Compared in double: no float equals this bound.
    if (static_cast<double>(w) > 1e-25) {
      nx = (m[0] * x + m[4] * y + m[8] * z + m[12]) / w;
      ny = (m[1] * x + m[5] * y + m[9] * z + m[13]) / w;
      nz = (m[2] * x + m[6] * y + m[10] * z + m[14]) / w;
    }
    const float sx = nx * 0.5f + 0.5f, sy = ny * 0.5f + 0.5f, sz = nz * 0.5f + 0.5f;
    return {rounded(mViewport[2] * sx + mViewport[0] - mOffsetX),
            rounded(mViewport[3] - (sy * mViewport[3] + mViewport[1]) - mOffsetY), 0 <= sz && sz <= 1 ? 1 : -1};
  }

  /// Whether a position lies between the planes, on a set cell.
  bool isUsable(const RasterPosition& p) const {
    return p.mDepthFlag == 1 && 0 <= p.mColumn && p.mColumn < mRasterWidth && 0 <= p.mRow && p.mRow < mRasterHeight &&
           *cellAt(p.mColumn, p.mRow) != 0;
  }

  /// Whether all cells behind the first on the line between two usable positions are set. O(length).
  bool isLineSet(std::int32_t fromColumn, std::int32_t fromRow, std::int32_t toColumn, std::int32_t toRow) const;

 private:
  const std::int32_t* cellAt(std::int32_t column, std::int32_t row) const {
    return mRaster + (static_cast<std::ptrdiff_t>(mRasterWidth) * row + column);
  }

  /// The nearest integer, halves away from zero; beyond 32 bits the nearest that they hold, for NaN the lowest.
  static std::int32_t rounded(float value) {
    const double x = value;
    // A half can be added to a float without rounding in double, unless it is so small that nothing comes of it.
    const double raised = x + std::copysign(0.5, x);
    const double bounded = std::min(raised > -2147483648.0 ? raised : -2147483648.0, 2147483647.0);
    return static_cast<std::int32_t>(bounded);
  }

  float mMatrix[16];
  float mViewport[4];  ///< x, y, width, height
  const std::int32_t* mRaster;
  std::int32_t mRasterWidth, mRasterHeight;
  float mOffsetX, mOffsetY;
};
