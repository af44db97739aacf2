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

/// @param findGroups  returns the groups of vertices that are to become one each
template <class FindGroups>
Welding weld(Mesh& mesh, double tolerance, FindGroups findGroups) {
  if (std::isnan(tolerance)) return {};
  MeshStorage& m = mesh.storage();
  Monitor* const monitor = m.mMonitor.get();
  VertexGroups groups = [&] {
    const Monitor::Part part(monitor, 0.0, 0.7);
    return findGroups();
  }();
  if (groups.empty()) return {};
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
  const bool isComplete = !groups.hasAnyLeft();
  const Welding result{applyGroups(m, std::move(groups)), isComplete};
  clearConnectivityCache(mesh);
  return result;
}

/// Brings the mesh in order after vertices have become one.
void tidyUp(Mesh& mesh, NormalUpdate normals) {
  Monitor* const monitor = mesh.storage().mMonitor.get();
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
}

/// Welds again and again, as long as vertices that were kept apart may find another partner; by edges, as long as new
/// short ones may have come about.
enum class Reach { byPlace, byEdges };
template <class FindGroups>
Welding weldRepeatedly(Mesh& mesh, double tolerance, Reach reach, FindGroups findGroups) {
  constexpr int kMostPasses = 32;
  MeshStorage& m = mesh.storage();
  Monitor* const monitor = m.mMonitor.get();
  Welding total;
  for (int pass = 0; pass < kMostPasses && !m.mFaces.empty(); ++pass) {
    // What the guards and the holes go by.
    if (pass > 0 && (!m.mHoles.empty() || tolerance > m.mLimits.mLargeTolerance)) recomputeFaceNormals(mesh);
    const Monitor::Part all(monitor, pass == 0 ? 0.0 : 1.0 - 0.2 / pass, pass == 0 ? 0.8 : 1.0 - 0.2 / (pass + 1));
    const Welding one = [&] {
      const Monitor::Part part(monitor, 0.0, 0.75);
      return weld(mesh, tolerance, findGroups);
    }();
    // Repeated corners that the mesh came with go in the first pass.
    if (pass == 0 || one.mergedCount != 0) tidyUp(mesh, NormalUpdate::skip);
    total.mergedCount += one.mergedCount;
    total.isComplete = one.isComplete;
    if (one.mergedCount == 0 || (reach == Reach::byPlace && one.isComplete)) break;
  }
  return total;
}

/// The edges of faces that are shorter than a threshold.
std::vector<VertexGroups::Edge> findShortEdges(const MeshStorage& m, double threshold) {
  std::vector<VertexGroups::Edge> edges;
  const double thresholdSq = threshold * threshold;
  for (Monitor::Blocks blocks(m.mMonitor.get(), m.mFaces.size()); blocks.next();)
    for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
      const auto corners = m.mFaces.corners(face);
      for (std::uint32_t before = corners.back(); const std::uint32_t v : corners) {
        if (v != before && lengthSq(m.mVertices[v] - m.mVertices[before]) < thresholdSq) edges.emplace_back(before, v);
        before = v;
      }
    }
  return edges;
}

}  // namespace

std::uint64_t mergeVertices(Mesh& mesh, double tolerance, NormalUpdate normals) {
  const MeshStorage& m = mesh.storage();
  if (m.mFaces.empty()) return 0;
  const Welding result = [&] {
    const Monitor::Part part(m.mMonitor.get(), 0.0, 0.75);
    return weld(mesh, tolerance, [&] { return VertexGroups(m.mVertices, tolerance, m.mMonitor.get()); });
  }();
  tidyUp(mesh, normals);
  return result.mergedCount;
}

Welding mergeVerticesRepeatedly(Mesh& mesh, double tolerance) {
  const MeshStorage& m = mesh.storage();
  return weldRepeatedly(mesh, tolerance, Reach::byPlace,
                        [&] { return VertexGroups(m.mVertices, tolerance, m.mMonitor.get()); });
}

Welding mergeEdgesZero(Mesh& mesh, double threshold) {
  const MeshStorage& m = mesh.storage();
  return weldRepeatedly(mesh, threshold, Reach::byEdges,
                        [&] { return VertexGroups(m.mVertices, findShortEdges(m, threshold), threshold); });
}

}  // namespace util
