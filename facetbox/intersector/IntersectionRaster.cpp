#include <facetbox/intersector/IntersectionRaster.h>

#include <algorithm>
#include <cstdlib>

namespace util {

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
//
// It steps from one end to the other and no farther: nothing leaves the raster. After i steps along x of dx and j along
// y of dy, the error is (j + 1) dx - (i + 1) dy, with both counted positive. With i = dx and j < dy that is at most
// -dy, too little for one more step along x; with j = dy and i < dx it is at least dx, too much for one along y.
inline bool IntersectionRaster::isLineSet(const RasterCell& from, const RasterCell& to) const {
  // In 64 bits: twice the length of a line may exceed 32.
  const std::int64_t toX = std::int64_t{to.mColumn} - from.mColumn, toY = std::int64_t{to.mRow} - from.mRow;
  // From one cell to itself or the next, diagonally or not, there is no other.
  if (-1 <= toX && toX <= 1 && -1 <= toY && toY <= 1) return true;
  const std::int64_t dx = std::abs(toX), dy = -std::abs(toY);
  const std::ptrdiff_t stepX = toX < 0 ? -1 : 1, stepY = toY < 0 ? -mRasterWidth : mRasterWidth;
  const std::int32_t* cell = at(from);
  const std::int32_t* const end = at(to);
  std::int64_t error = dx + dy;
  do {
    const std::int64_t twice = 2 * error;
    const bool alongX = twice >= dy, alongY = twice <= dx;
    error += (alongX ? dy : 0) + (alongY ? dx : 0);
    cell += (alongX ? stepX : 0) + (alongY ? stepY : 0);
    if (*cell == 0) return false;
  } while (cell != end);
  return true;
}

bool IntersectionRaster::areEdgesSet(const EdgeList& edges, const RasterCell* cells) const {
  return std::ranges::all_of(edges,
                             [&](const DirectedEdge& edge) { return isLineSet(cells[edge.mFrom], cells[edge.mTo]); });
}

}  // namespace util
