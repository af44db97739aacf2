#include <facetbox/operations/RemoveVerticesColinear.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <numeric>
#include <span>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Angle.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/CornersOfVertices.h>
#include <facetbox/operations/PackCorners.h>
#include <facetbox/operations/StraightenChains.h>
#include <facetbox/operations/TexCoordTolerance.h>
#include <facetbox/operations/VertexNeighbors.h>

namespace util {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFFu;
constexpr double kDegreesPerRadian = 57.29577951308232;
constexpr double kStraightAngle = 180.0;
constexpr std::uint32_t kFewestToShrink = 4;  // a face of fewer corners goes as a whole

std::size_t cyclicBefore(std::size_t i, std::size_t n) { return (i == 0 ? n : i) - 1; }
std::size_t cyclicAfter(std::size_t i, std::size_t n) { return i + 1 == n ? 0 : i + 1; }

Buffer<VertexNeighbors> neighborsOfVertices(const MeshStorage& m) {
  Buffer<VertexNeighbors> neighbors(m.mVertices.size(), VertexNeighbors{});
  for (Monitor::Blocks blocks(m.mMonitor.get(), m.mFaces.size()); blocks.next();)
    for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
      const auto corners = m.mFaces.corners(face);
      const std::size_t n = corners.size();
      for (std::size_t i = 0; i < n; ++i) {
        VertexNeighbors& own = neighbors[corners[i]];
        own.add(corners[cyclicBefore(i, n)]);
        own.add(corners[cyclicAfter(i, n)]);
      }
    }
  return neighbors;
}

/// Marks the vertices whose corners may go; empty when there is none. Angles are those of the mesh as it was given, so
/// they can be found out beforehand; the order of a vertex's two neighbors does not matter for them.
std::vector<bool> findStraightVertices(const MeshStorage& m, double toleranceDegrees) {
  Monitor* const monitor = m.mMonitor.get();
  const Buffer<VertexNeighbors> neighbors = [&] {
    const Monitor::Part part(monitor, 0.0, 0.6);
    return neighborsOfVertices(m);
  }();
  const auto isStraight = [&](std::uint32_t v) {
    const VertexNeighbors& own = neighbors[v];
    if (toleranceDegrees >= kStraightAngle) return own.areOneOrTwo();
    if (!own.areTwo()) return false;
    const Vec3 d1 = normalized(m.mVertices[own.first] - m.mVertices[v]);
    const Vec3 d2 = normalized(m.mVertices[own.second] - m.mVertices[v]);
    return angleBetween(d1, d2) * kDegreesPerRadian >= kStraightAngle - toleranceDegrees;
  };

  std::vector<bool> straight(neighbors.size());
  bool any = false;
  const Monitor::Part part(monitor, 0.6, 1.0);
  for (Monitor::Blocks blocks(monitor, neighbors.size()); blocks.next();)
    for (std::uint32_t v = blocks.begin(), end = blocks.end(); v < end; ++v)
      if (isStraight(v)) straight[v] = any = true;
  if (!any) straight.clear();
  return straight;
}

using Corner = FaceCorner;  // positions as they were given

/// Removes corners from the faces of a mesh. Until finish() the records stand as they were given, and what goes is only
/// noted: positions stay valid, and a face of very many corners is packed once.
class CornerRemoval {
 public:
  CornerRemoval(MeshStorage& mesh, bool allStraight, bool keepTextureMapping)
      : mMesh(mesh),
        mFaces(mesh.mFaces),
        mAllStraight(allStraight),
        mKeepTextureMapping(keepTextureMapping),
        mRemaining(mFaces.size(), 0) {}

  /// Removes a vertex's corners, given by face and position, where nothing stands against it.
  void visit(std::span<const Corner> corners) {
    unsigned blocked = 0;
    if (mFaces.usesCornerSets())
      forEachStraight(corners, [&](const Corner& corner, unsigned edges) {
        if (mustStay(corner)) blocked |= edges;
      });
    forEachStraight(corners, [&](const Corner& corner, unsigned edges) {
      if ((edges & blocked) == 0) removeCorner(corner);
    });
  }

