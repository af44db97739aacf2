#include <facetbox/mesh/Maintenance.h>

#include <algorithm>
#include <bit>
#include <cassert>
#include <span>

#include <facetbox/mesh/FaceRenumbering.h>
#include <facetbox/mesh/HoleClearing.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/mesh/PolygonArea.h>
#include <facetbox/mesh/VertexCompaction.h>

namespace util {
namespace {

/// A set of vertices, 64 to a word, that also knows how many members stand before each.
class VertexSet {
 public:
  explicit VertexSet(std::size_t size) : mWords(size / 64 + 1, 0) {}

  void insert(std::uint32_t v) { mWords[v / 64] |= std::uint64_t{1} << v % 64; }
  bool contains(std::uint32_t v) const { return (mWords[v / 64] >> v % 64 & 1) != 0; }

  /// Counts the members and prepares rank().
  std::uint32_t count() {
    mRanks.resize(mWords.size());
    std::uint32_t total = 0;
    for (std::size_t w = 0; w < mWords.size(); ++w) {
      mRanks[w] = total;
      total += static_cast<std::uint32_t>(std::popcount(mWords[w]));
    }
    return total;
  }
  /// Number of members below v.
  std::uint32_t rank(std::uint32_t v) const {
    const std::uint64_t below = mWords[v / 64] & ((std::uint64_t{1} << v % 64) - 1);
    return mRanks[v / 64] + static_cast<std::uint32_t>(std::popcount(below));
  }

 private:
  Buffer<std::uint64_t> mWords;
  Buffer<std::uint32_t> mRanks;
};

/// Whether a corner has the vertex of its predecessor, cyclically.
bool hasEqualNeighbors(std::span<const std::uint32_t> corners) {
  return corners.front() == corners.back() || std::ranges::adjacent_find(corners) != corners.end();
}

/// Moves what belongs to the corners of a face from one corner to another.
class CornerMover {
 public:
  CornerMover(PrimitiveList& faces, std::size_t face)
      : mFaces(faces),
        mFace(face),
        mNormalsDescribeEdges(faces.perVertexNormals(face) && faces.hasNormalIndices(face)),
        mHasEdgeSet(faces.carries(face, PrimitiveList::kOutgoingEdgeSet)) {}

  /// The corner itself, with all that describes it.
  void moveCorner(std::size_t to, std::size_t from) const {
    if (to == from) return;
    moveIn(mFaces.corners(mFace), to, from);
    if (mFaces.hasNormalIndices(mFace)) moveIn(mFaces.normalIndices(mFace), to, from);
    for (std::uint32_t bits = mFaces.mask(mFace) & ~(1u << PrimitiveList::kOutgoingEdgeSet); bits != 0;
         bits &= bits - 1)
      moveIn(mFaces.cornerSet(mFace, std::countr_zero(bits)), to, from);
  }

  /// What describes the edge that leaves the corner.
  void moveEdge(std::size_t to, std::size_t from) const {
    if (to == from) return;
    if (mNormalsDescribeEdges) moveIn(mFaces.normalIndices(mFace), to, from);
    if (mHasEdgeSet) moveIn(mFaces.cornerSet(mFace, PrimitiveList::kOutgoingEdgeSet), to, from);
  }

 private:
  static void moveIn(std::span<std::uint32_t> indices, std::size_t to, std::size_t from) {
    indices[to] = indices[from];
  }

  PrimitiveList& mFaces;
  const std::size_t mFace;
  const bool mNormalsDescribeEdges, mHasEdgeSet;
};

}  // namespace

void clearConnectivityCache(Mesh& mesh) { mesh.storage().mConnectivity.clear(); }

bool removeRepeatedIndices(PrimitiveList& faces, std::size_t face) {
  assert(!faces.isCleared(face));
  const auto corners = faces.corners(face);
  const std::size_t n = corners.size();
  if (n >= 3 && !hasEqualNeighbors(corners)) return false;  // the common case

  const CornerMover mover(faces, face);
  std::size_t write = 0;
  for (std::size_t read = 1; read < n; ++read) {
    if (corners[read] == corners[write]) continue;
    mover.moveEdge(write, read - 1);
    mover.moveCorner(++write, read);
  }
  mover.moveEdge(write, n - 1);

  const std::size_t kept = corners[write] == corners[0] ? write : write + 1;
  if (kept < 3) {
    faces.clear(face);
    return true;
  }
  if (kept == n) return false;
  faces.shrink(face, static_cast<std::uint32_t>(kept));
  return true;
}

bool sanitizeFaces(Mesh& mesh) {
  MeshStorage& m = mesh.storage();
  Monitor* const monitor = m.mMonitor.get();
  bool changed = false;
  {
    const Monitor::Part part(monitor, 0.0, 0.3);
    for (Monitor::Blocks blocks(monitor, m.mFaces.size()); blocks.next();)
      for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face)
        if (!m.mFaces.isCleared(face)) changed |= removeRepeatedIndices(m.mFaces, face);
  }
  {
    const Monitor::Part part(monitor, 0.3, 0.7);
    changed |= clearMisplacedHoles(m);
  }
  const Monitor::Part part(monitor, 0.7, 1.0);
  compactPrimitives(mesh);
  clearConnectivityCache(mesh);
  return changed;
}

