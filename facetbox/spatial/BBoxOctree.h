#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <numeric>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/math/Box.h>
#include <facetbox/spatial/FixedBoxOctree.h>

namespace util {

/// Any number of boxes with items, in octrees of about a thousand each: an octree's five levels tell no more apart.
/// Which box goes to which tree is planned for all boxes at once; they are then inserted one by one.
///
/// The split is that of Leutenegger, Lopez and Edgington, STR: A Simple and Efficient Algorithm for R-Tree Packing,
/// 1997. Planning costs O(n log n); a query looks at every tree's bounds, and into those trees that it meets.
template <class T>
class BBoxOctree {
 public:
  /// Drops everything and plans for these boxes. Boxes may be empty or infinite, but hold no NaN.
  /// @param axis  the axis along which they spread least
  void plan(std::span<const Box> boxes, int axis);

  /// Inserts the item of box `index` of those that were planned for, at most once. The box is that box again: where it
  /// can be computed anew, nobody has to keep it.
  void insert(std::size_t index, const Box& box, T item);

  /// Calls `use(item)` for the inserted items whose boxes meet `query` (touching counts) until it returns true.
  /// @return whether it did
  template <class Use>
  bool any(const Box& query, Use use);

 private:
  using Octree = FixedBoxOctree<T>;

  struct Tree {
    Box bounds;                      // of all boxes planned for
    double margin;                   // more than the rounding of the cells' places
    std::unique_ptr<Octree> octree;  // made by the first insertion
  };

  static constexpr std::size_t kTreeSize = 1024;
  static constexpr std::uint32_t kApart = 0xFFFFFFFFu;

  static bool isOrdinary(const Box& box);
  void pack(std::span<const Box> boxes, std::span<const std::uint32_t> ofOneTree);

  std::vector<std::uint32_t> mTreeOf;  // per box: position in mTrees, or kApart
  std::vector<Tree> mTrees;
  std::vector<std::pair<Box, T>> mApart;  // boxes without an ordinary place; every query looks at them all
};

/// Whether a cube around the box can be halved four times without over- or underflow and has a place at all.
template <class T>
bool BBoxOctree<T>::isOrdinary(const Box& box) {
  constexpr double kLargest = 0x1p1000;
  return box.min.x <= box.max.x && box.min.y <= box.max.y && box.min.z <= box.max.z && box.min.x >= -kLargest &&
         box.min.y >= -kLargest && box.min.z >= -kLargest && box.max.x <= kLargest && box.max.y <= kLargest &&
         box.max.z <= kLargest;
}

template <class T>
void BBoxOctree<T>::plan(std::span<const Box> boxes, int axis) {
  mTreeOf.assign(boxes.size(), kApart);
  mTrees.clear();
  mApart.clear();

  std::vector<std::uint32_t> order;
  order.reserve(boxes.size());
  for (std::uint32_t i = 0; i < boxes.size(); ++i)
    if (isOrdinary(boxes[i])) order.push_back(i);
  if (order.size() <= kTreeSize) {
    if (!order.empty()) pack(boxes, order);
    return;
  }

  // Strips across the first coordinate, each cut into trees across the second.
  std::vector<Vec2> centers(boxes.size());
  for (const std::uint32_t i : order) centers[i] = project((boxes[i].min + boxes[i].max) / 2, axis);
  const auto byFirst = [&](std::uint32_t i) { return std::pair(centers[i].x, centers[i].y); };
  const auto bySecond = [&](std::uint32_t i) { return std::pair(centers[i].y, centers[i].x); };
  const auto treeCount = static_cast<double>((order.size() + kTreeSize - 1) / kTreeSize);
  const std::size_t stripSize = kTreeSize * static_cast<std::size_t>(std::ceil(std::sqrt(treeCount)));
  std::ranges::sort(order, {}, byFirst);
  const std::span<std::uint32_t> all(order);
  for (std::size_t strip = 0; strip < all.size(); strip += stripSize) {
    const auto ofStrip = all.subspan(strip, std::min(stripSize, all.size() - strip));
    std::ranges::sort(ofStrip, {}, bySecond);
    for (std::size_t tree = 0; tree < ofStrip.size(); tree += kTreeSize)
      pack(boxes, ofStrip.subspan(tree, std::min(kTreeSize, ofStrip.size() - tree)));
  }
}

template <class T>
void BBoxOctree<T>::pack(std::span<const Box> boxes, std::span<const std::uint32_t> ofOneTree) {
  Box bounds;
  for (const std::uint32_t i : ofOneTree) {
    mTreeOf[i] = static_cast<std::uint32_t>(mTrees.size());
    bounds.extend(boxes[i]);
  }
  // A cell's center is the sum of six numbers below this size: the margin is some hundred times their rounding.
  const double size = std::max({std::fabs(bounds.min.x), std::fabs(bounds.min.y), std::fabs(bounds.min.z),
                                std::fabs(bounds.max.x), std::fabs(bounds.max.y), std::fabs(bounds.max.z)});
  mTrees.push_back({bounds, 0x1p-44 * size + std::numeric_limits<double>::min(), nullptr});
}

template <class T>
void BBoxOctree<T>::insert(std::size_t index, const Box& box, T item) {
  if (mTreeOf[index] == kApart) {
    mApart.emplace_back(box, std::move(item));
    return;
  }
  Tree& tree = mTrees[mTreeOf[index]];
  if (!tree.octree) {
    const Vec3 extent = tree.bounds.max - tree.bounds.min;
    const double halfSize = std::max({extent.x, extent.y, extent.z}) / 2;
    constexpr Vec3 kOrigin{0, 0, 0};
    tree.octree = std::make_unique<Octree>(OctreeRoot{kOrigin, halfSize > 0 ? halfSize : 1.0}.holding(tree.bounds, {}));
  }
  tree.octree->insert(box, std::move(item));
}

template <class T>
template <class Use>
bool BBoxOctree<T>::any(const Box& query, Use use) {
  for (const Tree& tree : mTrees) {
    if (!tree.octree || !boxesMeet(tree.bounds, query)) continue;
    const Vec3 margin{tree.margin, tree.margin, tree.margin};
    const Box widened{query.min - margin, query.max + margin};
    const bool found =
        tree.octree->any(widened, [&](const auto& record) { return boxesMeet(record.box, query) && use(record.item); });
    if (found) return true;
  }
  return std::ranges::any_of(mApart,
                             [&](const auto& apart) { return boxesMeet(apart.first, query) && use(apart.second); });
}

}  // namespace util
