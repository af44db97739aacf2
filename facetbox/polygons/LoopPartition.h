#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/polygons/PieceSplitter.h>
#include <facetbox/polygons/PlanarPolygon.h>

namespace util {

/// Finds, among closed loops in the plane that neither touch nor contain each other, those that a further loop may
/// touch, be inside of, or contain. It finds all of them and possibly others; the caller decides.
///
/// A binary space partition of the edges of all loops that may ever be inserted. It separates what boxes cannot:
/// bundles of long thin loops, whatever their direction, and loops in the mouths of others. For n edges that rarely
/// cross: O(n log n) to plan; a search visits every region near the loop and finds the loops there, some ten each, and
/// one for every region that is inside a loop. Where very many edges cross, regions stay large and more is found.
class LoopPartition {
 public:
  /// Plans for loops with the numbers from 0 to `count` - 1; all loops, inserted or searched for, must lie in `box`.
  /// Loops of one or two corners count as their corners only, others as their edges between finite corners.
  /// @param cornersOf  cornersOf(loop) are the corners of a loop to be inserted, or none; valid until the next call
  /// @return false where the box is too large or small for the arithmetic; then there is no partition.
  template <class CornersOf>
  bool plan(const Box2& box, std::size_t count, CornersOf cornersOf) {
    if (!begin(box, count)) return false;
    for (std::uint32_t loop = 0; loop < count; ++loop) addPieces(cornersOf(loop), mSplitter.items());
    build();
    return true;
  }

  /// Inserts a loop that neither touches, contains nor is contained in one that is inserted already.
  void insert(std::uint32_t loop, const PlanarPolygon& polygon);

  enum class Inner { sought, ignored };

  /// Calls `use(loop)` for inserted loops that may touch the polygon or contain a corner of it and, if `inner` says so,
  /// for those inside of it, until it returns true.
  /// @return whether it did
  template <class Use>
  bool any(const PlanarPolygon& polygon, Inner inner, Use use) {
    mInner = inner;
    ++mSearch;
    std::vector<PieceSplitter::Item>& pieces = mPieces;
    pieces.clear();
    addPieces(polygon.corners(), pieces);
    return !pieces.empty() && visit(0, 0, polygon, use);
  }

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

  /// A point is in child `child` where it is below the line, else in `child` + 1; `child` is 0 for a leaf.
  struct Node {
    Line line;
    std::uint32_t child = 0;
    Vec2 reference{};             ///< within twice the margin of the region; not local
    std::uint32_t owner = kNone;  ///< the loop that contains the whole region
    std::uint32_t first = kNone;  ///< of a leaf: its newest entry
    bool isEmpty = true;          ///< nothing has been inserted into the region
  };
  struct Entry {
    std::uint32_t loop, next;
  };

  bool begin(const Box2& box, std::size_t count);
  void build();
  void buildNode(std::uint32_t node, std::size_t begin, std::size_t spare, int depth);
  void addPieces(std::span<const Vec2> corners, std::vector<PieceSplitter::Item>& pieces) const;
  void insertAt(std::uint32_t node, std::size_t begin, std::uint32_t loop, const PlanarPolygon& polygon);
  std::array<std::size_t, 2> splitPieces(const Line& line, std::size_t begin, double margin);

  template <class Use>
  bool useOnce(std::uint32_t loop, Use& use) {
    if (mSearchOf[loop] == mSearch) return false;
    mSearchOf[loop] = mSearch;
    return use(loop);
  }

  template <class Use>
  bool useEntries(const Node& leaf, Use& use) {
    for (std::uint32_t entry = leaf.first; entry != kNone; entry = mEntries[entry].next)
      if (useOnce(mEntries[entry].loop, use)) return true;
    return false;
  }

  /// Takes the pieces from `begin` on, those in the node's region, off mPieces.
  template <class Use>
  bool visit(std::uint32_t number, std::size_t begin, const PlanarPolygon& polygon, Use& use) {
    const Node& node = mNodes[number];
    if (node.owner != kNone && useOnce(node.owner, use)) return true;
    if (node.isEmpty && node.child == 0) return mPieces.resize(begin), false;
    if (mPieces.size() == begin)
      return mInner == Inner::sought && polygon.containsStrictly(node.reference) && useAllBelow(number, use);
    if (node.child == 0) return mPieces.resize(begin), useEntries(node, use);
    // Inserted pieces reach two margins beyond their regions, those searched for three: see LoopPartition.cpp.
    const auto [lower, upper] = splitPieces(node.line, begin, 3 * mMargin);
    const bool isUpperFound = visit(node.child + 1, upper, polygon, use);
    return isUpperFound || visit(node.child, lower, polygon, use);
  }

  template <class Use>
  bool useAllBelow(std::uint32_t number, Use& use) {
    const Node& node = mNodes[number];
    if (node.isEmpty) return false;
    if (node.child == 0) return useEntries(node, use);
    return useAllBelow(node.child, use) || useAllBelow(node.child + 1, use);
  }

  Vec2 mCenter{};
  double mMargin = 0;
  PieceSplitter mSplitter;
  std::vector<Node> mNodes;
  std::vector<Entry> mEntries;
  std::vector<std::uint64_t> mSearchOf;  // per loop, the last search that found it
  std::uint64_t mSearch = 0;
  Inner mInner = Inner::sought;
  std::vector<PieceSplitter::Item> mPieces, mUpperPieces;  // scratch
};

}  // namespace util