void compactPrimitives(Mesh& mesh) {
  MeshStorage& m = mesh.storage();
  PrimitiveList& list = m.activePrimitives();
  if (!list.anyCleared()) return;
  if (!m.mRunStarts.empty() || !m.mHoles.empty() || m.mHistory) {
    FaceRenumbering renumbering(list.size());
    for (std::size_t i = 0; i < list.size(); ++i) renumbering.add(!list.isCleared(i));
    if (m.mMonitor) m.mMonitor->look();
    m.renumberFaces(renumbering);
  }
  if (m.mMonitor) m.mMonitor->look();
  list.compact();
  clearConnectivityCache(mesh);
}

std::size_t removeUnusedVertices(Mesh& mesh) {
  MeshStorage& m = mesh.storage();
  const std::size_t vertexCount = m.mVertices.size();
  if (vertexCount == 0) return 0;
  if (m.mFaces.empty() && m.mLines.empty() && m.mPoints.empty()) {
    m.mVertices.clear();
    m.mVertexIndexLists.clear();
    if (m.mHistory) m.mHistory->vertices.renumber([](std::uint32_t) { return NumberHistory::kNone; });
    clearConnectivityCache(mesh);
    return vertexCount;
  }

  // All lists, not just the active one: lines beside points must not keep indices of vertices that have gone.
  Monitor* const monitor = m.mMonitor.get();
  VertexSet used(vertexCount);
  {
    const Monitor::Part part(monitor, 0.0, 0.4);
    for (const PrimitiveList* list : {&m.mFaces, &m.mLines, &m.mPoints})
      for (Monitor::Blocks blocks(monitor, list->size()); blocks.next();)
        for (std::size_t i = blocks.begin(), end = blocks.end(); i < end; ++i)
          for (const std::uint32_t v : list->corners(i)) used.insert(v);
  }
  const std::uint32_t kept = used.count();
  if (kept == vertexCount) return 0;

  compactVertices(
      m, kept, [&](std::uint32_t v, std::uint32_t) { return used.contains(v); },
      [&](std::uint32_t v) { return used.contains(v) ? used.rank(v) : NumberHistory::kNone; });
  const Monitor::Part part(monitor, 0.6, 1.0);
  for (PrimitiveList* list : {&m.mFaces, &m.mLines, &m.mPoints})
    for (Monitor::Blocks blocks(monitor, list->size()); blocks.next();)
      for (std::size_t i = blocks.begin(), end = blocks.end(); i < end; ++i)
        for (std::uint32_t& v : list->corners(i)) v = used.rank(v);
  clearConnectivityCache(mesh);
  return vertexCount - kept;
}

void compactMesh(Mesh& mesh) {
  {
    const Monitor::Part part(mesh.storage().mMonitor.get(), 0.0, 0.5);
    compactPrimitives(mesh);
  }
  const Monitor::Part part(mesh.storage().mMonitor.get(), 0.5, 1.0);
  removeUnusedVertices(mesh);
  clearConnectivityCache(mesh);
}

void recomputeFaceNormals(Mesh& mesh) {
  MeshStorage& m = mesh.storage();
  m.mFaces.makeNormals();
  for (Monitor::Blocks blocks(m.mMonitor.get(), m.mFaces.size()); blocks.next();)
    for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
      Vec3 normal;
      computeFaceNormal(m.mVertices, m.mFaces.corners(face), normal);
      m.mFaces.setNormal(face, normal);
    }
}

}  // namespace util
