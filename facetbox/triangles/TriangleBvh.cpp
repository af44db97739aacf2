#include <facetbox/triangles/TriangleBvh.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

#include <facetbox/math/Rounding.h>
#include <facetbox/triangles/SurfaceAreaSplit.h>

namespace util {

/// The triangles that a hierarchy is built over.
struct TriangleBvh::Triangles {
  std::span<const double> coordinates;
  std::span<const std::uint32_t> indices;

  std::size_t count() const { return indices.size() / 3; }
  const double* coordinatesOf(std::size_t triangle, std::size_t k) const {
    return coordinates.data() + 3 * std::size_t{indices[3 * triangle + k]};
  }
  Vec3 corner(std::size_t triangle, std::size_t k) const {
    const double* p = coordinatesOf(triangle, k);
    return {p[0], p[1], p[2]};
  }
};

namespace {

using Node = TriangleBvh::Node;
using Normals = TriangleBvh::Normals;
using Block = TriangleBvh::Block;
using Exact = TriangleBvh::Exact;
using Unit = TriangleBvh::Unit;
using Reference = TriangleBvh::Reference;
constexpr int kWidth = TriangleBvh::kWidth;
constexpr std::uint32_t kBlockSize = TriangleBvh::kWidth;

/// The units that a record takes in the arena, with its exact triangles.
template <class Record>
constexpr std::size_t unitsOf(std::size_t exactCount) {
  return (sizeof(Record) + exactCount * sizeof(Exact) + sizeof(Unit) - 1) / sizeof(Unit);
}
/// So many fit into the arena whatever its shape: each has a block of its own at worst, and there are fewer nodes than
/// blocks.
constexpr std::size_t kMostTriangles = TriangleBvh::kLeaf / 32;
static_assert(unitsOf<Block>(1) + unitsOf<Node>(0) <= TriangleBvh::kLeaf / kMostTriangles);

/// What is reserved: most blocks are nearly full, and a node has about as many of them as it can.
constexpr std::size_t kUnitsPerTriangle = 5, kTrianglesPerNode = 16;

/// Coordinates beyond this are left to the plain loop, which knows what an overflow gives.
constexpr double kLargestCoordinate = 1e100;
constexpr int kLargestExponent = 1000;  ///< of the scale: neither it nor its inverse overflows

/// Collects binary splits into nodes of eight children, and triangles into blocks of eight.
class Builder {
 public:
  template <class Triangles>
  Builder(std::vector<TriangleBox>& boxes, Buffer<Unit>& arena, Buffer<Normals>& normals, const Triangles& triangles,
          const Vec3& center, double scale)
      : mBoxes(boxes),
        mArena(arena),
        mNormals(normals),
        mCoordinates(triangles.coordinates),
        mIndices(triangles.indices),
        mCenter{center.x, center.y, center.z},
        mScale(scale) {}

  /// Builds the subtree of a range.
  /// @param normals  receives the box around its cross products; in the fourth lane the largest reach
  Reference build(const TriangleRange& range, int depth, FloatBounds& normals) {
    if (range.size() <= kBlockSize) return makeBlock(range, normals);
    std::array<TriangleRange, kWidth> children;
    const int count = splitIntoChildren(range, depth, children);
    const Reference place = append<Node>(0);
    const auto number = static_cast<std::uint32_t>(mNormals.size());
    mNormals.emplace_back();
    at<Node>(place)->number = number;
    for (int i = 0; i < kWidth; ++i) {
      FloatBounds childNormals;
      const Reference child = i < count ? build(children[i], depth + 1, childNormals) : TriangleBvh::kLeaf;
      Node& node = *at<Node>(place);
      node.child[i] = child;
      fillBounds(node.bounds, i, i < count ? children[i].bounds : FloatBounds());
      fillBounds(mNormals[number].bounds, i, childNormals);
      mNormals[number].reach[i] = childNormals.high[3];
      normals.extend(childNormals.low, childNormals.high);
    }
    return place;
  }

 private:
  /// @return how many children there are; at least two
  int splitIntoChildren(const TriangleRange& range, int depth, std::array<TriangleRange, kWidth>& children) {
    children[0] = range;
    int count = 1;
    while (count < kWidth) {
      const int widest = widestOf(children.data(), count);
      if (widest < 0) break;
      const auto [left, right] = split(children[widest], depth);
      children[widest] = left;
      children[count++] = right;
    }
    return count;
  }

