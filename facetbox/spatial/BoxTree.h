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

/// The number of a box, and its middle, which is only good for comparisons.
struct BoxKey {
  float middle[3];
  std::uint32_t number;

  static BoxKey of(std::uint32_t number, const Box& box);
  static BoxKey of(std::uint32_t number, const FloatBox& box);
};

/// Puts the `half` lowest keys first, along the axis on which all spread the most.
void splitAtMedian(std::span<BoxKey> keys, std::size_t half);

/// A bounding volume hierarchy of boxes, eight children per node, built by median splits; and a block of up to eight
/// boxes that were appended later.
class BoxTree {
 public:
  static constexpr std::size_t kWidth = kBoxBlockWidth;

  std::size_t size() const { return mOrder.size(); }
  const std::vector<std::uint32_t>& numbers() const { return mOrder; }
  const FloatBox& bounds() const { return mBounds; }

  /// O(n log n).
  /// @tparam BoxOf  boxOf(number) returns a FloatBox; boxOf.prefetch(number) fetches what that will need
  template <class BoxOf>
  void build(std::span<BoxKey> keys, const BoxOf& boxOf);
  /// Takes the boxes as they are now, and keeps the shape of the hierarchy. O(n).
  template <class BoxOf>
  void refit(const BoxOf& boxOf);

  /// Whether append() may be called: its block is not full.
  bool hasRoom() const { return mOrder.size() - mBuilt < kWidth; }
  void append(std::uint32_t number, const FloatBox& box);
  /// Enlarges the box at a place in numbers(), but not one that was appended.
  void extend(std::size_t place, const FloatBox& box);

  /// Frustum culling: see traverseBoxesBase(), which `traverse` is like.
  /// @param open  bits of the planes that are open for this hierarchy as a whole
  /// @return the number of boxes found
  template <class Traverse>
  std::size_t find(const BoxTraversal& traversal, std::uint32_t open, std::uint32_t* found, Traverse traverse) const;

 private:
  static void arrange(std::span<BoxKey> keys);
  void allocateBlocks();
  static void enlarge(BoxBlock& block, std::size_t lane, const FloatBox& box);
  static FloatBox boundsOf(const BoxBlock& block);

  std::vector<std::uint32_t> mOrder;   // numbers of the boxes, in the order of the leaves; appended ones last
  std::vector<BoxBlock> mBlocks;       // level by level, the level of the boxes first; the block of appended boxes last
  std::vector<std::uint32_t> mLevels;  // where each begins in mBlocks; then the end
  std::size_t mBuilt = 0;              // number of boxes that were not appended
  FloatBox mBounds;
};

template <class BoxOf>
void BoxTree::build(std::span<BoxKey> keys, const BoxOf& boxOf) {
  arrange(keys);
  mOrder.clear();
  mOrder.reserve(keys.size() + kWidth);
  for (const BoxKey& key : keys) mOrder.push_back(key.number);
  mBuilt = mOrder.size();
  allocateBlocks();
  refit(boxOf);
}

template <class BoxOf>
void BoxTree::refit(const BoxOf& boxOf) {
  for (BoxBlock& block : mBlocks) block = BoxBlock{};
  mBounds = FloatBox{};
  constexpr std::size_t kAhead = 24;  // boxes lie anywhere in memory
  for (std::size_t place = 0; place < mOrder.size(); ++place) {
    if (place + kAhead < mOrder.size()) boxOf.prefetch(mOrder[place + kAhead]);
    const FloatBox box = boxOf(mOrder[place]);
    const bool isAppended = place >= mBuilt;
    enlarge(isAppended ? mBlocks.back() : mBlocks[place / kWidth], (isAppended ? place - mBuilt : place) % kWidth, box);
    mBounds.extend(box);
  }
  for (std::size_t level = 1; level + 1 < mLevels.size(); ++level)
    for (std::uint32_t below = mLevels[level - 1]; below < mLevels[level]; ++below) {
      const std::size_t place = below - mLevels[level - 1];
      enlarge(mBlocks[mLevels[level] + place / kWidth], place % kWidth, boundsOf(mBlocks[below]));
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
