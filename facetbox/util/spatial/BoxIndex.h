#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/util/math/Box.h>
#include <facetbox/util/math/Instructions.h>
#include <facetbox/util/spatial/BoxDescent.h>
#include <facetbox/util/spatial/ViewVolume.h>

namespace util {

/// Finds among many boxes those that meet a view volume, without looking at all of them: a tree of bounds, eight
/// children to a node, halved at the median again and again.
///
/// Bounds are floats, rounded outward; where they leave a doubt, they say so. Built for a fixed list; 37 bytes per box.
class BoxIndex {
 public:
  /// O(n log n).
  void build(std::span<const Box> boxes);

  /// What is found for all boxes: bit i % 64 of word i / 64 is for box i.
  struct Found {
    std::vector<std::uint64_t> inside;    ///< well inside all planes, and so meets the volume
    std::vector<std::uint64_t> firm;      ///< meets the volume firmly
    std::vector<std::uint64_t> doubtful;  ///< the box itself must be asked; all others do not meet the volume

   private:
    friend BoxIndex;
    std::vector<std::uint32_t> mRoom;  // scratch
  };
  /// Keeps the room of what was found before.
  void find(const ViewVolume& volume, Found& found, Instructions instructions = Instructions::best) const;

 private:
  static constexpr std::size_t kWidth = kBoxBlockWidth;

  struct Key {
    float middle[3];
    std::uint32_t index;
  };
  static void arrange(std::span<Key> keys);

  std::size_t mSize = 0;                  // of the list
  std::vector<std::uint32_t> mOrder;      // of the leaves
  std::vector<BoxBlock> mBlocks;          // level by level, that of the boxes first
  std::array<std::size_t, 12> mLevels{};  // where each starts, in mBlocks
  std::size_t mLevelCount = 0;
};

}  // namespace util
