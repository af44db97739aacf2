#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>
#include <tools/PngFile.h>

namespace tool {

/// A mask as Intersector::testRaster() takes it: row by row from the top, set where not 0.
struct Mask {
  int mWidth = 0, mHeight = 0;
  std::vector<std::int32_t> mCells;
};

/// Set where the picture is not black.
Mask maskOf(const Picture& picture);

/// Draws the cells of a picture that meshes cover, by the rules of Intersector::testRaster(): the cells under the edges
/// of triangles, which the intersector tests, and the cells whose center lies inside a triangle. Triangles and edges
/// with a vertex in front of the near plane or behind the far plane are skipped. What lies outside the picture is
/// clipped.
class CellPainter {
 public:
  /// @param matrix  view-projection
  CellPainter(const std::array<float, 16>& matrix, int width, int height);

  /// @param coordinates  x, y, z of the mesh's vertices
  /// @throws std::runtime_error where a face cannot be triangulated
  /// O(triangles log triangles + cells that they cover).
  void add(const util::Mesh& mesh, std::span<const float> coordinates);

  /// White on black.
  Picture mask() const;

  /// Compares the meshes with a mask of the same size. Green: on set cells. Red: edges on other cells, or edges that
  /// leave the picture. Brown: the inside of triangles on other cells, which the intersector does not test. Elsewhere
  /// set cells are gray, others black.
  Picture verdict(const Mask& mask) const;

 private:
  /// Columns run to the right, rows downward; at the center of a cell both are whole numbers.
  struct Place {
    float mColumn, mRow;
    bool mIsBetweenPlanes;
  };
  enum Mark : std::uint8_t { kNothing, kInner, kEdge, kEdgeLeaves };

  Place placeOf(float x, float y, float z) const;
  void fill(const Place (&corners)[3]);
  void drawEdges(std::span<const Place> places, std::span<const std::uint32_t> indices);
  void drawLine(const Place& from, const Place& to);
  std::uint8_t& markAt(int column, int row) {
    return mMarks[static_cast<std::size_t>(row) * static_cast<std::size_t>(mWidth) + static_cast<std::size_t>(column)];
  }

  util::Triangulator mTriangulator;
  std::array<float, 16> mMatrix;
  int mWidth, mHeight;
  std::vector<std::uint8_t> mMarks;
};

}  // namespace tool
