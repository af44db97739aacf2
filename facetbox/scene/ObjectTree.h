#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/spatial/BoxTree.h>
#include <facetbox/triangles/TriangleBvh.h>

namespace util {

/// A bounding volume hierarchy over the boxes of a scene's objects that follows them as they come, move and go: eight
/// children a node.
///
/// A change is made in the node where the box is, and the boxes on the way to the root follow. What that costs in
/// quality is made good by building all anew, after a quarter of the objects have come or gone, or where the
/// boxes of nodes have become much larger: so a change costs O(log n), on average.
///
/// Bounds are floats in the tree's own unit coordinates, (x - center()) * scale(), rounded outward. They lie between -1
/// and 1. About 110 bytes per box.
class ObjectTree {
 public:
  static constexpr int kWidth = TriangleBvh::kWidth;
  /// Longest chain of nodes.
  static constexpr int kMaxDepth = 64;
  static constexpr int kStackSize = (kWidth - 1) * kMaxDepth + kWidth;

  /// The number of a node, or kLeaf and the number of a box.
  using Reference = TriangleBvh::Reference;
  static constexpr Reference kLeaf = TriangleBvh::kLeaf;
  static constexpr Reference kNothing = 0xFFFFFFFFu;
  /// Of unused children the bounds are empty.
  using Node = TriangleBvh::Node;

  /// kNothing while there are no boxes; else a node.
  Reference root() const { return mNodes.empty() || mCount == 0 ? kNothing : 0; }
  const Node& node(Reference reference) const { return mNodes[reference]; }
  const Node* nodes() const { return mNodes.data(); }
  const Vec3& center() const { return mCenter; }
  /// A power of two.
  double scale() const { return mScale; }
  std::size_t size() const { return mCount; }
  /// The box, where there is one; else kNothing. O(nodes), if there is.
  std::uint32_t only() const;
  /// The box of a child in the world, rounded outward.
  Box childBox(const Node& node, int child) const;
  /// Around all; empty where there are none. In the world, and rounded outward. O(1).
  Box bounds() const;

  /// Adds a box, moves it, or removes it. Boxes are finite and not empty; numbers below kLeaf, and best without gaps.
  /// Throws before anything is changed, or changes all. Call update() afterwards.
  void insert(std::uint32_t number, const Box& box);
  void move(std::uint32_t number, const Box& box);
  void remove(std::uint32_t number);
  /// Makes changes good. Before the next look at nodes.
  void update();

 private:
  class Builder;
  /// In place of a lane: the box waits for the tree to be built anew.
  static constexpr std::uint32_t kPending = 0xFFFFFFFFu;
  struct Place {
    std::uint32_t node = kNothing;  ///< kNothing: there is no such box
    std::uint32_t lane = 0;
  };

  FloatBox unitBox(const Box& box) const;
  Box worldBox(const FloatBox& unit) const;
  void noteIfOutside(const FloatBox& unit);
  void place(std::uint32_t number, const FloatBox& unit);
  void refitAbove(std::uint32_t node);
  double cost() const;
  void rebuild();

  std::vector<Node> mNodes;    // the first is the root; Node::number is the parent's. A node without children stays
  std::vector<Place> mPlaces;  // of boxes, by number
  std::vector<Box> mBoxes;     // by number
  std::size_t mCount = 0;
  std::size_t mExchanged = 0,
              mMoved = 0;  // boxes that came or went since all was built; moved since its cost was known
  double mBuiltCost = 0;
  Vec3 mCenter{0, 0, 0};
  double mScale = 1;
  bool mIsStale = false;  // to be built anew
};

}  // namespace util
