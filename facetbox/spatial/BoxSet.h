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

/// Boxes, known by the numbers 0, 1 and so on of their addition, of which view volumes find some.
///
/// The order of what is found is part of the contract: that of an octree of five levels, see OctreeOrder. The octree's
/// cubes have a say as well: a box is found only where the cubes of its cell and of all cells above it meet the volume.
///
/// Few boxes are all looked at. More of them have an index, made by the first query; boxes that are added join it with
/// the next query, and where all have moved, it takes their new places.
class BoxSet {
 public:
  /// @param halfSize  of the octree's root, at first and again after moveAll()
  explicit BoxSet(double halfSize) : mOrder(halfSize) {}

  std::size_t size() const { return mBoxes.size(); }
  const OctreeOrder& order() const { return mOrder; }

  /// Adds a box, or throws and changes nothing but the octree's root.
  void add(const Box& box);

  /// Replaces each box by `move(number)`, as if all were taken out of the octree in order and added to a new one.
  /// Throws before it calls `move`, which may not throw, or does all of it. O(n).
  template <class Move>
  void moveAll(Move move) {
    mOrder.moveAll(mBoxes, [&](std::uint32_t number) {
      const Box box = move(number);
      // One that does not meet anything any more must leave the index, and one that now does must join it.
      mHasEmptinessChanged =
          mHasEmptinessChanged || BoxIndex::meetsAnything(box) != BoxIndex::meetsAnything(mBoxes[number]);
      return box;
    });
    mIsMoved = true;
    mIsRanked = false;
    mFoundUnranked = 0;
  }

  struct Candidate {
    std::uint32_t number;
    std::uint16_t cell;  ///< of the octree
    std::uint16_t open;  ///< bits of the planes of the volume that its box is not certain to lie inside of
    bool isInside() const { return open == 0; }
  };

  /// What queries work with. One may serve any number of sets in turn.
  class Scratch {
    friend BoxSet;

    struct Keyed {
      std::uint64_t key;
      std::uint32_t box;  // as it was found
    };

    BoxIndex::Found found;
    std::vector<std::uint32_t> few;    // what was found without an index
    std::vector<Keyed> keyed;          // what was found, to be sorted
    std::vector<std::uint64_t> marks;  // bits by rank
    std::vector<std::uint8_t> open;    // by rank, of those marked
    std::vector<Candidate> candidates;

    /// The cells from the root to the one asked last: candidates come by depth first, so that each is asked once.
    struct Level {
      enum class Answer : unsigned char { unknown, yes, no } answer;
      std::uint32_t cell;
      OctreeRoot::Cube cube;
    };
    std::array<Level, OctreeRoot::kLevels> levels;
    std::size_t deepest = 0;
    double rootMargin = 0;
  };

  /// The boxes that may meet the volume, in order. A box that is empty on an axis meets nothing. All are doubtful: the
  /// caller, who may have a cheaper reason to pass over one, asks meets() for what is left. About O(found + around the
  /// volume's surface). Valid until the next query.
  std::span<const Candidate> queryFrustum(const Frustum& volume, Scratch& scratch);
  /// Whether a candidate of the last query, which was for this volume, meets it. Ask in the order of the candidates.
  bool meets(const Candidate& candidate, const Frustum& volume, Scratch& scratch) const;
  /// Has fetched what meets() will look at.
  void prefetch(const Candidate& candidate) const {
    if (candidate.isInside()) return;
    const Box& box = mBoxes[candidate.number];
    __builtin_prefetch(&box.min);
    __builtin_prefetch(&box.max.z);
  }

 private:
  static constexpr std::size_t kFew = 16;

  /// The boxes' places in the order. Cells besides, although the order has them: candidates come by rank, so that
  /// these are read one after the other.
  struct Ranks {
    std::vector<std::uint32_t> numbers, ofNumber;
    std::vector<std::uint16_t> cells;
  };

  std::span<const std::uint32_t> find(const Frustum& volume, Scratch& scratch);
  void updateIndex();
  void rank();
  template <class KeyOf, class CellOf>
  static void sortBy(KeyOf keyOf, CellOf cellOf, std::span<const std::uint32_t> found, Scratch& scratch);
  void markByRank(std::span<const std::uint32_t> found, Scratch& scratch) const;
  bool certainlyMeets(const Candidate& candidate, const Frustum& volume, const Scratch& scratch) const;
  static bool cellMeets(std::uint32_t cell, const Frustum& volume, Scratch& scratch);

  ChunkedVector<Box> mBoxes;
  OctreeOrder mOrder;
  std::unique_ptr<BoxIndex> mIndex;   // of the first boxes
  std::size_t mIndexed = 0;           // how many
  bool mIsMoved = false;              // since they were indexed
  bool mHasEmptinessChanged = false;  // of one of them, when they moved

  std::unique_ptr<Ranks> mRanks;  // made when enough was found without
  bool mIsRanked = false;         // whether they are up to date
  std::size_t mFoundUnranked = 0;
};

}  // namespace util