  /// The child to split next: that of the largest surface among those too large for a block.
  static int widestOf(const TriangleRange* children, int count) {
    int widest = -1;
    float largest = -1;
    for (int i = 0; i < count; ++i) {
      if (children[i].size() <= kBlockSize) continue;
      const float area = children[i].bounds.halfArea();
      if (area > largest) {
        largest = area;
        widest = i;
      }
    }
    return widest;
  }

  static void fillBounds(float (&bounds)[6][kWidth], int child, const FloatBounds& box) {
    for (int a = 0; a < 3; ++a) {
      bounds[a][child] = box.low[a];
      bounds[3 + a][child] = box.high[a];
    }
  }

  Reference makeBlock(const TriangleRange& range, FloatBounds& normals) {
    const Reference place = append<Block>(range.size());
    Block& block = *at<Block>(place);
    auto* exact = reinterpret_cast<Exact*>(&block + 1);
    for (std::uint32_t lane = 0; lane < kBlockSize; ++lane) {
      block.reach[lane] = -1;
      for (int a = 0; a < 3; ++a) block.corner[a][lane] = block.edge1[a][lane] = block.edge2[a][lane] = 0;
      if (lane < range.size()) fillLane(block, lane, exact[lane], mBoxes[range.begin + lane].triangle(), normals);
    }
    return TriangleBvh::kLeaf | place;
  }

  void fillLane(Block& block, std::uint32_t lane, Exact& exact, std::uint32_t triangle, FloatBounds& normals) {
    exact.triangle = triangle;
    for (std::size_t k = 0; k < 3; ++k)
      std::copy_n(mCoordinates.data() + 3 * std::size_t{mIndices[3 * std::size_t{triangle} + k]}, 3,
                  exact.corner + 3 * k);
    constexpr float kReachMargin = 1.000001F;  // for the rounding of edges to floats
    static_assert(kReachMargin >= 1 + 2 * 0x1p-24F);
    float reach = 0;
    double e1[3], e2[3];
    for (int a = 0; a < 3; ++a) {
      e1[a] = mScale * (exact.corner[3 + a] - exact.corner[a]);
      e2[a] = mScale * (exact.corner[6 + a] - exact.corner[a]);
      block.corner[a][lane] = static_cast<float>(mScale * (exact.corner[a] - mCenter[a]));
      block.edge1[a][lane] = static_cast<float>(e1[a]);
      block.edge2[a][lane] = static_cast<float>(e2[a]);
      reach = std::max({reach, std::fabs(block.edge1[a][lane]), std::fabs(block.edge2[a][lane])});
    }
    block.reach[lane] = kReachMargin * reach;
    // Rounding to floats costs half an ulp, less than the test allows for.
    const Vec3 normal = cross(Vec3{e1[0], e1[1], e1[2]}, Vec3{e2[0], e2[1], e2[2]});
    const Float4 point{static_cast<float>(normal.x), static_cast<float>(normal.y), static_cast<float>(normal.z),
                       block.reach[lane]};
    normals.extend(point, point);
  }

  /// Room for a record and what follows it in the arena.
  template <class Record>
  Reference append(std::size_t exactCount) {
    const std::size_t place = mArena.size();
    mArena.resize(place + unitsOf<Record>(exactCount));
    return static_cast<Reference>(place);
  }
  /// Valid until the next append().
  template <class Record>
  Record* at(Reference place) {
    return reinterpret_cast<Record*>(mArena.data() + place);
  }

  /// Near the largest depth only halves are cut: that many levels do for any number of triangles.
  std::pair<TriangleRange, TriangleRange> split(const TriangleRange& range, int depth) {
    constexpr int kLevelsOfHalves = 32;
    static_assert((kMostTriangles >> kLevelsOfHalves) == 0);
    return depth < TriangleBvh::kMaxDepth - kLevelsOfHalves ? splitBySurfaceArea(mBoxes, range) : halve(mBoxes, range);
  }

