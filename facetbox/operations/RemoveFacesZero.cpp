#include <facetbox/operations/RemoveFacesZero.h>

#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/mesh/PolygonArea.h>

namespace util {
namespace {

void noteDroppedHoles(MeshStorage& m) {
  for (const HoleTable::Group& group : m.mHoles.groupsByOuter(m.mFaces.size()))
    for (const std::uint32_t hole : group.holes)
      if (hole < m.mFaces.size() && m.mFaces.isCleared(hole))
        m.mHistory->dropHole(group.outer, hole, facetbox::DroppedHole::Reason::tooSmall);
}

}  // namespace

std::uint64_t removeFacesZero(Mesh& mesh, double threshold) {
  MeshStorage& m = mesh.storage();
  std::uint64_t clearedCount = 0;
  for (std::size_t face = 0; face < m.mFaces.size(); ++face) {
    if (!(threshold > computePolygonArea(m.mVertices, m.mFaces.corners(face), m.mFaces.normal(face)))) continue;
    m.mFaces.clear(face);
    ++clearedCount;
  }
  if (clearedCount == 0) return 0;
  if (m.mHistory) noteDroppedHoles(m);
  compactMesh(mesh);
  return clearedCount;
}

}  // namespace util
