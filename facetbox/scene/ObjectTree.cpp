#include <facetbox/scene/ObjectTree.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <cmath>

#include <facetbox/math/Rounding.h>
#include <facetbox/triangles/SurfaceAreaSplit.h>

namespace util {
namespace {

using Node = ObjectTree::Node;
using Reference = ObjectTree::Reference;
constexpr auto kWidth = static_cast<std::uint32_t>(ObjectTree::kWidth);

/// Boxes lie within this share of the unit coordinates when the tree is built, so that they have room to move.
constexpr double kBuiltShare = 0.5;
/// The tree is built anew when its cost has grown by this factor, or when so many boxes were inserted or removed, as a
/// share of all, plus some.
constexpr double kLargestGrowth = 1.5, kMostExchanged = 0.25;
constexpr std::size_t kFewChanges = 16;
/// Beyond this depth a tree is built anew rather than made deeper.
constexpr int kDeepest = ObjectTree::kMaxDepth - 34;

FloatBox laneOf(const Node& node, std::uint32_t lane) {
  FloatBox box;
  for (int a = 0; a < 3; ++a) {
    box.min[a] = node.bounds[a][lane];
    box.max[a] = node.bounds[3 + a][lane];
  }
  return box;
}

void setLane(Node& node, std::uint32_t lane, Reference child, const FloatBox& box) {
  node.child[lane] = child;
  for (int a = 0; a < 3; ++a) {
    node.bounds[a][lane] = box.min[a];
    node.bounds[3 + a][lane] = box.max[a];
  }
}

FloatBox boundsOf(const Node& node) {
  FloatBox all;
  for (std::uint32_t lane = 0; lane < kWidth; ++lane) all.extend(laneOf(node, lane));
  return all;
}

/// Of half a box's surface; 0 for an empty one.
double halfArea(const FloatBox& box) {
  if (!(box.min[0] <= box.max[0])) return 0;
  const double x = double{box.max[0]} - double{box.min[0]}, y = double{box.max[1]} - double{box.min[1]},
               z = double{box.max[2]} - double{box.min[2]};
  return x * y + y * z + z * x;
}

bool isNode(Reference child) { return child < ObjectTree::kLeaf; }

void clear(Node& node, std::uint32_t parent) {
  for (std::uint32_t lane = 0; lane < kWidth; ++lane) setLane(node, lane, ObjectTree::kNothing, {});
  node.number = parent;
}

}  // namespace

FloatBox ObjectTree::unitBox(const Box& box) const {
  const Vec3 low = mScale * (box.min - mCenter), high = mScale * (box.max - mCenter);
  // Half an ulp of a double, from the subtraction: less than a float's.
  constexpr double kSlack = 0x1p-50;
  const auto down = [](double x) { return roundedDown(x - kSlack * (1 + std::fabs(x))); };
  const auto up = [](double x) { return roundedUp(x + kSlack * (1 + std::fabs(x))); };
  FloatBox unit;
  const double lows[3] = {low.x, low.y, low.z}, highs[3] = {high.x, high.y, high.z};
  for (int a = 0; a < 3; ++a) {
    unit.min[a] = down(lows[a]);
    unit.max[a] = up(highs[a]);
  }
  return unit;
}

Box ObjectTree::worldBox(const FloatBox& unit) const {
  const double size = 1 / mScale;
  const double slack = 0x1p-50 * (size + largestMagnitude(mCenter));
  const auto corner = [&](const float* at, double outward) {
    return Vec3{mCenter.x + size * double{at[0]} + outward, mCenter.y + size * double{at[1]} + outward,
                mCenter.z + size * double{at[2]} + outward};
  };
  return {corner(unit.min, -slack), corner(unit.max, slack)};
}

Box ObjectTree::childBox(const Node& node, int child) const {
  return worldBox(laneOf(node, static_cast<std::uint32_t>(child)));
}

Box ObjectTree::bounds() const { return root() == kNothing ? Box{} : worldBox(boundsOf(mNodes[0])); }

std::uint32_t ObjectTree::only() const {
  if (mCount != 1) return kNothing;
  for (std::uint32_t number = 0; number < mPlaces.size(); ++number)
    if (mPlaces[number].node != kNothing) return number;
  return kNothing;
}

void ObjectTree::noteIfOutside(const FloatBox& unit) {
  for (int a = 0; a < 3; ++a)
    if (unit.min[a] < -1 || unit.max[a] > 1) mIsStale = true;
}

/// The boxes of the nodes above a lane follow it, as far up as anything changes.
void ObjectTree::refitAbove(std::uint32_t node) {
  while (node != 0) {
    const std::uint32_t parent = mNodes[node].number;
    const FloatBox box = boundsOf(mNodes[node]);
    Node& above = mNodes[parent];
    std::uint32_t lane = 0;
    while (above.child[lane] != node) ++lane;
    const FloatBox before = laneOf(above, lane);
    if (std::ranges::equal(before.min, box.min) && std::ranges::equal(before.max, box.max)) return;
    setLane(above, lane, node, box);
    node = parent;
  }
}

void ObjectTree::insert(std::uint32_t number, const Box& box) {
  assert(number < kLeaf && box.min.x <= box.max.x);
  if (number >= mPlaces.size()) {
    const std::size_t size = std::max<std::size_t>(number + std::size_t{1}, mPlaces.size() * 3 / 2);
    mPlaces.reserve(size);
    mBoxes.reserve(size);
  }
  // Whatever is made below has room.
  if (mNodes.capacity() - mNodes.size() < 2) mNodes.reserve(2 * mNodes.size() + 2);
  if (number >= mPlaces.size()) {
    mPlaces.resize(number + std::size_t{1});
    mBoxes.resize(number + std::size_t{1});
  }
  mBoxes[number] = box;
  mPlaces[number] = {kNothing, 0};
  ++mCount;
  ++mExchanged;
  // Many at once are built in, not inserted one by one; and the first ones tell how large the unit coordinates are.
  if (mIsStale || mNodes.empty() ||
      mExchanged > kFewChanges + static_cast<std::size_t>(kMostExchanged * static_cast<double>(mCount))) {
    mIsStale = true;
    mPlaces[number] = {0, kPending};
    return;
  }
  const FloatBox unit = unitBox(box);
  noteIfOutside(unit);
  place(number, unit);
}

/// Into the node whose box grows least, on each level.
void ObjectTree::place(std::uint32_t number, const FloatBox& unit) {
  if (mNodes.empty()) {
    mNodes.emplace_back();
    clear(mNodes[0], kNothing);
  }
  std::uint32_t at = 0;
  for (int depth = 0;; ++depth) {
    Node& node = mNodes[at];
    std::uint32_t best = kWidth, free = kWidth;
    double least = 0;
    for (std::uint32_t lane = 0; lane < kWidth; ++lane) {
      if (node.child[lane] == kNothing) {
        free = std::min(free, lane);
        continue;
      }
      const FloatBox before = laneOf(node, lane);
      FloatBox after = before;
      after.extend(unit);
      const double growth = halfArea(after) - halfArea(before);
      if (best < kWidth && !(growth < least)) continue;
      best = lane;
      least = growth;
    }
    if (free < kWidth) {
      setLane(node, free, kLeaf | number, unit);
      mPlaces[number] = {at, free};
      refitAbove(at);
      return;
    }
    FloatBox grown = laneOf(node, best);
    grown.extend(unit);
    if (isNode(node.child[best])) {
      setLane(node, best, node.child[best], grown);
      at = node.child[best];
      continue;
    }
    if (depth >= kDeepest) mIsStale = true;
    const auto made = static_cast<std::uint32_t>(mNodes.size());
    mNodes.emplace_back();  // has room
    clear(mNodes[made], at);
    Node& above = mNodes[at];
    const std::uint32_t other = above.child[best] & ~kLeaf;
    setLane(mNodes[made], 0, kLeaf | other, laneOf(above, best));
    setLane(mNodes[made], 1, kLeaf | number, unit);
    mPlaces[other] = {made, 0};
    mPlaces[number] = {made, 1};
    setLane(above, best, made, grown);
    refitAbove(at);
    return;
  }
}

void ObjectTree::move(std::uint32_t number, const Box& box) {
  mBoxes[number] = box;
  ++mMoved;
  if (mIsStale) return;
  const FloatBox unit = unitBox(box);
  noteIfOutside(unit);
  const Place at = mPlaces[number];
  setLane(mNodes[at.node], at.lane, kLeaf | number, unit);
  refitAbove(at.node);
}

void ObjectTree::remove(std::uint32_t number) {
  const Place at = mPlaces[number];
  mPlaces[number] = {kNothing, 0};
  --mCount;
  ++mExchanged;
  if (at.lane == kPending) return;
  if (mIsStale) {
    // What is built anew goes by the places.
    return;
  }
  setLane(mNodes[at.node], at.lane, kNothing, {});
  refitAbove(at.node);
}

/// The sum of the inner boxes' surfaces: what a ray has to do with them.
double ObjectTree::cost() const {
  double sum = 0;
  for (const Node& node : mNodes)
    for (std::uint32_t lane = 0; lane < kWidth; ++lane)
      if (isNode(node.child[lane])) sum += halfArea(laneOf(node, lane));
  return sum;
}

void ObjectTree::update() {
  if (mCount == 0) {
    mNodes.clear();
    mIsStale = false;
    mExchanged = mMoved = 0;
    return;
  }
  if (!mIsStale && mExchanged > kFewChanges + static_cast<std::size_t>(kMostExchanged * static_cast<double>(mCount)))
    mIsStale = true;
  if (!mIsStale && mMoved > mCount) {
    mMoved = 0;
    mIsStale = cost() > kLargestGrowth * mBuiltCost;
  }
  if (mIsStale) rebuild();
}

/// Builds nodes over ranges of boxes.
class ObjectTree::Builder {
 public:
  Builder(ObjectTree& tree, std::vector<TriangleBox>& boxes, std::vector<Node>& nodes)
      : mTree(tree), mBoxes(boxes), mNodes(nodes) {}

