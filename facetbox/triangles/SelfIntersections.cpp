#include <facetbox/triangles/SelfIntersections.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Box.h>
#include <facetbox/spatial/BoxJoin.h>
#include <facetbox/triangles/TriangleMeeting.h>

namespace util {
namespace {

using GridPoint = std::array<std::int32_t, 3>;

Vec3 pointOf(const FaceTriangles& in, std::uint32_t vertex) {
  return toVec3(in.points.data() + 3 * std::size_t{vertex});
}

// Boxes lie on a grid, to which coordinates are taken by a function that keeps their order: what meets in space meets
// on the grid, without any margin.

/// The grid over the box of all triangles. Halves are subtracted, since the difference of the largest numbers is
/// infinite; that a half of the smallest is rounded does not disturb the order.
Buffer<GridPoint> evenGrid(const FaceTriangles& in) {
  Box box;
  for (const std::uint32_t vertex : in.corners) box.extend(pointOf(in, vertex));
  const Vec3 low = 0.5 * box.min, extent = 0.5 * box.max - low;
  const double largest = largestMagnitude(extent);
  // A power of two, so that a model and its copy in another unit are the same. Below 1022, or it would be infinite.
  const int exponent = largest > 0 ? std::min(30 - std::ilogb(largest), 1020) : 0;
  const double scale = std::ldexp(1.0, exponent);
  const std::size_t vertexCount = in.points.size() / 3;
  Buffer<GridPoint> grid(vertexCount);
  constexpr double kLargest = static_cast<double>(BoxJoin::kGridSize - 1);
  for (std::size_t v = 0; v < vertexCount; ++v) {
    const Vec3 p = scale * (0.5 * pointOf(in, static_cast<std::uint32_t>(v)) - low);
    // Vertices that no triangle uses may lie outside.
    const auto place = [=](double x) { return static_cast<std::int32_t>(std::clamp(x, 0.0, kLargest)); };
    grid[v] = {place(p.x), place(p.y), place(p.z)};
  }
  return grid;
}

/// Ranks instead of distances: apart where coordinates are, however close.
Buffer<GridPoint> gridOfRanks(const FaceTriangles& in, Monitor* monitor) {
  const std::size_t vertexCount = in.points.size() / 3;
  Buffer<GridPoint> grid(vertexCount);
  Buffer<std::uint32_t> order(vertexCount);
  const int shift = 31 - static_cast<int>(std::bit_width(vertexCount));
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const auto coordinate = [&](std::uint32_t v) { return in.points[3 * std::size_t{v} + axis]; };
    for (std::size_t v = 0; v < vertexCount; ++v) order[v] = static_cast<std::uint32_t>(v);
    std::ranges::sort(order, [&](std::uint32_t a, std::uint32_t b) {
      if (monitor) monitor->tick();
      return coordinate(a) < coordinate(b);
    });
    std::size_t rank = 0;
    for (std::size_t i = 0; i < vertexCount; ++i) {
      if (i != 0 && coordinate(order[i]) != coordinate(order[i - 1])) rank = i;
      grid[order[i]][axis] = static_cast<std::int32_t>(shift >= 0 ? rank << shift : rank >> -shift);
    }
  }
  return grid;
}

Buffer<GridBox> boxesOn(const Buffer<GridPoint>& grid, const FaceTriangles& in) {
  Buffer<GridBox> boxes(in.corners.size() / 3);
  const std::uint32_t* corner = in.corners.data();
  for (GridBox& box : boxes) {
    const GridPoint &a = grid[corner[0]], &b = grid[corner[1]], &c = grid[corner[2]];
    for (std::size_t axis = 0; axis < 3; ++axis) {
      box.min[axis] = std::min({a[axis], b[axis], c[axis]});
      box.max[axis] = std::max({a[axis], b[axis], c[axis]});
    }
    corner += 3;
  }
  return boxes;
}

/// Whether many boxes are too small for the grid: a detailed model with something else far away.
bool isTooCoarse(const Buffer<GridBox>& boxes) {
  constexpr std::int32_t kSmall = 1 << 11;  // below two cells of the curve
  constexpr std::size_t kToleratedShare = 64;
  std::size_t small = 0;
  for (const GridBox& box : boxes) {
    std::int32_t extent = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) extent = std::max(extent, box.max[axis] - box.min[axis]);
    small += extent < kSmall ? 1 : 0;
  }
  return small > kToleratedShare + boxes.size() / kToleratedShare;
}

