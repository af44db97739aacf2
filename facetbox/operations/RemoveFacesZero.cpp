#include <facetbox/operations/RemoveFacesZero.h>

#include <utility>
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

bool isFaceBelow(const MeshStorage& m, std::uint32_t face, double threshold) {
  return threshold > computePolygonArea(m.mVertices, m.mFaces.corners(face), m.mFaces.normal(face));
}

std::vector<std::uint32_t> findFacesBelow(Mesh& mesh, double threshold, AlongNormals normals) {
  MeshStorage& m = mesh.storage();
  if (normals == AlongNormals::computedAndStored) m.mFaces.makeNormals();
  const auto isBelow = [&](std::uint32_t face) {
    if (normals == AlongNormals::stored) return isFaceBelow(m, face, threshold);
    const auto corners = std::as_const(m.mFaces).corners(face);
    Vec3 normal;
    computeFaceNormal(m.mVertices, corners, normal);
    if (normals == AlongNormals::computedAndStored) m.mFaces.setNormal(face, normal);
    return threshold > computePolygonArea(m.mVertices, corners, normal);
  };
  std::vector<std::uint32_t> faces;
  for (Monitor::Blocks blocks(m.mMonitor.get(), m.mFaces.size()); blocks.next();)
    for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face)
      if (isBelow(face)) faces.push_back(face);
  return faces;
}

std::uint64_t removeZeroFaces(Mesh& mesh, std::vector<std::uint32_t> faces, KeepClosed keepClosed) {
  MeshStorage& m = mesh.storage();
  if (keepClosed == KeepClosed::yes && !faces.empty()) keepMeshClosed(m, faces);
  if (faces.empty()) return 0;
  for (const std::uint32_t face : faces) m.mFaces.clear(face);
  if (m.mHistory) noteDroppedHoles(m);
  compactMesh(mesh);
  return faces.size();
}

std::uint64_t removeFacesZero(Mesh& mesh, double threshold, KeepClosed keepClosed) {
  Monitor* const monitor = mesh.storage().mMonitor.get();
  std::vector<std::uint32_t> faces = [&] {
    const Monitor::Part part(monitor, 0.0, 0.5);
    return findFacesBelow(mesh, threshold);
  }();
  const Monitor::Part part(monitor, 0.5, 1.0);
  return removeZeroFaces(mesh, std::move(faces), keepClosed);
}

}  // namespace util
