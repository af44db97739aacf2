#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Box.h>
#include <facetbox/mesh/HolePlacement.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/polygons/LoopPartition.h>
#include <facetbox/polygons/PlanarPolygon.h>
#include <facetbox/spatial/BBoxOctree.h>

namespace util {

/// The holes of one group that have been kept so far, searched for those that overlap a further one.
///
/// Two holes overlap only where their boxes meet as seen along the dominant axis of one of them: each of the tests
/// projects along one or the other. Boxes that are apart along that axis itself prove nothing, as faces need not be
/// planar.
///
/// Where boxes leave too many holes to be tested, as with long ones side by side at an angle, the holes whose dominant
/// axis is the axis of projection are searched in a partition of the plane instead.
class KeptHoles {
 public:
  /// Groups of that many holes are searched with an index where that is allowed.
  static constexpr std::size_t kLargeGroup = 21;

  KeptHoles(HolePlacement& placement, const MeshStorage& mesh) : mPlacement(placement), mMesh(mesh) {}

  /// Forgets everything and prepares for the holes of a group; `holes` must live until the next call.
  void begin(std::span<const std::uint32_t> holes, int outerAxis, HolePlacement::Search search);
  /// Ends it: releases what takes long to release.
  void end();

  /// Whether all holes of the group have this dominant axis.
  bool allAlong(int axis) const { return mAxes == 1u << axis; }

  /// Keeps the hole at a position of the group.
  void add(std::size_t position);

  /// Whether some kept hole overlaps the hole at a position of the group (HolePlacement::overlap()).
  bool overlapsAny(std::size_t position);

 private:
  static constexpr int kAxes = 3;
  /// With more tests per hole than this, after boxes, the partition is worth its cost.
  static constexpr std::size_t kTestsByBoxes = 24;

  /// How the holes with one dominant axis are found.
  enum class Method { boxes, partition, onlyBoxes };
  struct AxisSearch {
    Method method = Method::boxes;
    std::size_t testsLeft = 0;  ///< before the partition is built
    LoopPartition partition;
  };

  bool overlapsAlong(int axis, std::size_t position, const Box& box);
  bool overlapsInPartition(int axis, std::size_t position);
  template <class Use>
  bool anyByBoxes(int axis, const Box& box, Use use);
  Box boxOf(std::uint32_t face) const;
  Box2 projectedBox(int axis) const;
  void startPartition(int axis);

  HolePlacement& mPlacement;
  const MeshStorage& mMesh;
  std::span<const std::uint32_t> mHoles;  // the group's
  bool mIsIndexed = false;
  unsigned mAxes = 0;            // a bit for each dominant axis in use
  Buffer<std::uint8_t> mAxisOf;  // per hole of the group
  std::vector<unsigned> mKept;
  // Only one of the two is in use: the index stores the boxes of the kept holes itself.
  std::vector<Box> mBoxes;  // per hole of the group
  BBoxOctree<unsigned> mIndex;
  std::array<AxisSearch, kAxes> mSearches;  // per dominant axis
  PlanarPolygon mQuery;                     // scratch
};

}  // namespace util
