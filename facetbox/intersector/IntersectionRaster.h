#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include <facetbox/triangles/EdgeList.h>

namespace util {

/// Where a point shows.
struct RasterPosition {
  std::int32_t mColumn, mRow;
  std::int32_t mDepthFlag;  ///< 1 between the near and the far plane, both included, else -1
};

struct RasterCell {
  std::int32_t mColumn, mRow;
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
           *at({p.mColumn, p.mRow}) != 0;
  }

  /// Whether all cells on the edges of a mesh are set, given the usable positions of its vertices. O(length).
  bool areEdgesSet(const EdgeList& edges, const RasterCell* cells) const;

 private:
  bool isLineSet(const RasterCell& from, const RasterCell& to) const;

  const std::int32_t* at(const RasterCell& cell) const {
    return mRaster + (static_cast<std::ptrdiff_t>(mRasterWidth) * cell.mRow + cell.mColumn);
  }

  /// The nearest integer, halves away from zero; beyond 32 bits the nearest that they hold, for NaN the lowest.
  static std::int32_t rounded(float value) {
    // The float before a half: with the half itself, the sum with the float before a half would be rounded up to 1.
    const float raised = value + std::copysign(0x1.fffffep-2f, value);
    const float bounded = raised > -0x1p31f ? raised : -0x1p31f;
    return bounded < 0x1p31f ? static_cast<std::int32_t>(bounded) : std::numeric_limits<std::int32_t>::max();
  }

  float mMatrix[16];
  float mViewport[4];  ///< x, y, width, height
  const std::int32_t* mRaster;
  std::int32_t mRasterWidth, mRasterHeight;
  float mOffsetX, mOffsetY;
};

}  // namespace util