  std::vector<TriangleBox>& mBoxes;
  Buffer<Unit>& mArena;
  Buffer<Normals>& mNormals;
  std::span<const double> mCoordinates;
  std::span<const std::uint32_t> mIndices;
  double mCenter[3];
  double mScale;
};

}  // namespace

TriangleBvh::TriangleBvh(std::span<const double> vertexCoordinates, std::span<const std::uint32_t> indices,
                         std::size_t fewest) {
  const std::size_t triangleCount = indices.size() / 3;
  if (triangleCount < std::max<std::size_t>(fewest, 1) || triangleCount > kMostTriangles) return;
  const Triangles triangles{vertexCoordinates, indices};
  if (!measure(triangles)) return;

  TriangleRange range;
  std::vector<TriangleBox> boxes = boxTriangles(triangles, range);
  mTriangleCount = boxes.size();
  mArena.reserve(kUnitsPerTriangle * boxes.size());
  mNormals.reserve(boxes.size() / kTrianglesPerNode);
  FloatBounds normals;
  mRoot = Builder(boxes, mArena, mNormals, triangles, mCenter, mScale).build(range, 0, normals);
}

/// Determines how large everything is, and with that the unit coordinates.
/// @return whether the hierarchy is of use: there are triangles, and no coordinate is too large
bool TriangleBvh::measure(const Triangles& triangles) {
  Box all;
  for (std::size_t t = 0; t < triangles.count(); ++t) {
    const Vec3 p0 = triangles.corner(t, 0), p1 = triangles.corner(t, 1), p2 = triangles.corner(t, 2);
    bool isComplete = true;
    for (const double x : {p0.x, p0.y, p0.z, p1.x, p1.y, p1.z, p2.x, p2.y, p2.z}) {
      if (std::fabs(x) > kLargestCoordinate) return false;
      isComplete = isComplete && !std::isnan(x);
    }
    if (!isComplete) continue;
    const Vec3 e1 = p1 - p0, e2 = p2 - p0;
    for (const double e : {e1.x, e1.y, e1.z, e2.x, e2.y, e2.z}) mLongestEdge = std::max(mLongestEdge, std::fabs(e));
    all.extend(p0);
    all.extend(p1);
    all.extend(p2);
  }
  for (const double x : {all.min.x, all.min.y, all.min.z, all.max.x, all.max.y, all.max.z})
    mMagnitude = std::max(mMagnitude, std::fabs(x));
  if (all.min.x > all.max.x) return false;

  mCenter = all.min + 0.5 * (all.max - all.min);
  double halfSize = 0;
  for (const Vec3& d : {all.max - mCenter, mCenter - all.min}) halfSize = std::max({halfSize, d.x, d.y, d.z});
  int exponent = 0;
  std::frexp(halfSize, &exponent);
  mScale = std::ldexp(1.0, std::clamp(-exponent, -kLargestExponent, kLargestExponent));
  return true;
}

/// The box of each triangle in unit coordinates, rounded outward. Leaves out those with a NaN, and lists the vertices
/// that no other triangle uses.
/// @param range  receives all of the boxes
std::vector<TriangleBox> TriangleBvh::boxTriangles(const Triangles& triangles, TriangleRange& range) {
  std::vector<TriangleBox> boxes;
  boxes.reserve(triangles.count());
  std::vector<char> isUsed(triangles.coordinates.size() / 3);
  for (std::size_t t = 0; t < triangles.count(); ++t) {
    Box box;
    bool isComplete = true;
    for (std::size_t k = 0; k < 3; ++k) {
      const Vec3 unit = mScale * (triangles.corner(t, k) - mCenter);
      isComplete = isComplete && !std::isnan(unit.x + unit.y + unit.z);
      box.extend(unit);
    }
    if (!isComplete) {
      mIsComplete = false;
      continue;
    }
    for (std::size_t k = 0; k < 3; ++k) isUsed[triangles.indices[3 * t + k]] = true;
    const TriangleBox rounded{{roundedDown(box.min.x), roundedDown(box.min.y), roundedDown(box.min.z),
                               std::bit_cast<float>(static_cast<std::uint32_t>(t))},
                              {roundedUp(box.max.x), roundedUp(box.max.y), roundedUp(box.max.z), 0}};
    range.add(rounded);
    boxes.push_back(rounded);
  }
  range.end = static_cast<std::uint32_t>(boxes.size());
  for (std::size_t v = 0; v < isUsed.size(); ++v)
    if (!isUsed[v]) mLooseVertices.push_back(static_cast<std::uint32_t>(v));
  return boxes;
}

Box TriangleBvh::childBox(const Node& node, int child) const noexcept {
  const double size = 1 / mScale;
  constexpr double kRounding = 8 * 0x1p-53;  // of a product and two sums, and some more
  const double slack =
      kRounding * (size + std::max({std::fabs(mCenter.x), std::fabs(mCenter.y), std::fabs(mCenter.z)}));
  const auto corner = [&](int first, double outward) {
    return Vec3{mCenter.x + size * static_cast<double>(node.bounds[first][child]) + outward,
                mCenter.y + size * static_cast<double>(node.bounds[first + 1][child]) + outward,
                mCenter.z + size * static_cast<double>(node.bounds[first + 2][child]) + outward};
  };
  return {corner(0, -slack), corner(3, slack)};
}

}  // namespace util
