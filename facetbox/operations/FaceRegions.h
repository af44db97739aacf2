#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>
#include <facetbox/mesh/EdgeTwins.h>
#include <facetbox/mesh/PrimitiveList.h>

namespace util {

/// Edge-connected regions of faces, grown one after another from seeds; no face lies in two of them. Each region is a
/// connected component of the faces that its seed accepts, less what was put out of it.
///
/// An edge of a region is an inner one when it is a clean edge (EdgeTwins) between two faces of the region; all others
/// are its border. The border passes over a vertex as often as border edges leave it; a vertex that it passes more than
/// once pinches the region. The fan at a border edge is made of the faces around the vertex that it leaves, from its
/// own face over inner edges to the next border edge.
///
/// For each region: grow(), resolvePinches(), then borderLoops(); where the caller finds flaws in these, markFlaw() for
/// each of them and putOutMarked(), and the loops anew; in the end finish().
///
/// What is put out of a region becomes free again, for regions to come. All regions together cost O(n log n) all the
/// same: a region that keeps half of the corners that it grew to has paid for its growth, as these never grow again;
/// where it keeps less, what it has put out may go through that kMostTimesOut times, and then joins no region any more.
/// A region is mended in at most some 25 rounds.
class FaceRegions {
 public:
  using Loop = std::span<const std::uint32_t>;

  static constexpr std::uint32_t kFree = 0xFFFFFFFFu;
  static constexpr std::uint8_t kMostTimesOut = 16;
  /// So many rounds put out one face at each flaw; then patches of growing size.
  static constexpr unsigned kSingleRounds = 8;

  /// @param areas    per face, of either sign
  /// @param monitor  may be null
  FaceRegions(const PrimitiveList& faces, std::size_t vertexCount, const EdgeTwins& twins,
              std::span<const double> areas, Monitor* monitor = nullptr);

  /// Begins anew with some of the faces, once they have changed and others were appended: all that can be reached from
  /// any of them over clean edges.
  void startOver(std::span<const std::uint32_t> faces, std::span<const double> areas);

  bool isFree(std::uint32_t face) const { return mRegionOf[face] == kFree; }

  /// Asks for the memory that isFree() will need.
  void prefetch(std::uint32_t face) const { __builtin_prefetch(&mRegionOf[face]); }

  /// Starts a region from a free face and grows it over clean edges to free faces for which `accept(face, corner,
  /// neighbor, twin)` holds, given as face numbers and pool positions. O(corners of the region).
  template <class Accept>
  void grow(std::uint32_t seed, Accept accept) {
    assert(mSeed == kFree && isFree(seed));
    mSeed = seed;
    mRound = 0;
    mMembers.assign(1, seed);
    mRegionOf[seed] = seed;
    for (std::size_t next = 0; next < mMembers.size(); ++next) {
      const std::uint32_t face = mMembers[next];
      const auto begin = static_cast<std::uint32_t>(mFaces.offset(face));
      for (std::uint32_t corner = begin, end = begin + mFaces.cornerCount(face); corner < end; ++corner) {
        const std::uint32_t twin = mTwins.twinOf(corner);
        if (twin == EdgeTwins::kNone) continue;
        const std::uint32_t neighbor = mTwins.faceOf(twin);
        if (!isFree(neighbor) || isWornOut(neighbor) || !accept(face, corner, neighbor, twin)) continue;
        mRegionOf[neighbor] = seed;
        mMembers.push_back(neighbor);
      }
    }
  }

  /// Takes faces out of the region until no vertex pinches it: at the lowest such vertex the edge-connected fan of
  /// faces that holds the seed stays (else the one of largest area, ties to the one with the lowest face), the faces of
  /// the other fans become free again, and so do all that are then no longer edge-connected with the seed.
  /// @return false where the seed itself would have to go; the region is then to be given up.
  /// O(n log n) in the corners of the region: what gets cut off is found by searching from all sides at once.
  bool resolvePinches();

  /// The faces of the region, ascending.
  const std::vector<std::uint32_t>& members() const { return mMembers; }

