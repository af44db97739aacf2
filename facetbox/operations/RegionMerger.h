#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/FaceRegions.h>
#include <facetbox/operations/MaterialRuns.h>
#include <facetbox/operations/MovingTwins.h>

namespace util {

/// Replaces the faces of regions by one face each, region after region.
class RegionMerger {
 public:
  using Loop = FaceRegions::Loop;

  /// @param twins  follow the corners, unless null
  RegionMerger(MeshStorage& mesh, MaterialRuns& runs, MovingTwins* twins)
      : m(mesh), mRuns(runs), mTwins(twins), mFaceCount(mesh.mFaces.size()) {}

  /// Replaces a region's faces by one, its inner edges all cancelled at once; inner loops become hole faces. Members
  /// that are no longer needed are cleared.
  /// @param members  ascending, two or more
  void mergeFacesWithSharedEdge(std::uint32_t seed, std::span<const std::uint32_t> members, const Loop& outer,
                                std::span<const Loop> inner);

  /// How many faces were merged into others.
  std::uint64_t mergedCount() const { return mMergedCount; }

  /// After the last region: lets hole groups and material runs follow.
  void finish();

 private:
  /// Adds faces, whatever its name says: the inner loops become hole faces.
  void extractAndRemoveHoles(std::uint32_t seed, std::uint32_t survivor, std::span<const Loop> holes,
                             std::span<const std::uint32_t> members);
  std::uint32_t roomOf(std::span<const std::uint32_t> members) const;
  void writeLoop(std::uint32_t face, const Loop& loop, std::uint32_t room);
  void noteNewOuter(std::uint32_t member, std::uint32_t survivor);

  MeshStorage& m;
  MaterialRuns& mRuns;
  MovingTwins* const mTwins;
  std::size_t mFaceCount;                  // before any face was appended
  std::vector<std::uint32_t> mNewOuterOf;  // empty as long as no hole can be concerned
  std::vector<HoleTable::NewHole> mNewHoles;
  Buffer<std::uint32_t> mScratch;
  std::uint64_t mMergedCount = 0;
};

}  // namespace util
