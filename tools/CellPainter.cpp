#include <tools/CellPainter.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <tuple>

#include <tools/Arguments.h>

namespace tool {
namespace {

struct Edge {
  std::uint32_t mFrom, mTo;
  std::size_t mOrder;  // among all edges

  std::tuple<std::uint32_t, std::uint32_t, std::size_t> key() const {
    return {std::min(mFrom, mTo), std::max(mFrom, mTo), mOrder};
  }
  bool isSameAs(const Edge& other) const { return std::minmax(mFrom, mTo) == std::minmax(other.mFrom, other.mTo); }
};

// Clips the way from 0 to 1 to the part where a linearly changing value is between 0 and `most`.
void clip(double atStart, double atEnd, double most, double& begin, double& end) {
  const auto keepPositive = [&](double start, double stop) {
    if (start < 0 && stop < 0) end = -1;
    if (start < 0 && stop >= 0) begin = std::max(begin, start / (start - stop));
    if (start >= 0 && stop < 0) end = std::min(end, start / (start - stop));
  };
  keepPositive(atStart, atEnd);
  keepPositive(most - atStart, most - atEnd);
}

std::size_t cellCount(int width, int height) {
  return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

}  // namespace

Mask maskOf(const Picture& picture) {
  Mask mask{picture.mWidth, picture.mHeight, {}};
  mask.mCells.reserve(picture.mPixels.size() / 3);
  for (std::size_t i = 0; i < picture.mPixels.size(); i += 3)
    mask.mCells.push_back(picture.mPixels[i] || picture.mPixels[i + 1] || picture.mPixels[i + 2] ? 1 : 0);
  return mask;
}

CellPainter::CellPainter(const std::array<float, 16>& matrix, int width, int height)
    : mMatrix(matrix), mWidth(width), mHeight(height), mMarks(cellCount(width, height), kNothing) {}

void CellPainter::add(const util::Mesh& mesh, std::span<const float> coordinates) {
  const std::unique_ptr<util::TriangleMesh> triangles(
      mTriangulator.triangulate(mesh, {coordinates.begin(), coordinates.end()}, 0));
  const std::span<const double> vertices = triangles->vertexCoordinates();
  std::vector<Place> places;
  places.reserve(vertices.size() / 3);
  for (std::size_t v = 0; v + 2 < vertices.size(); v += 3) {
    const double* const p = &vertices[v];
    places.push_back(placeOf(static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])));
  }
  const std::span<const std::uint32_t> indices = triangles->indices();
  for (std::size_t i = 0; i + 2 < indices.size(); i += 3)
    fill({places[indices[i]], places[indices[i + 1]], places[indices[i + 2]]});
  drawEdges(places, indices);
}

// In floats, as the library does it: the neighboring cell would be another verdict.
CellPainter::Place CellPainter::placeOf(float x, float y, float z) const {
  const std::array<float, 16>& m = mMatrix;
  const float w = std::fabs(m[3] * x + m[7] * y + m[11] * z + m[15]);
  if (!(w > 1e-25f)) return {0, 0, false};
  const auto shareOf = [&](std::size_t row) {
    return (m[row] * x + m[4 + row] * y + m[8 + row] * z + m[12 + row]) / w * 0.5f + 0.5f;
  };
  const float width = static_cast<float>(mWidth), height = static_cast<float>(mHeight), depth = shareOf(2);
  const Place place{width * shareOf(0), height - shareOf(1) * height, 0 <= depth && depth <= 1};
  const float kFarthest = std::numeric_limits<float>::max();
  return std::fabs(place.mColumn) <= kFarthest && std::fabs(place.mRow) <= kFarthest ? place : Place{0, 0, false};
}

