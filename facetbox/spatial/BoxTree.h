#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include <facetbox/base/ChunkedVector.h>
#include <facetbox/math/Box.h>
#include <facetbox/spatial/BoxTraversal.h>

namespace util {

/// A box in floats, rounded outward.
struct FloatBox {
  static constexpr float kInfinity = std::numeric_limits<float>::infinity();

  float min[3]{kInfinity, kInfinity, kInfinity};
  float max[3]{-kInfinity, -kInfinity, -kInfinity};

  static FloatBox around(const Box& box);
  void extend(const FloatBox& box);
};

/// A box's number and middle; the latter for comparisons only.
struct BoxKey {
  float middle[3];
  std::uint32_t number;

  static BoxKey of(std::uint32_t number, const Box& box);
  static BoxKey of(std::uint32_t number, const FloatBox& box);
};

/// Splits keys at the median along the axis along which they spread most; `half` of them come first.
void halve(std::span<BoxKey> keys, std::size_t half);

/// A tree of bounds over boxes, eight children to a node, halved at the median again and again; and up to eight boxes
/// more that were appended.
class BoxTree {
 public:
  static constexpr std::size_t kWidth = kBoxBlockWidth;

  std::size_t size() const { return mOrder.size(); }
  const std::vector<std::uint32_t>& numbers() const { return mOrder; }
  const FloatBox& bounds() const { return mBounds; }

  /// O(n log n). `boxOf(number)` is a FloatBox, and `boxOf.prefetch(number)` has what it needs fetched.
  template <class BoxOf>
  void build(std::span<BoxKey> keys, const BoxOf& boxOf);
  /// Takes the boxes as they are now, and leaves the tree in its shape. O(n).
  template <class BoxOf>
  void refit(const BoxOf& boxOf);

  /// Whether append() may be called.
  bool hasRoom() const { return mOrder.size() - mBuilt < kWidth; }
  void append(std::uint32_t number, const FloatBox& box);
  /// Makes the box at a place in numbers() larger; not one that was appended.
  void extend(std::size_t place, const FloatBox& box);

  /// @tparam Traverse  as traverseBoxesBase()
  /// @return number of those found
  template <class Traverse>
  std::size_t find(const BoxTraversal& traversal, std::uint32_t open, std::uint32_t* found, Traverse traverse) const;

 private:
  static void arrange(std::span<BoxKey> keys);
  void layOut();
  void put(BoxBlock& block, std::size_t lane, const FloatBox& box);

  std::vector<std::uint32_t> mOrder;   // of the leaves; then of the boxes appended
  std::vector<BoxBlock> mBlocks;       // level by level, that of the boxes first; then the one of those appended
  std::vector<std::uint32_t> mLevels;  // where each starts, in mBlocks; then the end
  std::size_t mBuilt = 0;              // boxes that are not appended
  FloatBox mBounds;
};

template <class BoxOf>
void BoxTree::build(std::span<BoxKey> keys, const BoxOf& boxOf) {
  arrange(keys);
  mOrder.clear();
  mOrder.reserve(keys.size() + kWidth);
  for (const BoxKey& key : keys) mOrder.push_back(key.number);
  mBuilt = mOrder.size();
  layOut();
  refit(boxOf);
}

template <class BoxOf>
void BoxTree::refit(const BoxOf& boxOf) {
  for (BoxBlock& block : mBlocks) block = BoxBlock{};
  mBounds = FloatBox{};
  constexpr std::size_t kAhead = 24;  // for they lie anywhere
  for (std::size_t place = 0; place < mOrder.size(); ++place) {
    if (place + kAhead < mOrder.size()) boxOf.prefetch(mOrder[place + kAhead]);
    const FloatBox box = boxOf(mOrder[place]);
    const bool isAppended = place >= mBuilt;
    put(isAppended ? mBlocks.back() : mBlocks[place / kWidth], (isAppended ? place - mBuilt : place) % kWidth, box);
    mBounds.extend(box);
  }
  for (std::size_t level = 1; level + 1 < mLevels.size(); ++level)
    for (std::uint32_t below = mLevels[level - 1]; below < mLevels[level]; ++below) {
      const BoxBlock& child = mBlocks[below];
      FloatBox box;
      for (std::size_t lane = 0; lane < child.count; ++lane) {
        FloatBox of;
        for (std::size_t axis = 0; axis < 3; ++axis) {
          of.min[axis] = child.bounds[axis][lane];
          of.max[axis] = child.bounds[axis + 3][lane];
        }
        box.extend(of);
      }
      const std::size_t place = below - mLevels[level - 1];
      put(mBlocks[mLevels[level] + place / kWidth], place % kWidth, box);
    }
}

template <class Traverse>
std::size_t BoxTree::find(const BoxTraversal& traversal, std::uint32_t open, std::uint32_t* found,
                          Traverse traverse) const {
  if (open == 0) {
    for (const std::uint32_t number : mOrder) *found++ = BoxTraversal::kPlaneRange * number;
    return mOrder.size();
  }
  std::size_t count = 0;
  if (mBuilt != 0)
    count = traverse(traversal, BoxBlocks{mBlocks.data(), mLevels.data(), mOrder.data(), mBuilt}, mLevels.size() - 2,
                     open, found);
  if (mOrder.size() == mBuilt) return count;
  const std::uint32_t only = 0;
  return count + traverse(traversal, BoxBlocks{&mBlocks.back(), &only, mOrder.data() + mBuilt, mOrder.size() - mBuilt},
                          0, open, found + count);
}

}  // namespace util
