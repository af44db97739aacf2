#include <facetbox/mesh/HoleAssignment.h>

#include <algorithm>
#include <cstddef>
#include <span>
#include <stdexcept>

#include <facetbox/mesh/HolePlacement.h>
#include <facetbox/mesh/KeptHoles.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>

namespace util {
namespace {

using facetbox::DroppedHole;
using Search = HolePlacement::Search;

// From which size of the mesh or the list on octrees are allowed, and for which groups they are used.
constexpr std::size_t kLargeModeVertices = 101, kLargeModeEntries = 21;
constexpr std::size_t kLargeGroupHoles = KeptHoles::kLargeGroup, kLargeOuterCorners = 101;

/// Checks the groups of a mesh one by one.
class GroupCheck {
 public:
  GroupCheck(MeshStorage& mesh, bool isLargeMode, HoleAssignmentCounts& counts)
      : mMesh(mesh), mIsLargeMode(isLargeMode), mCounts(counts), mPlacement(mesh), mKept(mPlacement, mesh) {}

  /// Clears the holes of a group that fail.
  void check(std::uint32_t outer, std::span<const std::uint32_t> holes) {
    if (holes.empty()) return;
    const bool isLarge =
        mIsLargeMode && (holes.size() >= kLargeGroupHoles || mMesh.mFaces.cornerCount(outer) >= kLargeOuterCorners);
    const Search search = isLarge ? Search::indexed : Search::plain;
    const int axis = mPlacement.axisOf(outer);
    mPlacement.setOuter(outer, search);
    mKept.begin(holes, axis, search);
    if (isLarge && mKept.allAlong(axis)) ++mCounts.mLargeGroups;

    Monitor* const monitor = mMesh.mMonitor.get();
    for (std::size_t i = 0; i < holes.size(); ++i) {
      if (monitor) monitor->tick(kWorkPerHole);
      // Already cleared as a hole of an earlier group: nothing to test, and no other hole can overlap it.
      if (mMesh.mFaces.isCleared(holes[i])) continue;
      if (passes(holes, i)) {
        mKept.add(i);
      } else {
        if (mMesh.mHistory) mMesh.mHistory->dropHole(outer, holes[i], reasonFor(outer, holes[i]));
        mMesh.mFaces.clear(holes[i]);
        ++mCounts.mClearedHoles;
      }
    }
    mKept.end();
  }

 private:
  bool passes(std::span<const std::uint32_t> holes, std::size_t i) {
    return mPlacement.isInside(holes[i]) && !mPlacement.sharesVertex(holes[i]) && !mKept.overlapsAny(i);
  }

  /// Why a hole fails.
  DroppedHole::Reason reasonFor(std::uint32_t outer, std::uint32_t hole) {
    if (mMesh.mFaces.isCleared(outer)) return DroppedHole::Reason::outerIsGone;
    if (!mPlacement.isInside(hole)) return mPlacement.whyNotInside(hole);
    return mPlacement.sharesVertex(hole) ? DroppedHole::Reason::touches : DroppedHole::Reason::overlaps;
  }

  MeshStorage& mMesh;
  const bool mIsLargeMode;
  HoleAssignmentCounts& mCounts;
  HolePlacement mPlacement;
  KeptHoles mKept;
};

void checkGroups(MeshStorage& m, std::span<const std::uint32_t> list, HoleAssignmentCounts& counts) {
  GroupCheck groupCheck(m, m.mVertices.size() >= kLargeModeVertices || list.size() >= kLargeModeEntries, counts);
  for (auto group = list.begin(); group != list.end();) {
    const auto end = std::find(group, list.end(), HoleTable::kEnd);
    if (end == list.end()) throw std::runtime_error("illegal hole index.");
    groupCheck.check(*group, {group + 1, end});
    if (m.mMonitor) m.mMonitor->tick(2 * kWorkPerHole);
    group = end + 1;
  }
}

}  // namespace

HoleAssignmentCounts assignHoles(Mesh& mesh) {
  MeshStorage& m = mesh.storage();
  HoleAssignmentCounts counts;
  if (m.mHoles.empty()) return counts;
  counts.mDroppedEntries = m.mHoles.validate(m.mFaces.size());

  const std::span<const std::uint32_t> list(m.mHoles.list().data(), m.mHoles.list().size());
  Monitor* const monitor = m.mMonitor.get();
  {
    const Monitor::Part part(monitor, 0.0, 0.9, kWorkPerHole * list.size());
    checkGroups(m, list, counts);
  }
  const Monitor::Part part(monitor, 0.9, 1.0);
  if (counts.mClearedHoles != 0) compactMesh(mesh);
  return counts;
}

}  // namespace util
