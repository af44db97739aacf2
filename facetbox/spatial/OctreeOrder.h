#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/base/ChunkedVector.h>
#include <facetbox/math/Box.h>
#include <facetbox/spatial/OctreeRoot.h>

namespace util {

/// The order in which an octree would list boxes: cells by depth first, and the boxes of a cell in order of insertion.
///
/// The root grows with what is added. It is then placed around the middle of the union of all boxes, its size doubled
/// as often as needed, and all boxes are inserted anew in the order that they had. Boxes are known by the numbers 0, 1
/// and so on of their addition, which they keep. No tree is kept, only each box's cell and its turn of insertion.
class OctreeOrder {
 public:
  /// @param halfSize  of the root's edges, at first and again when boxes are moved; above 0
  explicit OctreeOrder(double halfSize) : mFirstHalfSize(halfSize), mRoot{{0, 0, 0}, halfSize} {}

  struct Place {
    std::uint32_t turn;
    std::uint16_t cell;

    /// Grows along the order.
    std::uint64_t key() const { return std::uint64_t{cell} << 32 | turn; }
    static std::uint16_t cellOf(std::uint64_t key) { return static_cast<std::uint16_t>(key >> 32); }
  };

  const OctreeRoot& root() const { return mRoot; }
  std::size_t size() const { return mPlaces.size(); }
  const Place& operator[](std::size_t number) const { return mPlaces[number]; }

  /// Adds the box that comes after the others; `boxes` are those that were added before. O(1), or O(n) where the root
  /// has to grow. Boxes that reach beyond 1e300 do not move the root. Throws, or does all that it should.
  void add(const Box& box, const ChunkedVector<Box>& boxes);

  /// All numbers in order. O(n).
  std::vector<std::uint32_t> numbers() const;

  /// Sets all `boxes[number] = move(number)`, by number; begins anew with a root of the first size, and adds all boxes
  /// again, in the order that they had. O(n) besides for each time that the root grows. Throws before anything is
  /// moved, or does all that it should.
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
