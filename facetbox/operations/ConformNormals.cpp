#include <facetbox/operations/ConformNormals.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/math/Matrix4.h>
#include <facetbox/mesh/EdgeBuckets.h>
#include <facetbox/mesh/FlipFace.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/mesh/PolygonArea.h>
#include <facetbox/operations/PieceMeasure.h>
#include <facetbox/operations/SurfacePieces.h>

namespace util {
namespace {

/// A bounding box as far as the point below it needs one; a NaN coordinate does not count.
class BoxFromBelow {
 public:
  void add(const Vec3& p) {
    mLowX = p.x < mLowX ? p.x : mLowX;
    mHighX = p.x > mHighX ? p.x : mHighX;
    mLowY = p.y < mLowY ? p.y : mLowY;
    mLowZ = p.z < mLowZ ? p.z : mLowZ;
    mHighZ = p.z > mHighZ ? p.z : mHighZ;
  }

  /// The point one unit below the middle of the box.
  Vec3 pointBelow() const { return {(mLowX + mHighX) * 0.5, mLowY - 1.0, (mLowZ + mHighZ) * 0.5}; }

 private:
  static constexpr double kInfinity = std::numeric_limits<double>::infinity();

  double mLowX = kInfinity, mLowY = kInfinity, mLowZ = kInfinity;
  double mHighX = -kInfinity, mHighZ = -kInfinity;
};

bool isIdentity(const double* m) {
  for (int i = 0; i < 16; ++i)
    if (m[i] != (i % 5 == 0 ? 1.0 : 0.0)) return false;
  return true;
}

/// Both ways through the hole groups: which face a hole perforates, and which holes a face has.
class HoleLinks {
 public:
  HoleLinks(const HoleTable& holes, std::size_t faceCount) : mOuterOf(holes.outerOfHoles(faceCount)) {
    if (mOuterOf.empty()) return;
    mGroups = holes.groupsByOuter(faceCount);
    mGroupOf.resize(faceCount, HoleTable::kNone);
    for (std::size_t g = mGroups.size(); g-- > 0;) mGroupOf[mGroups[g].outer] = static_cast<std::uint32_t>(g);
  }

  bool isHole(std::uint32_t face) const { return !mOuterOf.empty() && mOuterOf[face] != HoleTable::kNone; }

  /// Calls `use` for the face's outer face, then for each of its holes.
  template <class Use>
  void forEachLink(std::uint32_t face, Use use) const {
    if (mOuterOf.empty()) return;
    if (isHole(face)) use(mOuterOf[face]);
    for (std::size_t g = mGroupOf[face]; g < mGroups.size() && mGroups[g].outer == face; ++g)
      for (const std::uint32_t hole : mGroups[g].holes)
        if (hole < mOuterOf.size()) use(hole);
  }

 private:
  std::vector<std::uint32_t> mOuterOf;    // per face; empty without groups
  std::vector<std::uint32_t> mGroupOf;    // per face the first of its groups
  std::vector<HoleTable::Group> mGroups;  // equal outer faces stand together
};

enum class Orientation : std::uint8_t { unreached = 0, likeSeed = 1, againstSeed = 2 };

Orientation opposite(Orientation orientation) {
  return orientation == Orientation::likeSeed ? Orientation::againstSeed : Orientation::likeSeed;
}

/// For every corner the face beyond the edge that leaves it, where the edge is used exactly twice.
class FaceNeighbors {
 public:
  /// O(vertices + corners), O(corners log corners) around a vertex that very many edges share.
  FaceNeighbors(const PrimitiveList& faces, std::size_t vertexCount, Monitor* monitor) {
    const Monitor::Part part(monitor, 0.0, 0.5);
    mNeighbors.resize(faces.poolSize(), kNone);
    EdgeBuckets<EdgeUse> buckets(
        vertexCount, monitor, [&](auto visit) { forEachEdge(faces, monitor, visit); },
        [](std::uint32_t face, std::uint32_t position, std::uint32_t a, std::uint32_t b) {
          return EdgeUse{std::max(a, b), position, face << 1 | (a < b ? 0u : 1u)};
        });
    buckets.forEachPair([this](const EdgeUse& a, const EdgeUse& b) {
      const std::uint32_t same = ~(a.mFaceAndDirection ^ b.mFaceAndDirection) & kSameDirection;
      mNeighbors[a.mPosition] = (b.mFaceAndDirection & ~1u) | same;
      mNeighbors[b.mPosition] = (a.mFaceAndDirection & ~1u) | same;
    });
  }

