#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include <facetbox/base/ChunkedVector.h>
#include <facetbox/math/Box.h>
#include <facetbox/spatial/BoxIndex.h>
#include <facetbox/spatial/Frustum.h>
#include <facetbox/spatial/OctreeOrder.h>

namespace util {

/// Boxes that are found by view volumes (frustum culling), in the order of an octree. Boxes are numbered 0, 1 and so on
/// as they are added.
///
/// The answer is that of an octree of five levels, see OctreeOrder: its order, and its culling of whole cells. A box is
/// found only if the cubes of its cell and of all cells above it meet the volume, too. What finds it is a bounding
/// volume hierarchy, see BoxIndex. The first query makes it, later ones add what is new, or take what has moved. A set
/// of few boxes has no hierarchy: each box is tested.
class BoxSet {
 public:
  /// @param halfSize  of the octree's root, at first and after each moveAll(); above 0
  explicit BoxSet(double halfSize) : mOrder(halfSize) {}

  std::size_t size() const { return mBoxes.size(); }
  const OctreeOrder& order() const { return mOrder; }

  const Box& operator[](std::size_t number) const { return mBoxes[number]; }

  /// Adds a box, or throws and changes nothing.
  void add(const Box& box);

  /// Replaces each box by `move(number)`, as if all were taken out of the octree in order and added to a new one.
  /// Throws before it calls `move`, which may not throw, or does all of it. O(n).
  template <class Move>
  void moveAll(Move move) {
    mOrder.moveAll(mBoxes, [&](std::uint32_t number) {
      const Box box = move(number);
      // A box that has become empty must leave the index, and one that no longer is must join it.
      mHasEmptinessChanged =
          mHasEmptinessChanged || BoxIndex::meetsAnything(box) != BoxIndex::meetsAnything(mBoxes[number]);
      return box;
    });
    mIsMoved = true;
    mRanked = 0;
    mFoundUnranked = 0;
  }

  static constexpr std::uint32_t kUnranked = 0xFFFFFFFFu;
  struct Candidate {
    std::uint32_t number;
    std::uint32_t rank;  ///< ascends along the candidates; or kUnranked
    std::uint16_t cell;  ///< of the octree
    std::uint16_t open;  ///< as BoxIndex::Found has it
    /// Meets the volume, and so do all cubes around it.
    bool isCrossed() const { return open == BoxIndex::Found::kCrossed; }
    bool isInside() const { return open == 0; }
  };

  /// The memory of queries. One serves any number of sets in turn.
  class Scratch {
    friend BoxSet;

    struct Keyed {
      std::uint64_t key;
      std::uint32_t box;  // as BoxIndex::Found has it
    };

    BoxIndex::Found found;
    std::vector<std::uint32_t> few;    // found without an index
    std::vector<Keyed> keyed;          // found, to be sorted
    std::vector<std::uint64_t> marks;  // a bit per rank: found
    std::vector<std::uint8_t> open;    // per rank, if found
    std::vector<Candidate> candidates;

    /// The path from the root to the last cell tested. Candidates come depth-first, so that each cell is tested once.
    struct Level {
      enum class Answer : unsigned char { unknown, yes, no } answer;
      std::uint32_t cell;
      OctreeRoot::Cube cube;
    };
    std::array<Level, OctreeRoot::kLevels> levels;
    std::size_t deepest = 0;    // level of the last cell
    double rootMargin = 0;      // Frustum::marginFor() the root's cube
    bool findsCrossed = false;  // whether what passes through a box may be concluded to pass through all cubes around
  };

  /// The boxes that may meet the volume, in order. The caller, who may have a cheaper test to drop some, passes the
  /// rest to meets(). A box that is empty on an axis meets nothing. About O(boxes found + boxes at the volume's
  /// surface). Valid until the next query.
  std::span<const Candidate> queryFrustum(const Frustum& volume, Scratch& scratch);
  /// Whether a candidate of the last query meets its volume. Call it in the order of the candidates.
  /// @param center, half  of the candidate's box: min + half, and (max - min) / 2
  bool meets(const Candidate& candidate, const Vec3& center, const Vec3& half, const Frustum& volume,
             Scratch& scratch) const;
  /// Fetches a box.
  void prefetch(std::uint32_t number) const {
    const Box& box = mBoxes[number];
    __builtin_prefetch(&box.min);
    __builtin_prefetch(&box.max.z);
  }

  /// The boxes with numbers below ranked() have ranks in the octree's order, 0 and so on, until ranking() changes. Only
  /// queries rank, when they have found many boxes.
  std::size_t ranked() const { return mRanked; }
  std::uint32_t ranking() const { return mRanking; }

 private:
  static constexpr std::size_t kFewBoxes = 16;

  /// The ranks of boxes in the octree's order, among those that were there when they were ranked.
  struct Ranks {
    std::vector<std::uint32_t> numbers;   // by rank
    std::vector<std::uint32_t> ofNumber;  // ranks, by number
    std::vector<std::uint64_t> keys;      // OctreeOrder::Place::key() by rank: a copy that is read in order
  };

  void startPath(const Frustum& volume, Scratch& scratch) const;
  std::span<const std::uint32_t> find(const Frustum& volume, Scratch& scratch);
  void listInOrder(std::span<const std::uint32_t> found, Scratch& scratch) const;
  void updateIndex();
  void rankIfItPays(std::span<const std::uint32_t> found);
  void rank();
  void markByRank(std::span<const std::uint32_t> found, Scratch& scratch) const;
  static bool cellMeets(const Candidate& candidate, const Frustum& volume, Scratch& scratch);
  static void moveTo(std::uint32_t cell, Scratch& scratch);

  ChunkedVector<Box> mBoxes;
  OctreeOrder mOrder;
  std::unique_ptr<BoxIndex> mIndex;   // of the first boxes
  std::size_t mIndexed = 0;           // how many
  bool mIsMoved = false;              // since they were indexed
  bool mHasEmptinessChanged = false;  // one has become empty as it moved, or no longer is

  std::unique_ptr<Ranks> mRanks;   // see rankIfItPays()
  std::size_t mRanked = 0;         // so many boxes have ranks
  std::uint32_t mRanking = 0;      // how often they were ranked
  std::size_t mFoundUnranked = 0;  // boxes without ranks found since the last change
};

}  // namespace util
