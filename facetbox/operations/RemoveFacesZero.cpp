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
  {
    const Monitor::Part part(m.mMonitor.get(), 0.0, 0.5);
    for (Monitor::Blocks blocks(m.mMonitor.get(), m.mFaces.size()); blocks.next();)
      for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
        if (!(threshold > computePolygonArea(m.mVertices, m.mFaces.corners(face), m.mFaces.normal(face)))) continue;
        m.mFaces.clear(face);
        ++clearedCount;
      }
  }
  if (clearedCount == 0) return 0;
  if (m.mHistory) noteDroppedHoles(m);
  const Monitor::Part part(m.mMonitor.get(), 0.5, 1.0);
  compactMesh(mesh);
  return clearedCount;
}

}  // namespace util