  std::uint32_t build(const TriangleRange& range, std::uint32_t parent, int depth) {
    std::array<TriangleRange, kWidth> children;
    children[0] = range;
    std::uint32_t count = 1;
    while (count < kWidth) {
      const std::uint32_t widest = widestOf(children, count);
      if (widest == kWidth) break;
      const auto [left, right] = split(children[widest], depth);
      children[widest] = left;
      children[count++] = right;
    }
    const auto at = static_cast<std::uint32_t>(mNodes.size());
    mNodes.emplace_back();
    clear(mNodes[at], parent);
    for (std::uint32_t lane = 0; lane < count; ++lane) {
      const TriangleRange& child = children[lane];
      FloatBox box;
      for (int a = 0; a < 3; ++a) {
        box.min[a] = child.bounds.low[a];
        box.max[a] = child.bounds.high[a];
      }
      Reference reference;
      if (child.size() == 1) {
        const std::uint32_t number = mBoxes[child.begin].triangle();
        reference = kLeaf | number;
        mTree.mPlaces[number] = {at, lane};
      } else {
        reference = build(child, at, depth + 1);
      }
      setLane(mNodes[at], lane, reference, box);
    }
    return at;
  }

 private:
  static std::uint32_t widestOf(const std::array<TriangleRange, kWidth>& children, std::uint32_t count) {
    std::uint32_t widest = kWidth;
    float largest = -1;
    for (std::uint32_t i = 0; i < count; ++i) {
      if (children[i].size() == 1) continue;
      const float area = children[i].bounds.halfArea();
      if (!(area > largest)) continue;
      largest = area;
      widest = i;
    }
    return widest;
  }
  /// Near the largest depth only halves are cut: that many levels do for any number of boxes.
  std::pair<TriangleRange, TriangleRange> split(const TriangleRange& range, int depth) {
    return depth < kDeepest ? splitBySurfaceArea(mBoxes, range) : halve(mBoxes, range);
  }