  /// Calls `use(neighbor, runs the edge in the same direction)` for the corners of a face, in order. A face that uses
  /// an edge twice is its own neighbor there.
  template <class Use>
  void forEach(const PrimitiveList& faces, std::uint32_t face, Use use) const {
    const std::uint32_t* const first = mNeighbors.data() + faces.offset(face);
    for (const std::uint32_t neighbor : std::span(first, faces.cornerCount(face)))
      if (neighbor != kNone) use(neighbor >> 1, (neighbor & kSameDirection) != 0);
  }

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;
  static constexpr std::uint32_t kSameDirection = 1;

  struct EdgeUse {
    std::uint32_t mHigh;
    std::uint32_t mPosition;          ///< of the corner in the pool
    std::uint32_t mFaceAndDirection;  ///< twice the face; one more where it runs down, or from a vertex to itself

    std::uint32_t high() const { return mHigh; }
  };

  Buffer<std::uint32_t> mNeighbors;  // per position of the corner pool
};

/// Calls `use(faces)` for one part of a component after the other, and tells the monitor, which may be null.
template <class Use>
void forEachBlock(std::span<const std::uint32_t> component, Monitor* monitor, Use use) {
  constexpr std::size_t kBlock = 4096;
  for (; !component.empty(); component = component.subspan(std::min(kBlock, component.size()))) {
    const auto block = component.first(std::min(kBlock, component.size()));
    use(block);
    if (monitor) monitor->tick(block.size());
  }
}

/// The faces in the order in which they are reached, connected component after connected component, and each one's
/// orientation.
class ComponentWalk {
 public:
  ComponentWalk(MeshStorage& mesh, std::span<const Vec3> points)
      : mFaces(mesh.mFaces),
        mPoints(points),
        mMonitor(mesh.mMonitor.get()),
        mNeighbors(mesh.mFaces, mesh.mVertices.size(), mMonitor),
        mLinks(mesh.mHoles, mesh.mFaces.size()),
        mOrientations(mesh.mFaces.size(), Orientation::unreached) {
    mReached.reserve(mesh.mFaces.size());
    for (const Vec3& point : points) mWholeBox.add(point);
  }

  bool isReached(std::uint32_t face) const { return mOrientations[face] != Orientation::unreached; }

  /// Walks the connected component of a face not yet reached and flips those of its faces that have to be. Returns how
  /// many.
  std::size_t conformComponent(std::uint32_t seed) {
    const std::size_t begin = mReached.size();
    BoxFromBelow box;
    reach(seed, Orientation::likeSeed);
    for (std::size_t i = begin; i < mReached.size(); ++i) {
      reachNeighbors(mReached[i], box);
      if (mMonitor) mMonitor->tick();
    }

    const std::span<const std::uint32_t> component(mReached.data() + begin, mReached.size() - begin);
    const Vec3 reference = (component.size() > 1 ? box : mWholeBox).pointBelow();
    // A sum of zero or NaN counts as inward.
    const Orientation inward = volumeSum(component, reference) > 0.0 ? Orientation::againstSeed : Orientation::likeSeed;
    std::size_t flipped = 0;
    forEachBlock(component, mMonitor, [&](std::span<const std::uint32_t> faces) {
      for (const std::uint32_t face : faces) {
        if (mOrientations[face] != inward) continue;
        flipFace(mFaces, face);
        ++flipped;
      }
    });
    return flipped;
  }

 private:
  void reach(std::uint32_t face, Orientation orientation) {
    mOrientations[face] = orientation;
    mReached.push_back(face);
  }

