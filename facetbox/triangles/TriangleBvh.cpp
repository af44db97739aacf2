#include <facetbox/triangles/TriangleBvh.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

// A binned surface-area build after Wald, On fast Construction of SAH-based Bounding Volume Hierarchies, 2007, whose
// binary splits are collected into nodes of eight.

namespace util {
namespace {

using Node = TriangleBvh::Node;
using Normals = TriangleBvh::Normals;
using Block = TriangleBvh::Block;
using Exact = TriangleBvh::Exact;
using Unit = TriangleBvh::Unit;
using Reference = TriangleBvh::Reference;
constexpr int kWidth = TriangleBvh::kWidth;
constexpr std::uint32_t kBlockSize = TriangleBvh::kWidth;

/// Below this many triangles the plain loop is as fast.
constexpr std::size_t kFewTriangles = 9;
/// So many fit into the arena whatever its shape: a block takes at most 13 units for one triangle, and there are fewer
/// nodes, of 8 units, than blocks.
constexpr std::size_t kMostTriangles = TriangleBvh::kLeaf / 32;

/// Coordinates beyond this are left to the plain loop, which knows what an overflow gives.
constexpr double kLargestCoordinate = 1e100;

typedef float Float4 __attribute__((vector_size(16)));

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr Float4 kNothingLow{kInfinity, kInfinity, kInfinity, 0};
constexpr Float4 kNothingHigh{-kInfinity, -kInfinity, -kInfinity, 0};

inline Float4 smaller(Float4 a, Float4 b) { return a < b ? a : b; }
inline Float4 larger(Float4 a, Float4 b) { return a > b ? a : b; }

struct FloatBounds {
  Float4 low = kNothingLow, high = kNothingHigh;

  void extend(Float4 otherLow, Float4 otherHigh) {
    low = smaller(low, otherLow);
    high = larger(high, otherHigh);
  }
  float halfArea() const {
    const Float4 d = high - low;
    return d[0] * d[1] + d[1] * d[2] + d[2] * d[0];
  }
};

/// A triangle's box; its number is kept in the bits of low's fourth lane.
struct Item {
  Float4 low, high;

  Float4 centerTwice() const { return low + high; }
  std::uint32_t triangle() const { return std::bit_cast<std::uint32_t>(low[3]); }
};

/// A run of items that becomes one child.
struct Range {
  std::uint32_t begin = 0, end = 0;
  FloatBounds bounds;   ///< of the boxes
  FloatBounds centers;  ///< of twice their centers

  std::uint32_t size() const { return end - begin; }
  void add(const Item& item) {
    bounds.extend(item.low, item.high);
    centers.extend(item.centerTwice(), item.centerTwice());
  }
};

constexpr int kMostBins = 16;

/// Where a range is cut: items whose bin on `axis` is below `bin` go left.
struct Cut {
  int axis = -1;
  int bin = 0;
  float cost = kInfinity;
};

/// Maps twice a center to its bin on all three axes at once.
struct Binning {
  Float4 origin, scale;
  int count;

  explicit Binning(const Range& range)
      : origin(range.centers.low), count(static_cast<int>(std::min<std::uint32_t>(kMostBins, 4 + range.size() / 4))) {
    const Float4 extent = range.centers.high - range.centers.low;
    for (int a = 0; a < 3; ++a) scale[a] = extent[a] > 1e-30F ? 0.99F * static_cast<float>(count) / extent[a] : 0.0F;
    scale[3] = 0;
  }
  Float4 place(const Item& item) const { return (item.centerTwice() - origin) * scale; }
};

class Builder {
 public:
  Builder(std::vector<Item>& items, Buffer<Unit>& arena, Buffer<Normals>& normals, std::span<const double> coordinates,
          std::span<const std::uint32_t> indices, const Vec3& center, double scale)
      : mItems(items),
        mArena(arena),
        mNormals(normals),
        mCoordinates(coordinates),
        mIndices(indices),
        mCenter{center.x, center.y, center.z},
        mScale(scale) {}