  ObjectTree& mTree;
  std::vector<TriangleBox>& mBoxes;
  std::vector<Node>& mNodes;
};

/// A throw leaves the tree stale, and so to be built by the next update().
void ObjectTree::rebuild() {
  Box all;
  for (std::size_t number = 0; number < mPlaces.size(); ++number)
    if (mPlaces[number].node != kNothing) all.extend(mBoxes[number]);
  mCenter = all.min + 0.5 * (all.max - all.min);
  double halfSize = 0;
  for (const Vec3& d : {all.max - mCenter, mCenter - all.min}) halfSize = std::max({halfSize, d.x, d.y, d.z});
  int exponent = 0;
  std::frexp(halfSize / kBuiltShare, &exponent);
  constexpr int kMostExponent = 1000;
  mScale = std::ldexp(1.0, std::clamp(-exponent, -kMostExponent, kMostExponent));

  std::vector<TriangleBox> boxes;
  boxes.reserve(mCount);
  TriangleRange range;
  for (std::size_t number = 0; number < mPlaces.size(); ++number) {
    if (mPlaces[number].node == kNothing) continue;
    const FloatBox unit = unitBox(mBoxes[number]);
    const TriangleBox box{
        {unit.min[0], unit.min[1], unit.min[2], std::bit_cast<float>(static_cast<std::uint32_t>(number))},
        {unit.max[0], unit.max[1], unit.max[2], 0}};
    range.add(box);
    boxes.push_back(box);
  }
  range.end = static_cast<std::uint32_t>(boxes.size());
  std::vector<Node> nodes;
  nodes.reserve(boxes.size() / 3 + 2);
  Builder(*this, boxes, nodes).build(range, kNothing, 0);
  mNodes.swap(nodes);
  mBuiltCost = cost();
  mExchanged = mMoved = 0;
  mIsStale = false;
}

}  // namespace util
