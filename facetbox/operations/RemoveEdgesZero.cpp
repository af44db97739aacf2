#include <facetbox/operations/RemoveEdgesZero.h>

#include <algorithm>
#include <span>
#include <vector>

#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/mesh/PolygonArea.h>
#include <facetbox/operations/RemoveFacesZero.h>

namespace util {
namespace {

/// Rewrites the material runs of a line mesh for the lines that are not cleared.
///
/// A run's new start is the old number of its first surviving line, not the new one: runs behind removed lines keep
/// their start. Intended.
void rebuildLineRuns(MeshStorage& m) {
  std::vector<MaterialPair> materials;
  SmallIndexList starts;
  for (std::uint32_t line = 0; line < m.mLines.size(); ++line) {
    if (m.mLines.isCleared(line)) continue;
    const MaterialPair& material = m.mRunMaterials[m.runOf(line)];
    if (!materials.empty() && materials.back() == material) continue;
    materials.push_back(material);
    starts.push_back(line);
  }
  if (materials.size() == 1) {
    m.mDefaultMaterial = materials.front();
    materials.clear();
    starts.clear();
  }
  m.mRunMaterials = std::move(materials);
  m.mRunStarts = std::move(starts);
}

std::uint64_t removeShortLines(Mesh& mesh, double thresholdSq) {
  MeshStorage& m = mesh.storage();
  std::int32_t clearedCount = 0;
  for (std::size_t line = 0; line < m.mLines.size(); ++line) {
    const auto corners = m.mLines.corners(line);
    if (corners.size() < 2 || !(lengthSq(m.mVertices[corners[1]] - m.mVertices[corners[0]]) < thresholdSq)) continue;
    m.mLines.clear(line);
    ++clearedCount;
  }
  if (clearedCount == 0) return 0;
  if (!m.mRunMaterials.empty()) rebuildLineRuns(m);
  m.mLines.compact();
  removeUnusedVertices(mesh);
  clearConnectivityCache(mesh);
  return static_cast<std::uint64_t>(clearedCount);
}

/// Outcome of a face's collapse: how many corners were overwritten, or that the whole face is short.
struct Collapse {
  std::size_t overwritten;
  bool wholeFace;
};

/// Overwrites the corners of a face that lie within the threshold of their surviving predecessor.
Collapse collapseShortEdges(const Buffer<Vec3>& vertices, std::span<std::uint32_t> corners, double thresholdSq) {
  const std::size_t n = corners.size();
  const auto edgeSq = [&](std::size_t from, std::size_t to) {
    return lengthSq(vertices[corners[to]] - vertices[corners[from]]);
  };
  const auto after = [n](std::size_t corner) { return corner + 1 == n ? 0 : corner + 1; };

  std::size_t firstLong = 0;
  while (firstLong < n && !(edgeSq(firstLong, after(firstLong)) >= thresholdSq)) ++firstLong;
  if (firstLong == n) return {n, true};

  // An overwritten index is read again at the next step, so a run collapses onto its first vertex. The last step
  // looks at the corner that starts the first long edge, which may be overwritten itself.
  std::size_t overwritten = 0;
  for (std::size_t step = 1, from = after(firstLong); step < n; ++step, from = after(from)) {
    const std::size_t to = after(from);
    if (!(edgeSq(from, to) < thresholdSq)) continue;
    corners[to] = corners[from];
    ++overwritten;
  }
  return {overwritten, false};
}

/// The face's normal as it will be once its repeated corners are gone. `remaining` is scratch space.
void refreshNormal(MeshStorage& m, std::size_t face, std::vector<std::uint32_t>& remaining) {
  remaining.clear();
  for (const std::uint32_t v : m.mFaces.corners(face))
    if (remaining.empty() || (v != remaining.back() && v != remaining.front())) remaining.push_back(v);
  Vec3 normal;
  computeFaceNormal(m.mVertices, remaining, normal);
  m.mFaces.setNormal(face, normal);
}

std::uint64_t removeShortFaceEdges(Mesh& mesh, double thresholdSq) {
  MeshStorage& m = mesh.storage();
  std::uint64_t collapseCount = 0;
  std::vector<std::uint32_t> remaining;
  Monitor* const monitor = m.mMonitor.get();
  const auto collapseFace = [&](std::size_t face) {
    const auto corners = m.mFaces.corners(face);
    const Collapse collapse = collapseShortEdges(m.mVertices, corners, thresholdSq);
    collapseCount += collapse.overwritten;
    if (collapse.wholeFace)
      m.mFaces.clear(face);
    else if (collapse.overwritten >= 1 && corners.size() - collapse.overwritten >= 3)
      refreshNormal(m, face, remaining);
  };
  {
    const Monitor::Part part(monitor, 0.0, 0.4);
    for (Monitor::Blocks blocks(monitor, m.mFaces.size()); blocks.next();)
      for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) collapseFace(face);
  }
  if (collapseCount == 0) return 0;
  {
    const Monitor::Part part(monitor, 0.4, 0.6);
    sanitizeFaces(mesh);
  }
  {
    const Monitor::Part part(monitor, 0.6, 0.8);
    removeFacesZero(mesh, m.mLimits.mSliverArea);
  }
  const Monitor::Part part(monitor, 0.8, 1.0);
  removeUnusedVertices(mesh);
  clearConnectivityCache(mesh);
  return collapseCount;
}

}  // namespace

std::uint64_t removeEdgesZero(Mesh& mesh, double threshold) {
  const MeshStorage& m = mesh.storage();
  if (!m.mPoints.empty()) return 0;
  const double thresholdSq = threshold * threshold;
  if (!m.mLines.empty()) return removeShortLines(mesh, thresholdSq);
  return removeShortFaceEdges(mesh, thresholdSq);
}

}  // namespace util