  std::uint64_t removedCount() const { return mRemovedCount; }

  /// Brings the records up to date. Returns whether any was cleared.
  bool finish() {
    bool anyCleared = false;
    for (Monitor::Blocks blocks(mMesh.mMonitor.get(), mFaces.size()); blocks.next();)
      for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
        if (mRemaining[face] == kCleared) {
          mFaces.clear(face);
          anyCleared = true;
        } else if (mRemaining[face] != kAsGiven) {
          pack(face);
        }
      }
    return anyCleared;
  }

 private:
  // Values of mRemaining that are no corner counts.
  static constexpr std::uint32_t kAsGiven = 0;
  static constexpr std::uint32_t kCleared = 0xFFFFFFFFu;

  static constexpr std::uint32_t kRemoved = 0xFFFFFFFFu;

  /// The ring of a face's remaining corners. A removed corner keeps in `before` whether its next edge was the longer.
  struct Link {
    std::uint32_t before, after;  ///< positions in the face; `after` is kRemoved once the corner is
  };

  // Bits for a vertex's at most two edges; the first is the one that a walk over the faces meets first.
  static constexpr unsigned kFirstEdge = 1, kSecondEdge = 2;

  /// Calls `use(corner, edges)` for each face that is not cleared and whose corner at the vertex is straight, with
  /// the first of the face's corners there and the edges between which it was measured.
  ///
  /// A face that uses an edge twice has it twice in its list of edges at the vertex, and only the first two of the list
  /// count. So a face that visits the vertex twice may be measured between an edge and itself, which is never straight.
  template <class Use>
  void forEachStraight(std::span<const Corner> corners, Use use) const {
    const std::uint32_t firstMet =
        corners.front().position == 0 ? vertexAfter(corners.front()) : vertexBefore(corners.front());
    for (std::size_t i = 0; i < corners.size();) {
      const Corner& corner = corners[i];
      int firstEdgeUses = 0;
      for (; i < corners.size() && corners[i].face == corner.face; ++i)
        firstEdgeUses += int{vertexBefore(corners[i]) == firstMet} + int{vertexAfter(corners[i]) == firstMet};
      if (mRemaining[corner.face] == kCleared) continue;
      if (firstEdgeUses == 1)
        use(corner, kFirstEdge | kSecondEdge);
      else if (mAllStraight)
        use(corner, firstEdgeUses == 0 ? kSecondEdge : kFirstEdge);
    }
  }

  std::span<const std::uint32_t> cornersOf(std::uint32_t face) const { return mFaces.corners(face); }
  std::uint32_t vertexBefore(const Corner& corner) const {
    const auto corners = cornersOf(corner.face);
    return corners[cyclicBefore(corner.position, corners.size())];
  }
  std::uint32_t vertexAfter(const Corner& corner) const {
    const auto corners = cornersOf(corner.face);
    return corners[cyclicAfter(corner.position, corners.size())];
  }

  /// Where the face goes on from a corner, both ways, as it stands now.
  Link linkOf(const Corner& corner) const {
    if (mRemaining[corner.face] != kAsGiven) return mLinks[mFaces.offset(corner.face) + corner.position];
    const std::size_t n = mFaces.cornerCount(corner.face);
    return {static_cast<std::uint32_t>(cyclicBefore(corner.position, n)),
            static_cast<std::uint32_t>(cyclicAfter(corner.position, n))};
  }

  const Vec3& point(std::uint32_t face, std::uint32_t position) const {
    return mMesh.mVertices[cornersOf(face)[position]];
  }

  /// Whether a straight corner has to stay for what it carries.
  bool mustStay(const Corner& corner) const {
    const std::uint32_t face = corner.face, at = corner.position;
    if (mKeepTextureMapping && !cornerTexCoordsOnLine(corner)) return true;
    if (mFaces.carries(face, PrimitiveList::kSeamSet) && mFaces.cornerSet(face, PrimitiveList::kSeamSet)[at] != kNone)
      return true;
    if (!mFaces.carries(face, PrimitiveList::kOutgoingEdgeSet)) return false;
    const auto ofEdges = mFaces.cornerSet(face, PrimitiveList::kOutgoingEdgeSet);
    return ofEdges[at] != ofEdges[linkOf(corner).before];
  }

  /// Whether, in every texture-coordinate set, the corner lies between its neighbors in texture space as it does on
  /// the boundary.
  bool cornerTexCoordsOnLine(const Corner& corner) const {
    const std::uint32_t face = corner.face, at = corner.position;
    const auto [before, after] = linkOf(corner);
    const double a = length(point(face, at) - point(face, before));
    const double b = length(point(face, after) - point(face, at));
    const double both = a + b;
    for (int set = 0; set < PrimitiveList::kTexCoordSets; ++set) {
      if (!mFaces.carries(face, set)) continue;
      const auto indices = mFaces.cornerSet(face, set);
      const Buffer<Vec2>& pairs = mMesh.mTexCoords[static_cast<std::size_t>(set)];
      if (std::max({indices[before], indices[at], indices[after]}) >= pairs.size()) return false;
      const Vec2 &own = pairs[indices[at]], &previous = pairs[indices[before]], &next = pairs[indices[after]];
      const double du = own.x - ((both - b) / both * next.x + (both - a) / both * previous.x);
      const double dv = own.y - ((both - b) / both * next.y + (both - a) / both * previous.y);
      // A NaN distance, as between corners at one point, counts as on the line.
      if (std::sqrt(du * du + dv * dv) >= kTexCoordTolerance) return false;
    }
    return true;
  }

  void removeCorner(const Corner& corner) {
    const std::uint32_t face = corner.face;
    ++mRemovedCount;
    std::uint32_t& remaining = mRemaining[face];
    const std::uint32_t count = remaining == kAsGiven ? mFaces.cornerCount(face) : remaining;
    if (count < kFewestToShrink) {
      remaining = kCleared;
      return;
    }
    if (remaining == kAsGiven) linkCorners(face);
    remaining = count - 1;

    Link* links = mLinks.data() + mFaces.offset(face);
    Link& own = links[corner.position];
    // The outgoing-edge set needs no care: where a corner may go, its entry is its predecessor's.
    const bool nextLonger = hasVertexNormals(face) && isNextLonger(corner, own);
    links[own.before].after = own.after;
    links[own.after].before = own.before;
    own = {nextLonger ? 1u : 0u, kRemoved};
  }

  bool hasVertexNormals(std::size_t face) const {
    return mFaces.hasNormalIndices(face) && mFaces.perVertexNormals(face);
  }
  bool isNextLonger(const Corner& corner, const Link& link) const {
    const Vec3& own = point(corner.face, corner.position);
    return lengthSq(point(corner.face, link.after) - own) > lengthSq(own - point(corner.face, link.before));
  }

  void linkCorners(std::size_t face) {
    if (mLinks.empty()) mLinks.resize(mFaces.poolSize());
    Link* links = mLinks.data() + mFaces.offset(face);
    const std::uint32_t n = mFaces.cornerCount(face);
    for (std::uint32_t i = 0; i < n; ++i) links[i] = {i - 1, i + 1};
    links[0].before = n - 1;
    links[n - 1].after = 0;
  }

  /// Closes the gaps of the removed corners.
  void pack(std::size_t face) {
    const Link* links = mLinks.data() + mFaces.offset(face);
    const auto isKept = [links](std::size_t i) { return links[i].after != kRemoved; };
    if (hasVertexNormals(face))
      packVertexNormals(face, links);
    else if (mFaces.hasNormalIndices(face))
      packEntries(mFaces.normalIndices(face), isKept);
    packCorners(mFaces, face, mRemaining[face], isKept);
  }

  /// Takes the removed corners' normals, or their predecessors', out of the list of normals, in the order of the
  /// removal. Where the predecessor's place is the last of the list, what remains belongs to other corners than before:
  /// so each step goes by the places in the lists as they are by then. Quadratic; no exported call has such normals.
  void packVertexNormals(std::size_t face, const Link* links) {
    const auto corners = mFaces.corners(face);
    std::vector<std::uint32_t> kept(corners.size()), removed;
    std::iota(kept.begin(), kept.end(), 0u);
    std::ranges::copy_if(kept, std::back_inserter(removed), [&](auto i) { return links[i].after == kRemoved; });
    // Vertices were visited in index order, and each took at most one corner out of the face.
    std::ranges::sort(removed, {}, [corners](std::uint32_t i) { return corners[i]; });

    const auto normals = mFaces.normalIndices(face);
    std::vector<std::uint32_t> left(normals.begin(), normals.end());
    for (const std::uint32_t corner : removed) {
      const auto at = std::ranges::lower_bound(kept, corner);
      const auto place = static_cast<std::size_t>(at - kept.begin());
      const bool nextLonger = links[corner].before != 0;
      left.erase(left.begin() + static_cast<std::ptrdiff_t>(nextLonger ? cyclicBefore(place, left.size()) : place));
      kept.erase(at);
    }
    std::ranges::copy(left, normals.begin());
  }

  MeshStorage& mMesh;
  PrimitiveList& mFaces;
  const bool mAllStraight;
  const bool mKeepTextureMapping;
  std::uint64_t mRemovedCount = 0;
  Buffer<std::uint32_t> mRemaining;  // per face: corners left, or kAsGiven, or kCleared
  Buffer<Link> mLinks;               // parallel to the corner pool; valid for faces that lost a corner
};

