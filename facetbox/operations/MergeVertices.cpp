#include <facetbox/operations/MergeVertices.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/mesh/PolygonArea.h>
#include <facetbox/mesh/VertexCompaction.h>
#include <facetbox/operations/PinchGuard.h>
#include <facetbox/operations/VertexGroups.h>

namespace util {
namespace {

/// Whether a value stands more than once in a list; `sorted` is scratch space.
bool hasRepeats(std::span<const std::uint32_t> values, std::vector<std::uint32_t>& sorted) {
  sorted.assign(values.begin(), values.end());
  std::ranges::sort(sorted);
  return std::ranges::adjacent_find(sorted) != sorted.end();
}

/// Keeps the corners of holes apart from their outer face and from earlier holes of it: a weld must not be what makes
/// a hole touch, for which it would be deleted.
void guardHoles(const MeshStorage& m, VertexGroups& groups) {
  constexpr std::uint32_t kNoOuter = 0xFFFFFFFFu;
  Buffer<std::uint32_t> metFor(m.mVertices.size(), kNoOuter);  // per group, the last outer face that it was met at
  std::uint32_t current = 0;
  const auto meet = [&](std::uint32_t face) {
    for (const std::uint32_t v : m.mFaces.corners(face))
      if (groups.groupOf(v) != VertexGroups::kNone) metFor[groups.groupOf(v)] = current;
  };
  for (const HoleTable::Group& group : m.mHoles.groupsByOuter(m.mFaces.size())) {
    meet(group.outer);
    for (const std::uint32_t hole : group.holes) {
      if (hole >= m.mFaces.size()) continue;
      for (const std::uint32_t v : m.mFaces.corners(hole))
        if (groups.groupOf(v) != VertexGroups::kNone && metFor[groups.groupOf(v)] == current) groups.removeFromGroup(v);
      meet(hole);
    }
    ++current;
    if (m.mMonitor) m.mMonitor->tick();
  }
}

/// Keeps a large tolerance from turning faces over or letting them visit a vertex twice.
class LargeToleranceGuard {
 public:
  LargeToleranceGuard(const MeshStorage& mesh, VertexGroups& groups) : mMesh(mesh), mGroups(groups) {}

  void run() {
    for (Monitor::Blocks blocks(mMesh.mMonitor.get(), mMesh.mFaces.size()); blocks.next();)
      for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
        const auto corners = mMesh.mFaces.corners(face);
        const auto isGrouped = [&](std::uint32_t v) { return mGroups.groupOf(v) != VertexGroups::kNone; };
        if (std::ranges::any_of(corners, isGrouped) && wouldSpoil(face)) keepApart(corners);
      }
  }

 private:
  bool wouldSpoil(std::size_t face) {
    mMerged.clear();
    for (const std::uint32_t v : mMesh.mFaces.corners(face)) {
      const std::uint32_t group = mGroups.groupOf(v);
      const std::uint32_t seed = group == VertexGroups::kNone ? v : mGroups.seedOf(group);
      if (mMerged.empty() || mMerged.back() != seed) mMerged.push_back(seed);
    }
    while (mMerged.size() > 1 && mMerged.back() == mMerged.front()) mMerged.pop_back();
    // A face that collapses is accepted.
    if (mMerged.size() < 3) return false;
    if (hasRepeats(mMerged, mSorted)) return true;
    Vec3 normal;
    computeFaceNormal(mMesh.mVertices, mMerged, normal);
    return dot(normal, mMesh.mFaces.normal(face)) <= 0.0;
  }

  void keepApart(std::span<const std::uint32_t> corners) {
    for (const std::uint32_t v : corners)
      if (mGroups.groupOf(v) != VertexGroups::kNone && mGroups.seedOf(mGroups.groupOf(v)) != v)
        mGroups.removeFromGroup(v);
  }

  const MeshStorage& mMesh;
  VertexGroups& mGroups;
  std::vector<std::uint32_t> mMerged, mSorted;
};

/// Lets every index follow its vertex and closes up the vertices that are kept. Returns how many were merged away.
std::uint64_t applyGroups(MeshStorage& m, VertexGroups&& groups) {
  std::uint32_t keptCount = 0;
  const Buffer<std::uint32_t> newNumbers = std::move(groups).intoNewNumbers(keptCount);
  const std::size_t vertexCount = m.mVertices.size();
  if (keptCount == vertexCount) return 0;

  for (Monitor::Blocks blocks(m.mMonitor.get(), m.mFaces.size()); blocks.next();)
    for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face)
      for (std::uint32_t& v : m.mFaces.corners(face)) v = newNumbers[v];
  // The first vertex of a new number is the one that keeps its place.
  compactVertices(
      m, keptCount, [&](std::uint32_t v, std::uint32_t next) { return newNumbers[v] == next; },
      [&](std::uint32_t v) { return newNumbers[v]; });
  return vertexCount - keptCount;
}

std::uint64_t weld(Mesh& mesh, double tolerance) {
  if (std::isnan(tolerance)) return 0;
  MeshStorage& m = mesh.storage();
  Monitor* const monitor = m.mMonitor.get();
  VertexGroups groups = [&] {
    const Monitor::Part part(monitor, 0.0, 0.7);
    return VertexGroups(m.mVertices, tolerance, monitor);
  }();
  if (groups.empty()) return 0;
  {
    const Monitor::Part part(monitor, 0.7, 0.8);
    guardAgainstPinches(m.mFaces, groups, monitor);
  }
  if (!m.mHoles.empty()) guardHoles(m, groups);
  if (tolerance > m.mLimits.mLargeTolerance) {
    const Monitor::Part part(monitor, 0.8, 0.9);
    LargeToleranceGuard(m, groups).run();
  }
  const Monitor::Part part(monitor, 0.9, 1.0);
  // Tag sets speak of faces, which stay: they need no update.
  const std::uint64_t mergedCount = applyGroups(m, std::move(groups));
  clearConnectivityCache(mesh);
  return mergedCount;
}

}  // namespace

std::uint64_t mergeVertices(Mesh& mesh, double tolerance, NormalUpdate normals) {
  if (mesh.storage().mFaces.empty()) return 0;
  Monitor* const monitor = mesh.storage().mMonitor.get();
  std::uint64_t mergedCount = 0;
  {
    const Monitor::Part part(monitor, 0.0, 0.75);
    mergedCount = weld(mesh, tolerance);
  }
  {
    const Monitor::Part part(monitor, 0.75, 0.85);
    sanitizeFaces(mesh);
  }
  {
    const Monitor::Part part(monitor, 0.85, 0.95);
    removeUnusedVertices(mesh);
  }
  const Monitor::Part part(monitor, 0.95, 1.0);
  if (normals == NormalUpdate::recompute) recomputeFaceNormals(mesh);
  return mergedCount;
}

}  // namespace util
