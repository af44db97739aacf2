#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/util/math/Box.h>
#include <facetbox/util/spatial/ViewVolume.h>

namespace util {

/// Finds among many boxes those that meet a view volume, without looking at all of them: a tree of bounds, eight
/// children to a node, halved at the median again and again.
///
/// Bounds are floats, rounded outward; where they leave a doubt the box itself is asked. Built for a fixed list; 85
/// bytes per box.
class BoxIndex {
 public:
  /// O(n log n).
  void build(std::span<const Box> boxes);

  /// Sets bit i % 64 of marks[i / 64] for every box i that meets the volume, and leaves all other bits alone.
  void markMeeting(const ViewVolume& volume, std::span<std::uint64_t> marks) const;

 private:
  static constexpr std::size_t kWidth = 8;

  /// The bounds of eight neighbours of the level below, or of eight boxes.
  struct alignas(16) Block {
    float bounds[6][kWidth];  // minima in x, y, z, then maxima
    float size;               // the largest coordinate by absolute value; at least that of all boxes within
    std::uint32_t count;
  };
  struct Key {
    float middle[3];
    std::uint32_t index;
  };
  struct Planes;

  static void arrange(std::span<Key> keys);
  void visit(std::size_t level, std::size_t number, unsigned open, const ViewVolume& volume, const Planes& planes,
             std::span<std::uint64_t> marks) const;

  std::vector<Key> mKeys;                 // in the order of the leaves
  std::vector<Box> mBoxes;                // likewise
  std::vector<Block> mBlocks;             // level by level, that of the boxes first
  std::array<std::size_t, 12> mLevels{};  // where each starts, in mBlocks
  std::array<std::size_t, 12> mReach{};   // boxes below each block of a level
  std::size_t mLevelCount = 0;
};

}  // namespace util
