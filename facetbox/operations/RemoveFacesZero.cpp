#include <facetbox/operations/RemoveFacesZero.h>

#include <vector>

#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/mesh/PolygonArea.h>
#include <facetbox/operations/OpenEdgeGuard.h>

namespace util {
namespace {

void noteDroppedHoles(MeshStorage& m) {
  for (const HoleTable::Group& group : m.mHoles.groupsByOuter(m.mFaces.size()))
    for (const std::uint32_t hole : group.holes)
      if (hole < m.mFaces.size() && m.mFaces.isCleared(hole))
        m.mHistory->dropHole(group.outer, hole, facetbox::DroppedHole::Reason::tooSmall);
}

/// Takes those out of the faces that go without which the mesh would open.
void keepMeshClosed(const MeshStorage& m, std::vector<std::uint32_t>& going) {
  std::vector<GoingFace> units;
  for (const std::uint32_t face : going) units.push_back({face, static_cast<std::uint32_t>(units.size())});
  const std::vector<bool> stays = findUnitsToKeep(m, units, std::vector<bool>(units.size(), true));
  std::size_t unit = 0;
  std::erase_if(going, [&](std::uint32_t) { return stays[unit++]; });
}

}  // namespace

std::uint64_t removeFacesZero(Mesh& mesh, double threshold, KeepClosed keepClosed) {
  MeshStorage& m = mesh.storage();
  std::vector<std::uint32_t> going;
  {
    const Monitor::Part part(m.mMonitor.get(), 0.0, 0.5);
    for (Monitor::Blocks blocks(m.mMonitor.get(), m.mFaces.size()); blocks.next();)
      for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face)
        if (threshold > computePolygonArea(m.mVertices, m.mFaces.corners(face), m.mFaces.normal(face)))
          going.push_back(face);
  }
  if (keepClosed == KeepClosed::yes && !going.empty()) keepMeshClosed(m, going);
  if (going.empty()) return 0;
  for (const std::uint32_t face : going) m.mFaces.clear(face);
  if (m.mHistory) noteDroppedHoles(m);
  const Monitor::Part part(m.mMonitor.get(), 0.5, 1.0);
  compactMesh(mesh);
  return going.size();
}

}  // namespace util