  /// Builds the subtree of a range.
  /// @param normals  receives the box around its cross products; in the fourth lane the largest reach
  Reference build(const Range& range, int depth, FloatBounds& normals) {
    if (range.size() <= kBlockSize) return makeBlock(range, normals);
    std::array<Range, kWidth> children;
    children[0] = range;
    int count = 1;
    while (count < kWidth) {
      const int widest = widestOf(children.data(), count);
      if (widest < 0) break;
      const auto [left, right] = split(children[widest], depth);
      children[widest] = left;
      children[count++] = right;
    }
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
  /// The child to split next: that of the largest surface among those too large for a block.
  static int widestOf(const Range* children, int count) {
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

  Reference makeBlock(const Range& range, FloatBounds& normals) {
    const Reference place = append<Block>(range.size());
    Block& block = *at<Block>(place);
    auto* exact = reinterpret_cast<Exact*>(&block + 1);
    for (std::uint32_t lane = 0; lane < kBlockSize; ++lane) {
      block.reach[lane] = -1;
      for (int a = 0; a < 3; ++a) block.corner[a][lane] = block.edge1[a][lane] = block.edge2[a][lane] = 0;
      if (lane < range.size()) fillLane(block, lane, exact[lane], mItems[range.begin + lane].triangle(), normals);
    }
    return TriangleBvh::kLeaf | place;
  }

  void fillLane(Block& block, std::uint32_t lane, Exact& exact, std::uint32_t triangle, FloatBounds& normals) {
    exact.triangle = triangle;
    for (std::size_t k = 0; k < 3; ++k)
      std::copy_n(mCoordinates.data() + 3 * std::size_t{mIndices[3 * std::size_t{triangle} + k]}, 3,
                  exact.corner + 3 * k);
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
    block.reach[lane] = 1.000001F * reach;
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
    const std::size_t bytes = sizeof(Record) + exactCount * sizeof(Exact);
    mArena.resize(place + (bytes + sizeof(Unit) - 1) / sizeof(Unit));
    return static_cast<Reference>(place);
  }
  /// Valid until the next append().
  template <class Record>
  Record* at(Reference place) {
    return reinterpret_cast<Record*>(mArena.data() + place);
  }

  /// Near the largest depth only halves are cut: at most 32 further levels, whatever the number of items.
  std::pair<Range, Range> split(const Range& range, int depth) {
    if (depth < TriangleBvh::kMaxDepth - 32) {
      const Binning binning(range);
      const Cut cut = bestCut(range, binning);
      if (cut.axis >= 0) return partition(range, binning, cut);
    }
    return halve(range);
  }

  Cut bestCut(const Range& range, const Binning& binning) {
    FloatBounds bins[3][kMostBins];
    std::uint32_t counts[3][kMostBins];
    const int n = binning.count;
    for (int a = 0; a < 3; ++a)
      for (int b = 0; b < n; ++b) {
        bins[a][b] = FloatBounds();
        counts[a][b] = 0;
      }
    for (std::uint32_t i = range.begin; i < range.end; ++i) {
      const Item& item = mItems[i];
      const Float4 place = binning.place(item);
      const int x = static_cast<int>(place[0]), y = static_cast<int>(place[1]), z = static_cast<int>(place[2]);
      bins[0][x].extend(item.low, item.high);
      bins[1][y].extend(item.low, item.high);
      bins[2][z].extend(item.low, item.high);
      ++counts[0][x];
      ++counts[1][y];
      ++counts[2][z];
    }
    Cut best;
    for (int a = 0; a < 3; ++a)
      if (binning.scale[a] > 0) improve(best, a, bins[a], counts[a], n);
    return best;
  }

  /// Costs of a side: its surface times the blocks that it needs.
  static void improve(Cut& best, int axis, const FloatBounds* bins, const std::uint32_t* counts, int n) {
    float costs[kMostBins];
    FloatBounds box;
    std::uint32_t count = 0;
    for (int b = n - 1; b > 0; --b) {
      box.extend(bins[b].low, bins[b].high);
      count += counts[b];
      costs[b] = count == 0 ? kInfinity : box.halfArea() * blocksFor(count);
    }
    box = FloatBounds();
    count = 0;
    for (int b = 1; b < n; ++b) {
      box.extend(bins[b - 1].low, bins[b - 1].high);
      count += counts[b - 1];
      if (count == 0) continue;
      const float cost = box.halfArea() * blocksFor(count) + costs[b];
      if (cost < best.cost) best = {axis, b, cost};
    }
  }
  static float blocksFor(std::uint32_t count) { return static_cast<float>((count + kBlockSize - 1) / kBlockSize); }

  std::pair<Range, Range> partition(const Range& range, const Binning& binning, const Cut& cut) {
    Range left, right;
    Item* first = mItems.data() + range.begin;
    Item* last = mItems.data() + range.end;
    const auto goesLeft = [&](const Item& item) {
      return static_cast<int>((item.centerTwice()[cut.axis] - binning.origin[cut.axis]) * binning.scale[cut.axis]) <
             cut.bin;
    };
    for (;;) {
      while (first != last && goesLeft(*first)) left.add(*first++);
      while (first != last && !goesLeft(*(last - 1))) right.add(*--last);
      if (first == last) break;
      std::swap(*first, *(last - 1));
    }
    return finish(range, static_cast<std::uint32_t>(first - mItems.data()), left, right);
  }

  std::pair<Range, Range> halve(const Range& range) {
    Range left, right;
    const std::uint32_t middle = range.begin + range.size() / 2;
    for (std::uint32_t i = range.begin; i < range.end; ++i) (i < middle ? left : right).add(mItems[i]);
    return finish(range, middle, left, right);
  }

  static std::pair<Range, Range> finish(const Range& range, std::uint32_t middle, Range& left, Range& right) {
    left.begin = range.begin;
    left.end = right.begin = middle;
    right.end = range.end;
    return {left, right};
  }

  std::vector<Item>& mItems;
  Buffer<Unit>& mArena;
  Buffer<Normals>& mNormals;
  std::span<const double> mCoordinates;
  std::span<const std::uint32_t> mIndices;
  double mCenter[3];
  double mScale;
};

float roundedDown(double x) {
  const auto f = static_cast<float>(x);
  return static_cast<double>(f) > x ? std::nextafterf(f, -kInfinity) : f;
}
float roundedUp(double x) {
  const auto f = static_cast<float>(x);
  return static_cast<double>(f) < x ? std::nextafterf(f, kInfinity) : f;
}

}  // namespace

TriangleBvh::TriangleBvh(std::span<const double> vertexCoordinates, std::span<const std::uint32_t> indices) {
  const std::size_t triangleCount = indices.size() / 3;
  if (triangleCount < kFewTriangles || triangleCount > kMostTriangles) return;
  const auto corner = [&](std::size_t triangle, std::size_t k) {
    const double* p = vertexCoordinates.data() + 3 * std::size_t{indices[3 * triangle + k]};
    return Vec3{p[0], p[1], p[2]};
  };

  // First pass: how large everything is.
  Box all;
  for (std::size_t t = 0; t < triangleCount; ++t) {
    const Vec3 p0 = corner(t, 0), p1 = corner(t, 1), p2 = corner(t, 2);
    bool isComplete = true;
    for (const double x : {p0.x, p0.y, p0.z, p1.x, p1.y, p1.z, p2.x, p2.y, p2.z}) {
      if (std::fabs(x) > kLargestCoordinate) return;
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
  if (all.min.x > all.max.x) return;

  mCenter = all.min + 0.5 * (all.max - all.min);
  double halfSize = 0;
  for (const Vec3& d : {all.max - mCenter, mCenter - all.min}) halfSize = std::max({halfSize, d.x, d.y, d.z});
  int exponent = 0;
  std::frexp(halfSize, &exponent);
  mScale = std::ldexp(1.0, std::clamp(-exponent, -1000, 1000));

  // Second pass: a box per triangle.
  std::vector<Item> items;
  items.reserve(triangleCount);
  std::vector<char> isUsed(vertexCoordinates.size() / 3);
  Range range;
  for (std::size_t t = 0; t < triangleCount; ++t) {
    Box box;
    bool isComplete = true;
    for (std::size_t k = 0; k < 3; ++k) {
      const Vec3 unit = mScale * (corner(t, k) - mCenter);
      isComplete = isComplete && !std::isnan(unit.x + unit.y + unit.z);
      box.extend(unit);
    }
    if (!isComplete) {
      mIsComplete = false;
      continue;
    }
    for (std::size_t k = 0; k < 3; ++k) isUsed[indices[3 * t + k]] = true;
    const Item item{{roundedDown(box.min.x), roundedDown(box.min.y), roundedDown(box.min.z),
                     std::bit_cast<float>(static_cast<std::uint32_t>(t))},
                    {roundedUp(box.max.x), roundedUp(box.max.y), roundedUp(box.max.z), 0}};
    range.add(item);
    items.push_back(item);
  }
  range.end = static_cast<std::uint32_t>(items.size());
  mArena.reserve(5 * items.size());
  mNormals.reserve(items.size() / 16);
  FloatBounds normals;
  mRoot = Builder(items, mArena, mNormals, vertexCoordinates, indices, mCenter, mScale).build(range, 0, normals);
  mTriangleCount = items.size();
  for (std::size_t v = 0; v < isUsed.size(); ++v)
    if (!isUsed[v]) mLooseVertices.push_back(static_cast<std::uint32_t>(v));
}

Box TriangleBvh::childBox(const Node& node, int child) const noexcept {
  const double size = 1 / mScale;
  const double slack = 0x1p-50 * (size + std::max({std::fabs(mCenter.x), std::fabs(mCenter.y), std::fabs(mCenter.z)}));
  const auto corner = [&](int first, double outward) {
    return Vec3{mCenter.x + size * static_cast<double>(node.bounds[first][child]) + outward,
                mCenter.y + size * static_cast<double>(node.bounds[first + 1][child]) + outward,
                mCenter.z + size * static_cast<double>(node.bounds[first + 2][child]) + outward};
  };
  return {corner(0, -slack), corner(3, slack)};
}

}  // namespace util
