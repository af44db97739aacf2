#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/base/ChunkedVector.h>
#include <facetbox/math/Box.h>
#include <facetbox/spatial/OctreeRoot.h>

namespace util {

/// The order in which an octree lists its boxes: cells depth-first, and the boxes of a cell in order of insertion.
///
/// A linear octree: there are no nodes, only the cell of each box and its turn of insertion. Boxes are numbered 0, 1
/// and so on as they are added, and keep their numbers.
///
/// The root grows when a box does not fit, see OctreeRoot::holding(). All boxes are then inserted anew, in the order
/// that they had.
class OctreeOrder {
 public:
  /// @param halfSize  of the root, at first and after each moveAll(); above 0
  explicit OctreeOrder(double halfSize) : mFirstHalfSize(halfSize), mRoot{{0, 0, 0}, halfSize} { assert(halfSize > 0); }

  struct Place {
    std::uint32_t turn;
    std::uint16_t cell;
    static_assert(OctreeRoot::kCells[0] <= 0x10000);

    /// Ascends along the order.
    std::uint64_t key() const { return std::uint64_t{cell} << 32 | turn; }
    static std::uint16_t cellOf(std::uint64_t key) { return static_cast<std::uint16_t>(key >> 32); }
  };

  const OctreeRoot& root() const { return mRoot; }
  /// The union of all boxes that have a place in the root.
  const Box& all() const { return mUnion; }
  std::size_t size() const { return mPlaces.size(); }
  const Place& operator[](std::size_t number) const { return mPlaces[number]; }

  /// Adds a box; `boxes` are those that were added before. O(1), or O(n) if the root has to grow. A box that reaches
  /// beyond 1e300 leaves the root as it is. Changes nothing if it throws.
  void add(const Box& box, const ChunkedVector<Box>& boxes);

  /// All numbers in order. O(n).
  std::vector<std::uint32_t> numbers() const;

  /// Sets all `boxes[number] = move(number)`, begins anew with a root of the first size, and inserts all boxes again,
  /// in the order that they had. O(n), and again for each time that the root grows. Throws before it calls `move`,
  /// which may not throw, or not at all.
  template <class Move>
  void moveAll(ChunkedVector<Box>& boxes, Move move);

 private:
  std::uint16_t cellOf(const Box& box) const { return static_cast<std::uint16_t>(mRoot.cellOf(box)); }
  void sort(std::span<const std::uint32_t> numbers, std::uint32_t* sorted) const;
  void grow(const OctreeRoot& root, std::span<std::uint32_t> numbers, std::uint32_t* scratch,
            const ChunkedVector<Box>& boxes);
  std::vector<std::uint32_t> numbersByTurn() const;
  void setTurns(std::span<const std::uint32_t> numbers);

  double mFirstHalfSize;
  OctreeRoot mRoot;
  Box mUnion;  // of all boxes that have a place
  ChunkedVector<Place> mPlaces;
};

template <class Move>
void OctreeOrder::moveAll(ChunkedVector<Box>& boxes, Move move) {
  std::vector<std::uint32_t> order = numbers(), scratch(order.size());
  mRoot = {{0, 0, 0}, mFirstHalfSize};
  mUnion = Box{};
  for (std::uint32_t number = 0; number < order.size(); ++number) boxes[number] = move(number);
  for (std::size_t i = 0; i < order.size(); ++i) {
    const std::uint32_t number = order[i];
    const Box& box = boxes[number];
    const OctreeRoot root = mRoot.holding(box, mUnion);
    if (!isSame(root, mRoot)) grow(root, std::span(order).first(i), scratch.data(), boxes);
    if (OctreeRoot::hasPlace(box)) mUnion.extend(box);
    mPlaces[number].cell = cellOf(box);
  }
  setTurns(order);
}

}  // namespace util
