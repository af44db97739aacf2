#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/FaceRegions.h>

namespace util {

/// The border of a region as one outer loop and the inner loops that become hole faces.
class RegionOutline {
 public:
  using Loop = FaceRegions::Loop;

  RegionOutline(const MeshStorage& mesh, const EdgeTwins& twins) : m(mesh), mTwins(twins) {}

  /// Puts faces out of the region until its border has none of the flaws listed at removeEdgesCoplanar(). False where
  /// that does not help; the region is then to be given up.
  bool mend(std::uint32_t seed, FaceRegions& regions);

  // After mend() returned true, for a region of more than one face; valid until that changes.
  const Loop& outerLoop() const { return mOuterLoops.front(); }
  std::span<const Loop> innerLoops() const { return mInnerLoops; }

 private:
  bool loopsAreSound(std::uint32_t seed, FaceRegions& regions);
  double measureLoop(const Loop& loop, const Vec3& normal, FaceRegions& regions, bool& isSound);
  void markTouches(FaceRegions& regions);
  void markAllOuterLoopsButTheLargest(const Vec3& normal, FaceRegions& regions);
  void projectLoop(const Loop& loop, const Vec3& normal);
  bool holesWouldStay(FaceRegions& regions);
  void listMemberHoles(std::span<const std::uint32_t> members);

  const MeshStorage& m;
  const EdgeTwins& mTwins;
  std::vector<Loop> mOuterLoops, mInnerLoops;                         // sound ones have one outer loop
  std::vector<Vec2> mProjected;                                       // the current loop
  std::vector<std::uint32_t> mProjectedCorners;                       // whose points these are
  std::vector<HoleTable::Group> mGroups;                              // of the mesh as given
  std::vector<std::pair<std::uint32_t, std::uint32_t>> mMemberHoles;  // members and their holes
};

}  // namespace util
