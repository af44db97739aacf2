#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/util/Buffer.h>
#include <facetbox/util/mesh/EdgeTwins.h>
#include <facetbox/util/mesh/PrimitiveList.h>

namespace util {

/// Edge-connected regions of faces, grown one after another from seeds; no face lies in two of them.
///
/// An edge of a region is an inner one when it is a clean edge (EdgeTwins) between two faces of the region; all others
/// are its border. The border passes over a vertex as often as border edges leave it; a vertex that it passes more than
/// once pinches the region.
class FaceRegions {
 public:
  using Loop = std::span<const std::uint32_t>;

  static constexpr std::uint32_t kFree = 0xFFFFFFFFu;

  /// @param areas  per face, of either sign
  FaceRegions(const PrimitiveList& faces, std::size_t vertexCount, const EdgeTwins& twins,
              std::span<const double> areas);

  bool isFree(std::uint32_t face) const { return mRegionOf[face] == kFree; }

  /// Asks for the memory that isFree() will need.
  void prefetch(std::uint32_t face) const { __builtin_prefetch(&mRegionOf[face]); }

  /// Starts a region from a free face and grows it over clean edges to free faces for which `accept(face, corner,
  /// neighbour, twin)` holds, given as face numbers and pool positions. O(corners of the region).
  template <class Accept>
  void grow(std::uint32_t seed, Accept accept) {
    mSeed = seed;
    mMembers.assign(1, seed);
    mRegionOf[seed] = seed;
    for (std::size_t next = 0; next < mMembers.size(); ++next) {
      const std::uint32_t face = mMembers[next];
      const auto begin = static_cast<std::uint32_t>(mFaces.offset(face));
      for (std::uint32_t corner = begin, end = begin + mFaces.cornerCount(face); corner < end; ++corner) {
        const std::uint32_t twin = mTwins.twinOf(corner);
        if (twin == EdgeTwins::kNone) continue;
        const std::uint32_t neighbour = mTwins.faceOf(twin);
        if (!isFree(neighbour) || !accept(face, corner, neighbour, twin)) continue;
        mRegionOf[neighbour] = seed;
        mMembers.push_back(neighbour);
      }
    }
  }

  /// Takes faces out of the region until no vertex pinches it: at the lowest such vertex the edge-connected fan of
  /// faces that holds the seed stays (else the one of largest area, ties to the one with the lowest face), the faces of
  /// the other fans become free again, and so do all that are then no longer edge-connected with the seed.
  /// @return false where the seed itself would have to go; the region is then to be left alone.
  /// O(n log n) in the corners of the region: what gets cut off is found by searching from all sides at once.
  bool resolvePinches();

  /// The faces of the region, ascending.
  const std::vector<std::uint32_t>& members() const { return mMembers; }

  /// The closed loops that the region's border consists of, as pool positions of the corners that border edges leave.
  /// Each begins at its corner of lowest vertex index; the loops come in ascending order of these vertices.
  /// Only after resolvePinches() returned true; valid until the next region's. O(n log n) in the loops.
  const std::vector<Loop>& borderLoops();

  /// Ends the region: its faces stay taken. To be called before the next grow().
  void finish();

 private:
  class SplitSearch;

  bool isMember(std::uint32_t face) const { return mRegionOf[face] == mSeed; }
  bool isInner(std::uint32_t corner) const {
    const std::uint32_t twin = mTwins.twinOf(corner);
    return twin != EdgeTwins::kNone && isMember(mTwins.faceOf(twin));
  }
  bool isBorder(std::uint32_t corner) const { return isMember(mTwins.faceOf(corner)) && !isInner(corner); }
  std::uint32_t previousCorner(std::uint32_t corner) const;
  std::uint32_t nextCorner(std::uint32_t corner) const;
  void followLoop(std::uint32_t start);

  void addBorder(std::uint32_t corner);
  std::span<const std::uint32_t> borderFrom(std::uint32_t vertex);
  bool resolveAt(std::uint32_t vertex);
  void putOut(std::uint32_t face);

  const PrimitiveList& mFaces;
  const EdgeTwins& mTwins;
  std::span<const double> mAreas;

  Buffer<std::uint32_t> mRegionOf;  // per face: the seed of its region, or kFree
  std::uint32_t mSeed = kFree;
  std::vector<std::uint32_t> mMembers;  // may still hold faces that were put out, until resolvePinches() has ended

  // Border corners of the region by the vertex that they stand at, as chains that may hold corners which have become
  // inner or left the region since.
  Buffer<std::uint32_t> mFirstBorder;  // per vertex: pool position, or kNone
  Buffer<std::uint32_t> mNextBorder;   // per pool position
  std::vector<std::uint32_t> mTouchedVertices;
  std::vector<std::uint32_t> mPinches;  // a heap, lowest first, of vertices that may pinch
  std::vector<std::uint32_t> mLoose;    // neighbours of faces that were put out
  std::vector<std::uint32_t> mScratch;
  std::vector<std::uint32_t> mLoopCorners;  // of all loops, loop after loop
  std::vector<std::size_t> mLoopEnds;
  std::vector<Loop> mLoops;

  // Which search reached a face; labels below mLabelBase are of old searches. Allocated when first needed.
  Buffer<std::uint32_t> mLabels;
  std::uint32_t mLabelBase = 0;
};

}  // namespace util
