#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/ChunkedVector.h>
#include <facetbox/base/Processor.h>
#include <facetbox/math/Box.h>
#include <facetbox/spatial/BoxTree.h>
#include <facetbox/spatial/Frustum.h>

namespace util {

/// Frustum culling of many boxes, while more are added: a bounding volume hierarchy of two storeys.
///
/// Boxes lie in buckets of a few hundred. Each bucket has a hierarchy of its own, and one hierarchy of the buckets'
/// bounds leads to them. An added box goes to the bucket that grows least, into its block of appended boxes. When that
/// block is full, the bucket's hierarchy is built anew; when the bucket is full, it is split at the median. So no
/// addition costs much more than sorting a few hundred numbers, and no order of additions makes the index worse than
/// one built at once. Choosing a bucket looks at the bounds of all, and a split rebuilds the hierarchy above them:
/// linear, but in n / 200, and splits are a hundred and more additions apart.
///
/// Bounds are floats, rounded outward; where they leave a doubt, the result says so. 40 to 60 bytes per box.
class BoxIndex {
 public:
  /// False for a box that is empty on an axis, or NaN. The index leaves it out.
  static bool meetsAnything(const Box& box) {
    return box.min.x <= box.max.x && box.min.y <= box.max.y && box.min.z <= box.max.z;
  }

  /// Indexes all boxes at once. O(n log n).
  void build(const ChunkedVector<Box>& boxes);
  /// Adds the first box that is not indexed yet. O(n / 200), mostly.
  void append(const ChunkedVector<Box>& boxes);
  /// Takes the new places of boxes that all have moved much alike. The same ones as before must meet anything. O(n).
  void refit(const ChunkedVector<Box>& boxes);

  /// The result of find(), with memory that later calls for any index use again.
  struct Found {
    /// Numbers of boxes, in any order, times kPlaneRange, plus a bit 1 << i for each open plane i of the volume: one
    /// that the box is not certain to lie inside of. A box without open planes meets the volume, one that is not listed
    /// does not, and the others have to be tested themselves.
    std::span<const std::uint32_t> boxes;
    static constexpr std::uint32_t kPlaneRange = BoxTraversal::kPlaneRange;
    /// In place of the open planes: the volume's surface passes through the box, see Frustum::isConvex().
    static constexpr std::uint32_t kCrossed = BoxTraversal::kCrossed;

   private:
    friend BoxIndex;
    Buffer<std::uint32_t> mBoxes, mBuckets, mRoom;
  };
  /// What is crossed, and what has no open planes, is so for boxes around with margins up to Frustum::kLargestMargin.
  /// @param findsCrossed  whether to look for boxes that are kCrossed; the volume must be convex
  void find(const Frustum& volume, bool findsCrossed, Found& found,
            Instructions instructions = Instructions::best) const;

 private:
  static constexpr std::size_t kBucketSize = 320;  // at most
  static constexpr std::size_t kBuiltSize = 256;   // of a bucket that build() makes: leaves room for additions

  struct Bucket {
    BoxTree tree;
    std::uint32_t place;  // in mTop.numbers()
  };

  template <class Traverse>
  std::size_t find(const BoxTraversal& traversal, Found& found, Traverse traverse) const;
  static std::vector<BoxKey> keysOf(const Bucket& bucket, const ChunkedVector<Box>& boxes);
  void split(std::size_t bucket, std::span<BoxKey> keys, const ChunkedVector<Box>& boxes);
  void buildBuckets(std::span<BoxKey> keys, const ChunkedVector<Box>& boxes);
  void buildTop();
  std::size_t bucketFor(const FloatBox& box) const;

  std::vector<Bucket> mBuckets;
  std::vector<FloatBox> mBounds;  // of the buckets
  BoxTree mTop;                   // of the buckets' bounds; unused if there is only one
  std::size_t mSize = 0;          // boxes indexed or left out
};

}  // namespace util
