#pragma once

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <numeric>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/base/Monitor.h>
#include <facetbox/math/Box.h>
#include <facetbox/spatial/FixedBoxOctree.h>

namespace util {

/// Items with bounding boxes, found by a box: tiles of about a thousand boxes, with an octree each (FixedBoxOctree). A
/// single octree of five levels would crowd its cells.
///
/// plan() divides all boxes among tiles by STR packing (sort-tile-recursive: Leutenegger, Lopez and Edgington, STR: A
/// Simple and Efficient Algorithm for R-Tree Packing, 1997). insert() then adds them one by one. Planning takes
/// O(n log n). A query looks at the bounds of all tiles, and into the octrees of those that it meets.
///
/// This is the octree for queries by box. The picker's octree, for queries by view volume, is spread over
///   OctreeRoot          the root cube, its growth (ensureContains) and the way to a box's cell
///   OctreeOrder         the cells' records: insertion, rebuild, and the order in which they are collected
///   BoxSet              the set of boxes with its view volume query (queryFrustum)
///   BoxIndex, BoxTree   find the boxes of that query, in place of a traversal of cells with counts of their records
/// Nothing removes a single record, so there are no visitors that count up and down.
template <class T>
class BBoxOctree {
 public:
  /// Drops everything and plans for these boxes, which may be empty or infinite, but hold no NaN.
  /// @param axis     the one along which they spread least; tiles do not divide it
  /// @param monitor  asked on the way; may be null
  void plan(std::span<const Box> boxes, int axis, Monitor* monitor = nullptr);

  /// Drops everything, which takes long after very many insertions.
  void clear(Monitor* monitor);

  /// Inserts the item of box `index` of those planned for, at most once. `box` is that box again, so that nobody has to
  /// keep it who can compute it anew.
  void insert(std::size_t index, const Box& box, T item);

  /// Calls `use(item)` for the inserted items whose boxes meet `query` (touching counts) until it returns true.
  /// @return whether it did
  template <class Use>
  bool any(const Box& query, Use use);

 private:
  using Octree = FixedBoxOctree<T>;

  struct Tile {
    Box bounds;                      // of all its boxes, inserted or not
    double margin;                   // more than the rounding of the cells' places
    std::unique_ptr<Octree> octree;  // made by the first insertion
  };

  static constexpr std::size_t kTileSize = 1024;
  static constexpr std::uint32_t kApart = 0xFFFFFFFFu;

  // A cell's center is the sum of six numbers, the root's center and halves, quarters and so on of its size. Relative
  // to the tile's largest coordinate, each is off by at most an ulp, and the margin is a good deal more.
  static constexpr double kCellRounding = 6 * std::numeric_limits<double>::epsilon();
  static constexpr double kMargin = 0x1p-44;
  static_assert(kMargin > 32 * kCellRounding);

  struct Center {
    Vec2 at;
    std::uint32_t box;
  };

  static bool isOrdinary(const Box& box);
  static void sortBy(double Vec2::*first, double Vec2::*second, std::span<Center> centers, Monitor* monitor);
  void pack(std::span<const Box> boxes, std::span<const Center> ofOneTile);