class Search {
 public:
  Search(const FaceTriangles& in, std::size_t limit, Monitor* monitor) : mIn(in), mLimit(limit), mMonitor(monitor) {}

  SelfIntersections run() {
    Buffer<GridBox> boxes = boxesOn(evenGrid(mIn), mIn);
    look();
    if (isTooCoarse(boxes)) boxes = boxesOn(gridOfRanks(mIn, mMonitor), mIn);
    look();
    const Buffer<std::uint32_t> order = BoxJoin::orderOnCurve(boxes);
    look();
    const BoxJoin join(boxes, order);
    look();
    boxes = {};
    mTriangles.resize(order.size());
    constexpr std::size_t kAhead = 16;  // corners lie anywhere in memory
    for (std::size_t i = 0; i < order.size(); ++i) {
      if (i + kAhead < order.size()) __builtin_prefetch(&mIn.corners[3 * std::size_t{order[i + kAhead]}]);
      if (i + kAhead / 2 < order.size()) prefetchPoints(order[i + kAhead / 2]);
      mTriangles[i] = triangleOf(order[i]);
    }
    look();
    join.forEachPair([this](std::size_t a, std::size_t b) {
      if (mMonitor) mMonitor->tick();
      return testPair(mTriangles[a], mTriangles[b]);
    });
    shorten();
    return std::move(mResult);
  }

 private:
  struct Triangle {
    NumberedTriangle shape;
    std::uint32_t face;
  };

  void look() const {
    if (mMonitor) mMonitor->look();
  }

  void prefetchPoints(std::uint32_t number) const {
    for (std::size_t i = 0; i < 3; ++i)
      __builtin_prefetch(&mIn.points[3 * std::size_t{mIn.corners[3 * std::size_t{number} + i]}]);
  }

  Triangle triangleOf(std::uint32_t number) const {
    Triangle triangle;
    for (std::size_t i = 0; i < 3; ++i) {
      const std::uint32_t vertex = mIn.corners[3 * std::size_t{number} + i];
      triangle.shape.vertices[i] = vertex;
      triangle.shape.corners[i] = pointOf(mIn, vertex);
    }
    triangle.face = mIn.faces.empty() ? number : mIn.faces[number];
    return triangle;
  }

  /// Returns whether to go on.
  bool testPair(const Triangle& a, const Triangle& b) {
    if (a.face == b.face || !meetElsewhere(a.shape, b.shape)) return true;
    if (!mIn.faces.empty() && !meetElsewhere(a.shape, b.shape, sharedByFaces(a, b), sharedByFaces(b, a))) return true;
    mResult.pairs.push_back(std::minmax(a.face, b.face));
    if (mResult.pairs.size() < mShortenAt) return true;
    shorten();
    mShortenAt = mResult.pairs.size() + kGrowth;
    return mResult.isComplete;
  }

  SharedCorners sharedByFaces(const Triangle& a, const Triangle& b) const {
    SharedCorners shared = sharedCorners(a.shape, b.shape);
    for (std::size_t i = 0; i < 3; ++i) shared[i] = shared[i] || mIn.isCornerOf(b.face, a.shape.vertices[i]);
    return shared;
  }

  /// Each pair once, no more than the limit.
  void shorten() {
    std::ranges::sort(mResult.pairs, [this](const auto& a, const auto& b) {
      if (mMonitor) mMonitor->tick();
      return a < b;
    });
    mResult.pairs.erase(std::unique(mResult.pairs.begin(), mResult.pairs.end()), mResult.pairs.end());
    if (mResult.pairs.size() <= mLimit) return;
    mResult.pairs.resize(mLimit);
    mResult.isComplete = false;
  }

  static constexpr std::size_t kGrowth = 1 << 20;

  const FaceTriangles& mIn;
  const std::size_t mLimit;
  Monitor* const mMonitor;
  std::size_t mShortenAt = kGrowth;  // pairs that may come before the next look at the limit
  Buffer<Triangle> mTriangles;       // in the order of the boxes
  SelfIntersections mResult;
};

}  // namespace

SelfIntersections findSelfIntersections(const FaceTriangles& triangles, std::size_t limit, Monitor* monitor) {
  return Search(triangles, limit, monitor).run();
}

}  // namespace util
