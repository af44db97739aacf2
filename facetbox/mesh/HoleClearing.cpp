#include <facetbox/mesh/HoleClearing.h>

#include <facetbox/mesh/HolePlacement.h>

namespace util {

void clearFaceAndHoles(PrimitiveList& faces, std::uint32_t face, std::span<const HoleTable::Group> groups) {
  if (!groups.empty())
    for (const HoleTable::Group& group : HoleTable::groupsOf(face, groups))
      for (const std::uint32_t hole : group.holes)
        if (hole < faces.size()) faces.clear(hole);
  faces.clear(face);
}

bool clearMisplacedHoles(MeshStorage& mesh) {
  if (mesh.mHoles.empty()) return false;
  bool cleared = false;
  HolePlacement placement(mesh);
  for (const HoleTable::Group& group : mesh.mHoles.groupsByOuter(mesh.mFaces.size())) {
    if (!mesh.mFaces.isCleared(group.outer)) placement.setOuter(group.outer, HolePlacement::Search::indexed);
    for (const std::uint32_t hole : group.holes) {
      if (hole >= mesh.mFaces.size() || mesh.mFaces.isCleared(hole)) continue;
      // Asked each time: a host's list may name a face as its own hole.
      if (!mesh.mFaces.isCleared(group.outer) && placement.isInside(hole)) continue;
      mesh.mFaces.clear(hole);
      cleared = true;
    }
  }
  return cleared;
}

}  // namespace util