  std::vector<std::uint32_t> mTileOf;  // per box: position in mTiles, or kApart
  std::vector<Tile> mTiles;
  std::vector<std::pair<Box, T>> mApart;  // boxes that no octree can take: every query looks at them all
};

/// Whether the box is not empty, and so far from overflow that a cube around it and others has a center.
template <class T>
bool BBoxOctree<T>::isOrdinary(const Box& box) {
  constexpr double kLargest = 0x1p1000;
  return box.min.x <= box.max.x && box.min.y <= box.max.y && box.min.z <= box.max.z && box.min.x >= -kLargest &&
         box.min.y >= -kLargest && box.min.z >= -kLargest && box.max.x <= kLargest && box.max.y <= kLargest &&
         box.max.z <= kLargest;
}

template <class T>
void BBoxOctree<T>::plan(std::span<const Box> boxes, int axis, Monitor* monitor) {
  assert(axis >= 0 && axis < 3);
  clear(monitor);
  mTileOf.assign(boxes.size(), kApart);
  std::vector<Center> centers;
  centers.reserve(boxes.size());
  for (std::uint32_t i = 0; i < boxes.size(); ++i)
    if (isOrdinary(boxes[i])) centers.push_back({project((boxes[i].min + boxes[i].max) / 2, axis), i});
  if (centers.size() <= kTileSize) {
    if (!centers.empty()) pack(boxes, centers);
    return;
  }

  // Strips across the first coordinate, each cut into tiles across the second.
  const auto tileCount = static_cast<double>((centers.size() + kTileSize - 1) / kTileSize);
  const std::size_t stripSize = kTileSize * static_cast<std::size_t>(std::ceil(std::sqrt(tileCount)));
  sortBy(&Vec2::x, &Vec2::y, centers, monitor);
  for (std::span<Center> left(centers); !left.empty(); left = left.subspan(std::min(stripSize, left.size()))) {
    std::span<Center> strip = left.first(std::min(stripSize, left.size()));
    sortBy(&Vec2::y, &Vec2::x, strip, monitor);
    for (; !strip.empty(); strip = strip.subspan(std::min(kTileSize, strip.size())))
      pack(boxes, strip.first(std::min(kTileSize, strip.size())));
  }
}

template <class T>
void BBoxOctree<T>::clear(Monitor* monitor) {
  for (Tile& tile : mTiles) {
    tile.octree.reset();
    if (monitor) monitor->tick(kTileSize);
  }
  mTiles.clear();
  mApart.clear();
}

template <class T>
void BBoxOctree<T>::sortBy(double Vec2::*first, double Vec2::*second, std::span<Center> centers, Monitor* monitor) {
  std::ranges::sort(centers, [=](const Center& a, const Center& b) {
    if (monitor) monitor->tick();
    return a.at.*first != b.at.*first ? a.at.*first < b.at.*first : a.at.*second < b.at.*second;
  });
}

template <class T>
void BBoxOctree<T>::pack(std::span<const Box> boxes, std::span<const Center> ofOneTile) {
  Box bounds;
  for (const Center& center : ofOneTile) {
    mTileOf[center.box] = static_cast<std::uint32_t>(mTiles.size());
    bounds.extend(boxes[center.box]);
  }
  const double magnitude = std::max({std::fabs(bounds.min.x), std::fabs(bounds.min.y), std::fabs(bounds.min.z),
                                     std::fabs(bounds.max.x), std::fabs(bounds.max.y), std::fabs(bounds.max.z)});
  mTiles.push_back({bounds, kMargin * magnitude + std::numeric_limits<double>::min(), nullptr});
}

template <class T>
void BBoxOctree<T>::insert(std::size_t index, const Box& box, T item) {
  assert(index < mTileOf.size());
  if (mTileOf[index] == kApart) {
    mApart.emplace_back(box, std::move(item));
    return;
  }
  Tile& tile = mTiles[mTileOf[index]];
  if (!tile.octree) {
    const Vec3 extent = tile.bounds.max - tile.bounds.min;
    const double halfSize = std::max({extent.x, extent.y, extent.z}) / 2;
    constexpr Vec3 kOrigin{0, 0, 0};
    tile.octree = std::make_unique<Octree>(OctreeRoot{kOrigin, halfSize > 0 ? halfSize : 1.0}.holding(tile.bounds, {}));
  }
  tile.octree->insert(box, std::move(item));
}

template <class T>
template <class Use>
bool BBoxOctree<T>::any(const Box& query, Use use) {
  for (const Tile& tile : mTiles) {
    if (!tile.octree || !boxesMeet(tile.bounds, query)) continue;
    const Vec3 margin{tile.margin, tile.margin, tile.margin};
    const Box widened{query.min - margin, query.max + margin};
    const bool found =
        tile.octree->any(widened, [&](const auto& record) { return boxesMeet(record.box, query) && use(record.item); });
    if (found) return true;
  }
  return std::ranges::any_of(mApart,
                             [&](const auto& apart) { return boxesMeet(apart.first, query) && use(apart.second); });
}

}  // namespace util
