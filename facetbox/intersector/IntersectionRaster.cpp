#include <facetbox/intersector/IntersectionRaster.h>

IntersectionRaster::IntersectionRaster(const float matrix[16], const int viewport[4], const std::int32_t* raster,
                                       int rasterWidth, int rasterHeight, int offsetX, int offsetY)
    : mRaster(raster),
      mRasterWidth(rasterWidth),
      mRasterHeight(rasterHeight),
      mOffsetX(static_cast<float>(offsetX)),
      mOffsetY(static_cast<float>(offsetY)) {
  std::copy_n(matrix, 16, mMatrix);
  for (int i = 0; i < 4; ++i) mViewport[i] = static_cast<float>(viewport[i]);
}

// Bresenham, Algorithm for computer control of a digital plotter, 1965, for all octants by one sum of errors.
bool IntersectionRaster::isLineSet(std::int32_t fromColumn, std::int32_t fromRow, std::int32_t toColumn,
                                   std::int32_t toRow) const {
  // In 64 bits: twice the length of a line may exceed 32. Nothing leaves the raster: x and y only go from one end to
  // the other.
  std::int64_t x = fromColumn, y = fromRow;
  const std::int64_t endX = toColumn, endY = toRow;
  const std::int64_t dx = std::abs(endX - x), dy = -std::abs(endY - y);
  const std::int64_t stepX = x < endX ? 1 : -1, stepY = y < endY ? 1 : -1, rowStep = stepY * mRasterWidth;
  const std::int32_t* cell = cellAt(fromColumn, fromRow);
  std::int64_t error = dx + dy;
  while (x != endX || y != endY) {
    const std::int64_t twice = 2 * error;
    if (twice >= dy) {
      if (x == endX) return true;
      error += dy;
      x += stepX;
      cell += stepX;
    }
    if (twice <= dx) {
      if (y == endY) return true;
      error += dx;
      y += stepY;
      cell += rowStep;
    }
    if (*cell == 0) return false;
  }
  return true;
}