  /// The closed loops that the region's border consists of, as pool positions of the corners that border edges leave.
  /// Each begins at its corner of lowest vertex index; the loops come in ascending order of these vertices.
  /// Only after resolvePinches() or putOutMarked() returned true; valid until one of them or grow() is called.
  /// O(n log n) in the loops.
  const std::vector<Loop>& borderLoops();

  /// Notes a flaw of the border at some of its corners: at the lowest of their vertices whose fan has a face other than
  /// the seed, the smallest face of the fan is to go (ties to the highest number), never the seed. From round
  /// kSingleRounds on (a call of putOutMarked() ends a round), the whole fan is to go, and from the next one on all
  /// faces that can be reached from it by 1, 4, 16, ... steps over inner edges.
  void markFlaw(std::span<const std::uint32_t> corners);
  /// Notes a flaw that is due to one face of the region: it is to go, or, in later rounds, all around it.
  void markFlaw(std::uint32_t face);

  /// Numbers the members in the order in which a breadth-first walk from the seed over inner edges comes by.
  /// O(corners of the region).
  void numberFromSeed();
  /// The number of a member as of the last numberFromSeed(), which was in this round.
  std::uint32_t numberOf(std::uint32_t face) const {
    assert(isMember(face));
    return mNumbers[face];
  }

  /// Takes all marked faces out of the region at once, then all that is no longer edge-connected with the seed; then
  /// resolves the pinches that came up.
  /// @return false where nothing was marked, for the seed alone is at the flaws, or where it would have to go for a
  /// pinch; the region is then to be given up.
  bool putOutMarked();

  /// Takes all faces but the seed out of the region.
  void giveUp();

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

  bool isWornOut(std::uint32_t face) const { return !mTimesOut.empty() && mTimesOut[face] >= kMostTimesOut; }
  bool isSmaller(std::uint32_t a, std::uint32_t b) const;
  std::vector<std::uint32_t> fanAt(std::uint32_t start) const;
  void markPatches();
  bool settlePinches();
  std::uint64_t cornersOf(std::span<const std::uint32_t> faces) const;

  void addBorder(std::uint32_t corner);
  std::span<const std::uint32_t> borderFrom(std::uint32_t vertex);
  bool resolveAt(std::uint32_t vertex);
  void putOut(std::uint32_t face);
  void putOutWhatIsCutOff();
  void tick(std::uint64_t work = 1) const {
    if (mMonitor) mMonitor->tick(work);
  }

  const PrimitiveList& mFaces;
  const EdgeTwins& mTwins;
  std::span<const double> mAreas;
  Monitor* const mMonitor;

  Buffer<std::uint32_t> mRegionOf;  // per face: the seed of its region, or kFree
  std::uint32_t mSeed = kFree;
  std::vector<std::uint32_t> mMembers;  // may still hold faces that were put out, until the pinches are settled
  std::vector<std::uint32_t> mOut;      // what was put out of it
  std::vector<std::uint32_t> mMarked;   // what is to be put out
  unsigned mRound = 0;
  std::uint64_t mKeptCorners = 0;  // of the members, where something was put out
  Buffer<std::uint8_t> mTimesOut;  // per face: out of how many regions that kept less than half. Allocated when needed.

  Buffer<std::uint32_t> mNumbers;  // per face. Allocated when needed.

  // Border corners of the region by the vertex that they stand at, as chains that may hold corners which have become
  // inner or left the region since.
  Buffer<std::uint32_t> mFirstBorder;  // per vertex: pool position, or kNone
  Buffer<std::uint32_t> mNextBorder;   // per pool position
  std::vector<std::uint32_t> mTouchedVertices;
  std::vector<std::uint32_t> mPinches;  // a heap, lowest first, of vertices that may pinch
  std::vector<std::uint32_t> mLoose;    // neighbors of faces that were put out
  std::vector<std::uint32_t> mScratch;
  std::vector<std::uint32_t> mLoopCorners;  // of all loops, loop after loop
  std::vector<std::size_t> mLoopEnds;
  std::vector<Loop> mLoops;

  // Which search reached a face; labels below mLabelBase are of old searches. Allocated when first needed.
  Buffer<std::uint32_t> mLabels;
  std::uint32_t mLabelBase = 0;
};

}  // namespace util
