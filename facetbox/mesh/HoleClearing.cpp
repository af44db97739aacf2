#include <facetbox/mesh/HoleClearing.h>

#include <facetbox/mesh/HolePlacement.h>

namespace util {

using Reason = facetbox::DroppedHole::Reason;

void clearFaceAndHoles(MeshStorage& mesh, std::uint32_t face, std::span<const HoleTable::Group> groups) {
  if (!groups.empty())
    for (const HoleTable::Group& group : HoleTable::groupsOf(face, groups))
      for (const std::uint32_t hole : group.holes) {
        if (hole >= mesh.mFaces.size()) continue;
        if (mesh.mHistory) mesh.mHistory->dropHole(face, hole, Reason::outerIsGone);
        mesh.mFaces.clear(hole);
      }
  mesh.mFaces.clear(face);
}

bool clearMisplacedHoles(MeshStorage& mesh) {
  if (mesh.mHoles.empty()) return false;
  bool cleared = false;
  Monitor* const monitor = mesh.mMonitor.get();
  const Monitor::Part part(monitor, 0.0, 1.0, kWorkPerHole * mesh.mHoles.list().size());
  HolePlacement placement(mesh);
  for (const HoleTable::Group& group : mesh.mHoles.groupsByOuter(mesh.mFaces.size())) {
    if (!mesh.mFaces.isCleared(group.outer)) placement.setOuter(group.outer, HolePlacement::Search::indexed);
    if (monitor) monitor->tick(2 * kWorkPerHole);
    for (const std::uint32_t hole : group.holes) {
      if (monitor) monitor->tick(kWorkPerHole);
      if (hole >= mesh.mFaces.size() || mesh.mFaces.isCleared(hole)) continue;
      // Asked each time: a host's list may name a face as its own hole.
      const bool hasOuter = !mesh.mFaces.isCleared(group.outer);
      if (hasOuter && placement.isInside(hole)) continue;
      if (mesh.mHistory)
        mesh.mHistory->dropHole(group.outer, hole, hasOuter ? placement.whyNotInside(hole) : Reason::outerIsGone);
      mesh.mFaces.clear(hole);
      cleared = true;
    }
  }
  return cleared;
}

}  // namespace util
