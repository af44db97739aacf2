#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/ChunkedVector.h>
#include <facetbox/math/Box.h>
#include <facetbox/math/Instructions.h>
#include <facetbox/spatial/BoxTree.h>
#include <facetbox/spatial/Frustum.h>

namespace util {

/// Finds among many boxes those that meet a view volume, without looking at all of them, while boxes are added.
///
/// Boxes lie in buckets of some hundreds, each with a tree of bounds, and a tree of the buckets' bounds leads to these.
/// An addition goes to the bucket that grows least. It waits in the bucket's tail; a full tail has the tree of that
/// bucket built anew, and a full bucket is cut in two at the median, so that no addition costs much more than sorting
/// some hundred numbers, and every part of the index is as good as one built at once, whatever the order of additions.
/// A bucket is found by a look at the bounds of all, and the tree over them is built anew with each cut: linear, but in
/// n / 200, and cuts are some hundred additions apart.
///
/// Bounds are floats, rounded outward; where they leave a doubt, they say so. 40 to 60 bytes per box.
class BoxIndex {
 public:
  /// False for a box that is empty on an axis, or NaN: such a one is not in the index.
  static bool meetsAnything(const Box& box) {
    return box.min.x <= box.max.x && box.min.y <= box.max.y && box.min.z <= box.max.z;
  }

  /// Of all boxes, at once. O(n log n).
  void build(const ChunkedVector<Box>& boxes);
  /// Adds the last of the boxes.
  void append(const ChunkedVector<Box>& boxes);
  /// All boxes have changed, but lie to each other much as before, and as many as before meet anything: the same ones.
  /// O(n).
  void refit(const ChunkedVector<Box>& boxes);

  /// Room for what is found, to be used again and again, by any index.
  struct Found {
    /// Numbers of boxes, in no certain order, times kPlaneRange, plus a bit 1 << i for each plane i of the volume that
    /// the box is not certain to lie inside of. One without bits meets the volume; others have to be asked themselves.
    /// Boxes that are not listed do not meet it.
    std::span<const std::uint32_t> boxes;
    static constexpr std::uint32_t kPlaneRange = BoxTraversal::kPlaneRange;

   private:
    friend BoxIndex;
    Buffer<std::uint32_t> mBoxes, mBuckets, mRoom;
  };
  void find(const Frustum& volume, Found& found, Instructions instructions = Instructions::best) const;

 private:
  static constexpr std::size_t kLargest = 320;  // boxes of a bucket
  static constexpr std::size_t kBuilt = 256;    // of those built at once, which are to have room

  struct Bucket {
    BoxTree tree;
    std::uint32_t place;  // in mTop
  };

  template <class Traverse>
  std::size_t find(const BoxTraversal& traversal, Found& found, Traverse traverse) const;
  void buildBuckets(std::span<BoxKey> keys, const ChunkedVector<Box>& boxes);
  void buildTop();
  std::size_t bucketFor(const FloatBox& box) const;

  std::vector<Bucket> mBuckets;
  std::vector<FloatBox> mBounds;  // of the buckets
  BoxTree mTop;                   // of the buckets' bounds; unused where there is only one
  std::size_t mSize = 0;
};

}  // namespace util