void CellPainter::fill(const Place (&corners)[3]) {
  if (!std::all_of(corners, corners + 3, [](const Place& place) { return place.mIsBetweenPlanes; })) return;
  const auto [low, high] = std::minmax({corners[0].mRow, corners[1].mRow, corners[2].mRow});
  // Kept in floats until they are in range.
  const float mostRow = static_cast<float>(mHeight - 1);
  const float firstRow = std::max(std::ceil(low), 0.0f), lastRow = std::min(std::floor(high), mostRow);
  if (!(firstRow <= lastRow)) return;
  for (int row = static_cast<int>(firstRow); row <= static_cast<int>(lastRow); ++row) {
    double left = mWidth, right = -1;
    for (std::size_t k = 0; k < 3; ++k) {
      const Place &a = corners[k], &b = corners[(k + 1) % 3];
      const double fromRow = a.mRow, toRow = b.mRow;
      if (row < std::min(fromRow, toRow) || row > std::max(fromRow, toRow)) continue;
      const double share = fromRow == toRow ? 0 : (row - fromRow) / (toRow - fromRow);
      const double column = a.mColumn + share * (double{b.mColumn} - a.mColumn);
      left = std::min(left, column);
      right = std::max(right, column);
    }
    const int first = static_cast<int>(std::max(std::ceil(left), 0.0));
    const int last = static_cast<int>(std::min(std::floor(right), mWidth - 1.0));
    for (int column = first; column <= last; ++column) {
      std::uint8_t& mark = markAt(column, row);
      mark = std::max<std::uint8_t>(mark, kInner);
    }
  }
}

// An edge that triangles share is drawn once, in the direction in which the first of them has it.
void CellPainter::drawEdges(std::span<const Place> places, std::span<const std::uint32_t> indices) {
  std::vector<Edge> edges;
  edges.reserve(indices.size());
  for (std::size_t i = 0; i < indices.size(); ++i)
    edges.push_back({indices[i], indices[i % 3 == 2 ? i - 2 : i + 1], i});
  std::sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) { return a.key() < b.key(); });
  edges.erase(std::unique(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) { return a.isSameAs(b); }),
              edges.end());
  for (const Edge& edge : edges) {
    const Place &from = places[edge.mFrom], &to = places[edge.mTo];
    if (from.mIsBetweenPlanes && to.mIsBetweenPlanes) drawLine(from, to);
  }
}

// Bresenham, Algorithm for computer control of a digital plotter, 1965.
void CellPainter::drawLine(const Place& from, const Place& to) {
  const double x0 = std::round(from.mColumn), y0 = std::round(from.mRow);
  const double x1 = std::round(to.mColumn), y1 = std::round(to.mRow);
  double begin = 0, end = 1;
  clip(x0, x1, mWidth - 1, begin, end);
  clip(y0, y1, mHeight - 1, begin, end);
  if (!(begin <= end)) return;
  const auto cellAt = [](double start, double stop, double share, int count) {
    return static_cast<int>(std::clamp(std::round(start + share * (stop - start)), 0.0, count - 1.0));
  };
  int x = cellAt(x0, x1, begin, mWidth), y = cellAt(y0, y1, begin, mHeight);
  const int lastX = cellAt(x0, x1, end, mWidth), lastY = cellAt(y0, y1, end, mHeight);
  const int dx = std::abs(lastX - x), dy = -std::abs(lastY - y);
  const int stepX = lastX < x ? -1 : 1, stepY = lastY < y ? -1 : 1;
  int error = dx + dy;
  const auto mark = [&](Mark wanted) { markAt(x, y) = std::max<std::uint8_t>(markAt(x, y), wanted); };
  mark(begin > 0 ? kEdgeLeaves : kEdge);
  while (x != lastX || y != lastY) {
    const int twice = 2 * error;
    if (twice >= dy) {
      error += dy;
      x += stepX;
    }
    if (twice <= dx) {
      error += dx;
      y += stepY;
    }
    mark(kEdge);
  }
  if (end < 1) mark(kEdgeLeaves);
}

Picture CellPainter::mask() const {
  Picture picture{mWidth, mHeight, {}};
  picture.mPixels.reserve(3 * mMarks.size());
  for (const std::uint8_t mark : mMarks)
    picture.mPixels.insert(picture.mPixels.end(), 3, static_cast<std::uint8_t>(mark == kNothing ? 0 : 255));
  return picture;
}

Picture CellPainter::verdict(const Mask& mask) const {
  // By mark, on a cell that is not set and on one that is.
  constexpr Color kColors[4][2] = {{{0, 0, 0}, {224, 224, 224}},
                                   {{128, 84, 32}, {128, 196, 120}},
                                   {{224, 40, 32}, {32, 120, 56}},
                                   {{224, 40, 32}, {224, 40, 32}}};
  Picture picture{mWidth, mHeight, {}};
  picture.mPixels.reserve(3 * mMarks.size());
  for (std::size_t cell = 0; cell < mMarks.size(); ++cell) {
    const Color& color = kColors[mMarks[cell]][mask.mCells[cell] != 0 ? 1 : 0];
    picture.mPixels.insert(picture.mPixels.end(), color.begin(), color.end());
  }
  return picture;
}

}  // namespace tool