  void reachNeighbors(std::uint32_t face, BoxFromBelow& box) {
    const Orientation orientation = mOrientations[face];
    for (const std::uint32_t v : mFaces.corners(face)) box.add(mPoints[v]);
    mNeighbors.forEach(mFaces, face, [&](std::uint32_t neighbor, bool sameDirection) {
      if (!isReached(neighbor)) reach(neighbor, sameDirection ? opposite(orientation) : orientation);
    });
    mLinks.forEachLink(face, [&](std::uint32_t other) {
      if (!isReached(other)) reach(other, orientation);
    });
  }

  /// Three times the signed volume between the faces and a point, with the orientations applied.
  double volumeSum(std::span<const std::uint32_t> component, const Vec3& reference) const {
    double sum = 0.0;
    forEachBlock(component, mMonitor, [&](std::span<const std::uint32_t> faces) {
      for (const std::uint32_t face : faces) {
        const auto corners = mFaces.corners(face);
        if (corners.empty() || mLinks.isHole(face)) continue;
        Vec3 normal;
        computeFaceNormal(mPoints, corners, normal);
        const double term = computePolygonArea(mPoints, corners, normal) * dot(normal, mPoints[corners[0]] - reference);
        sum += mOrientations[face] == Orientation::againstSeed ? -term : term;
      }
    });
    return sum;
  }

  PrimitiveList& mFaces;
  std::span<const Vec3> mPoints;
  Monitor* const mMonitor;
  FaceNeighbors mNeighbors;
  HoleLinks mLinks;
  BoxFromBelow mWholeBox;
  Buffer<Orientation> mOrientations;
  Buffer<std::uint32_t> mReached;  // the queue and the list of the components in one
};

/// Turned faces would leave normals per vertex behind.
void dropVertexNormals(MeshStorage& m) {
  for (PrimitiveList* list : {&m.mFaces, &m.mLines, &m.mPoints}) list->dropNormalIndices();
  m.mNormals.clear();
}

/// Whether a piece is one face with its holes: it has no volume around its center, and runs like itself.
bool isSingleSurface(const SurfacePieces& pieces, std::span<const std::uint32_t> faces) {
  bool hasFace = false;
  return std::ranges::all_of(faces,
                             [&](std::uint32_t face) { return pieces.isHole(face) || !std::exchange(hasFace, true); });
}

/// What a face is to its piece.
struct FaceRole {
  bool isHole = false, isRimReversed = false, runsAgainstLowest = false;
};

/// Whether the lowest face of a piece looks outward, or the others once they run like it. `roleOf(face)` is a FaceRole.
template <class RoleOf>
bool looksOutward(std::span<const std::uint32_t> faces, bool isClosed, const MeshStorage& m, RoleOf roleOf) {
  // A flip swaps the first two corners.
  const auto first = m.mFaces.corners(faces.front());
  const Vec3& origin = m.mVertices[std::min(first[0], first[1])];
  const auto measureFaces = [&](auto add) {
    PieceMeasure measure(origin);
    forEachBlock(faces, m.mMonitor.get(), [&](std::span<const std::uint32_t> block) {
      for (const std::uint32_t face : block) add(measure, roleOf(face), m.mFaces.corners(face));
    });
    return measure;
  };
  if (isClosed) {
    const PieceMeasure measure = measureFaces([&](PieceMeasure& sums, const FaceRole& role, auto corners) {
      sums.addVolume(m.mVertices, corners, role.isRimReversed != role.runsAgainstLowest);
    });
    if (const int sign = measure.closedVolumeSign(); sign != 0) return sign > 0;
  }
  const PieceMeasure measure = measureFaces([&](PieceMeasure& sums, const FaceRole& role, auto corners) {
    sums.add(m.mVertices, corners, role.isHole, role.isRimReversed, role.runsAgainstLowest);
  });
  const int sign = isClosed ? 0 : measure.openVolumeSign();
  return sign != 0 ? sign > 0 : measure.hasMajority();
}

}  // namespace

std::uint64_t conformNormals(Mesh& mesh, const double* transform) {
  MeshStorage& m = mesh.storage();
  dropVertexNormals(m);
  clearConnectivityCache(mesh);

  // The identity changes no finite coordinate but for the sign of a zero, and that sign reaches no result: it is lost
  // in every sum and comparison, and where it would decide the sign of a quotient (the area's divisor), the absolute
  // value is taken. An infinite or NaN coordinate spoils the others of its vertex, which takes the computation.
  Buffer<Vec3> transformed;
  const auto isFinite = [](const Vec3& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); };
  const bool asStored = isIdentity(transform) && std::ranges::all_of(m.mVertices, isFinite);
  if (!asStored) {
    transformed.reserve(m.mVertices.size());
    for (const Vec3& vertex : m.mVertices) transformed.push_back(transformPoint(transform, vertex));
  }