std::uint64_t removeStraightAgainstKept(Mesh& mesh, double toleranceDegrees, bool keepTextureMapping) {
  Monitor* const monitor = mesh.storage().mMonitor.get();
  std::uint64_t removedCount = 0;
  {
    const Monitor::Part part(monitor, 0.0, 0.8);
    removedCount = straightenChains(mesh.storage(), toleranceDegrees, keepTextureMapping);
  }
  if (removedCount == 0) return 0;
  const Monitor::Part part(monitor, 0.8, 1.0);
  removeUnusedVertices(mesh);
  clearConnectivityCache(mesh);
  return removedCount;
}

}  // namespace

std::uint64_t removeVerticesColinear(Mesh& mesh, double toleranceDegrees, bool keepTextureMapping,
                                     StraightAgainst against) {
  MeshStorage& m = mesh.storage();
  if (against == StraightAgainst::kept) return removeStraightAgainstKept(mesh, toleranceDegrees, keepTextureMapping);
  Monitor* const monitor = m.mMonitor.get();
  std::uint64_t removedCount = 0;
  bool anyCleared = false;
  {
    const std::vector<bool> straight = [&] {
      const Monitor::Part part(monitor, 0.0, 0.4);
      return findStraightVertices(m, toleranceDegrees);
    }();
    if (straight.empty()) return 0;
    const Monitor::Part part(monitor, 0.4, 0.8);
    const CornersOfVertices corners(m.mFaces, straight, monitor);
    CornerRemoval removal(m, toleranceDegrees >= kStraightAngle, keepTextureMapping);
    for (Monitor::Blocks blocks(monitor, straight.size()); blocks.next();)
      for (std::size_t v = blocks.begin(), end = blocks.end(); v < end; ++v)
        if (straight[v]) removal.visit(corners[v]);
    removedCount = removal.removedCount();
    if (removedCount == 0) return 0;
    anyCleared = removal.finish();
  }
  const Monitor::Part part(monitor, 0.8, 1.0);
  removeUnusedVertices(mesh);
  clearConnectivityCache(mesh);
  recomputeFaceNormals(mesh);
  if (anyCleared) compactPrimitives(mesh);
  return removedCount;
}

}  // namespace util
