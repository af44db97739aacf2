#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/mesh/MeshStorage.h>

namespace util {

/// Finds, among copies of one face, those whose texture coordinates may be close to a given copy's at all corners and
/// in all sets. It never misses one; the caller decides.
///
/// A k-d tree (Bentley, Multidimensional Binary Search Trees Used for Associative Searching, 1975) over all coordinates
/// of all corners, each node split along the one and at the place that leaves the fewest pairs to be compared: copies
/// that are close at all corners but one are told apart at that one, whichever it is.
///
/// For k copies of a face with d coordinates: O(d k log^2 k) to build. When copies that are found close go, those that
/// stay are pairwise apart, so that only a bounded number of them, for a given d, have any one copy in reach: O(log k)
/// a search. That bound grows exponentially with d where copies are apart in ever other few coordinates and halfway
/// between others in the rest (or NaN there); then, for faces of very many corners, it ends with each compared with
/// each. Nothing better is known for that: it is the partial-match problem.
class TexCoordTree {
 public:
  /// @param copies     faces, ascending, with the same vertices equally often
  /// @param tolerance  coordinates that far apart are not close
  TexCoordTree(const MeshStorage& mesh, std::span<const std::uint32_t> copies, double tolerance);

  /// Calls `use(later)` for the later copies, by their position, that may be close to a copy. What it returns true for
  /// is gone: it is neither searched for nor found from then on. To be called with ascending copies.
  template <class Use>
  void forEachLater(std::uint32_t copy, Use use) {
    visit(0, copy, use);
  }

 private:
  /// Copies with finite coordinates go by them; those that no coordinate tells from the copy searched for stand apart.
  struct Node {
    std::uint32_t left;       ///< copies below it that may not be gone
    std::uint32_t children;   ///< position of the lower one, the upper one and that for the rest; 0 for a leaf
    std::uint32_t dimension;  ///< along which it is split
    double lowerEnd, upperBegin;
    std::uint32_t begin;  ///< of a leaf's copies in mItems
  };
  struct Split {
    std::size_t dimension;
    double lowerEnd, upperBegin, cost;
  };

  void fillValues(const MeshStorage& mesh, std::span<const std::uint32_t> copies);
  void build(std::uint32_t node, std::span<std::uint32_t> items, std::size_t firstTried);
  Split chooseSplit(std::span<const std::uint32_t> items, std::size_t firstTried);
  void rateDimension(std::size_t dimension, std::span<const std::uint32_t> items, Split& best);
  template <class Rate>
  void rateHalves(Rate rate);
  template <class Rate>
  void rateAllCuts(std::size_t absent, Rate rate);
  double value(std::uint32_t copy, std::size_t dimension) const { return mValues[copy * mDimensions + dimension]; }

  bool areApart(std::uint32_t copy, std::uint32_t item) const {
    for (std::size_t dimension = 0; dimension < mDimensions; ++dimension) {
      const double at = value(copy, dimension);
      if (std::isfinite(at) && std::fabs(at - value(item, dimension)) >= mTolerance) return true;
    }
    return false;
  }

  template <class Use>
  std::uint32_t visit(std::uint32_t number, std::uint32_t copy, Use& use) {
    Node& node = mNodes[number];
    if (node.left == 0) return 0;
    if (node.children == 0) return visitLeaf(node, copy, use);
    const double at = value(copy, node.dimension);
    const bool isFree = !std::isfinite(at);
    // Rounding is monotone: what is that far from the end is as far from all behind it.
    if (isFree || !(at - node.lowerEnd >= mTolerance)) visit(node.children, copy, use);
    if (isFree || !(node.upperBegin - at >= mTolerance)) visit(node.children + 1, copy, use);
    visit(node.children + 2, copy, use);
    return node.left = mNodes[node.children].left + mNodes[node.children + 1].left + mNodes[node.children + 2].left;
  }

  template <class Use>
  std::uint32_t visitLeaf(Node& leaf, std::uint32_t copy, Use& use) {
    std::uint32_t kept = 0;
    for (std::uint32_t i = 0; i < leaf.left; ++i) {
      const std::uint32_t item = mItems[leaf.begin + i];
      if (item > copy && (areApart(copy, item) || !use(item))) mItems[leaf.begin + kept++] = item;
    }
    return leaf.left = kept;
  }

  double mTolerance;
  std::size_t mDimensions = 0;
  /// By copy and dimension: for each set the u of all corners, then the v, sorted by vertices and, where a vertex is
  /// there several times, by value: where corners can be matched so that all are close, those of equal rank are.
  /// Minus infinity where a search that looks at the set finds nothing, NaN where it may be close to anything.
  std::vector<double> mValues;
  std::vector<std::uint32_t> mItems;
  std::vector<Node> mNodes;
  std::vector<double> mSorted;  // scratch
};

}  // namespace util