  ComponentWalk walk(m, asStored ? std::span<const Vec3>(m.mVertices) : std::span<const Vec3>(transformed));
  const Monitor::Part part(m.mMonitor.get(), 0.5, 1.0, 3 * m.mFaces.size());
  std::uint64_t flipped = 0;
  for (std::uint32_t face = 0; face < m.mFaces.size(); ++face)
    if (!walk.isReached(face)) flipped += walk.conformComponent(face);
  clearConnectivityCache(mesh);
  return flipped;
}

std::uint64_t conformSurfaces(Mesh& mesh, std::optional<SettledSurfaces>* settled) {
  MeshStorage& m = mesh.storage();
  Monitor* const monitor = m.mMonitor.get();
  dropVertexNormals(m);
  SurfacePieces pieces = [&] {
    const Monitor::Part part(monitor, 0.0, 0.6);
    return SurfacePieces(m);
  }();
  const Monitor::Part part(monitor, 0.6, 1.0, 2 * m.mFaces.size());
  const auto roleOf = [&](std::uint32_t face) {
    return FaceRole{pieces.isHole(face), pieces.isRimReversed(face), pieces.runsAgainstLowest(face)};
  };
  std::uint64_t flipped = 0;
  for (std::size_t piece = 0; piece < pieces.size(); ++piece) {
    const auto faces = pieces.faces(piece);
    if (isSingleSurface(pieces, faces)) {
      if (monitor) monitor->tick(2 * faces.size());
      continue;
    }
    const bool turnsLowest = !looksOutward(faces, pieces.isClosed(piece), m, roleOf);
    forEachBlock(faces, monitor, [&](std::span<const std::uint32_t> block) {
      for (const std::uint32_t face : block) {
        if (pieces.runsAgainstLowest(face) == turnsLowest) continue;
        flipCorners(m.mFaces, face);
        ++flipped;
      }
    });
  }
  if (flipped != 0) clearConnectivityCache(mesh);
  if (settled && m.mHistory && m.mHoles.empty() && pieces.areOrientable())
    settled->emplace(std::move(pieces), m.mHistory->faces.sources());
  return flipped;
}

bool SettledSurfaces::wouldStay(const Mesh& mesh, std::span<const std::uint32_t> grown) const {
  const MeshStorage& m = mesh.storage();
  Monitor* const monitor = m.mMonitor.get();
  const auto map = m.mHistory->faces.map(), sources = m.mHistory->faces.sources();
  assert(m.mHoles.empty());
  Buffer<std::uint8_t> isGrown(map.size(), 0);
  for (const std::uint32_t item : grown) isGrown[item] = 1;
  const Monitor::Part part(monitor, 0.0, 1.0, 2 * m.mFaces.size());
  std::vector<std::uint32_t> faces;  // of a piece, those that are left
  for (std::size_t piece = 0; piece < mPieces.size(); ++piece) {
    const auto itemOf = [&](std::uint32_t old) { return mSources[old]; };
    const auto old = mPieces.faces(piece);
    if (std::ranges::none_of(old, [&](std::uint32_t face) { return isGrown[itemOf(face)] != 0; })) continue;
    faces.clear();
    for (const std::uint32_t face : old)
      if (const std::uint32_t now = map[itemOf(face)]; sources[now] == itemOf(face)) faces.push_back(now);
    if (faces.size() > 1 && !looksOutward(faces, mPieces.isClosed(piece), m, [](std::uint32_t) { return FaceRole{}; }))
      return false;
  }
  return true;
}

}  // namespace util
