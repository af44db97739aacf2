#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/util/math/Box.h>
#include <facetbox/util/spatial/ViewVolume.h>

namespace util {

/// Finds among many boxes those that meet a view volume, without looking at all of them: a tree of bounds over the
/// boxes, halved at the median again and again.
///
/// Built once for a fixed list; 60 bytes per box.
class BoxIndex {
 public:
  /// O(n log n).
  explicit BoxIndex(std::span<const Box> boxes);

  /// Number of boxes that it was built for.
  std::size_t size() const { return mSize; }

  /// Sets bit i % 64 of marks[i / 64] for every box i that meets the volume, and leaves all other bits alone.
  void markMeeting(const ViewVolume& volume, std::span<std::uint64_t> marks) const;

 private:
  struct Node {
    Box bounds;
    std::uint32_t first, count;  // of its boxes in mEntries; an inner node has none
    std::uint32_t next;          // the node behind this one and all below it
  };
  struct Entry {
    Box box;
    std::uint32_t index;
  };

  void build(std::span<Entry> entries);

  std::size_t mSize;
  std::vector<Entry> mEntries;  // leaf after leaf
  std::vector<Node> mNodes;     // each before those below it
};

}  // namespace util
