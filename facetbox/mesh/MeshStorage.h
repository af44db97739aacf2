#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <boost/thread/mutex.hpp>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>
#include <facetbox/materials/Shader.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/EdgeTwins.h>
#include <facetbox/mesh/HoleTable.h>
#include <facetbox/mesh/MeshHistory.h>
#include <facetbox/mesh/MeshLimits.h>
#include <facetbox/mesh/PrimitiveList.h>
#include <facetbox/mesh/SmallIndexList.h>
#include <facetbox/util/Mesh.h>

namespace util {

/// Facts about a mesh that are derived when first asked for and discarded when the mesh changes.
class ConnectivityCache {
 public:
  using VertexPair = std::pair<std::uint32_t, std::uint32_t>;

  ConnectivityCache() = default;
  ConnectivityCache(const ConnectivityCache&) {}
  ConnectivityCache& operator=(const ConnectivityCache&) {
    clear();
    return *this;
  }

  /// The undirected edges of the faces as (smaller, larger) vertex index, ascending, each once. Built when first asked
  /// for; the reference lives until the mesh changes. May be called from several threads.
  const std::vector<VertexPair>& edges(const PrimitiveList& faces);

  /// Keeps the edge twins that an operation has found, for the next one that needs them. Copies have none.
  void keepTwins(EdgeTwins&& twins);
  /// The twins, where they are known; they are gone then.
  std::optional<EdgeTwins> takeTwins();
  void clear();

 private:
  boost::mutex mMutex;
  std::optional<EdgeTwins> mTwins;                  // guarded by mMutex
  std::unique_ptr<std::vector<VertexPair>> mEdges;  // guarded by mMutex
};

/// The numbers under which caches of triangle meshes know this very mesh object, one per kind of cache, 0 for none.
/// They belong to the object and its content: copies start without, and assignment takes them away.
class CacheStamps {
 public:
  static constexpr int kKinds = 5;

  CacheStamps() = default;
  CacheStamps(const CacheStamps&) {}
  CacheStamps& operator=(const CacheStamps&);

  /// The stamp for `kind`; when there is none yet, it becomes `fresh`, which may be 0. May be called from several
  /// threads.
  std::uint64_t stampOr(int kind, std::uint64_t fresh);

 private:
  boost::mutex mMutex;
  std::unique_ptr<std::array<std::uint64_t, kKinds>> mStamps;  // guarded by mMutex; allocated at first use
};

/// What a util::Mesh consists of. Everything is addressed by unsigned 32-bit positions.
///
/// Invariants between operations: every vertex index of every record is below the vertex count; no record is cleared.
/// At most one of faces, lines and points is in use (activePrimitives()).
struct MeshStorage {
  std::string mName;
  Buffer<Vec3> mVertices;
  Buffer<Vec3> mNormals;                                              ///< addressed by the records' normal indices
  std::array<Buffer<Vec2>, PrimitiveList::kTexCoordSets> mTexCoords;  ///< set 0 is the exchange record's
  PrimitiveList mFaces;
  PrimitiveList mLines;
  PrimitiveList mPoints;
  MaterialPair mDefaultMaterial;            ///< of every primitive when there are no runs
  std::vector<MaterialPair> mRunMaterials;  ///< run r covers the primitives from mRunStarts[r] up to the next start
  SmallIndexList mRunStarts;                ///< parallel to mRunMaterials
  HoleTable mHoles;
  std::vector<SmallIndexList> mVertexIndexLists;  ///< one list per vertex, or none at all
  std::vector<std::set<std::uint32_t>> mTagSets;  ///< a record's tag is an index into this array
  MeshLimits mLimits;
  HistoryLink mHistory;  ///< of whoever wants to know what becomes of vertices and faces
  MonitorLink mMonitor;  ///< of whoever wants to know how far an operation is, or to stop it
  mutable ConnectivityCache mConnectivity;
  mutable CacheStamps mStamps;

  /// The point list when it is not empty, else the line list when that is not empty, else the face list.
  PrimitiveList& activePrimitives() {
    if (!mPoints.empty()) return mPoints;
    return mLines.empty() ? mFaces : mLines;
  }

  /// Number of the run that a primitive lies in: the last before the first start greater than it, 0 when even the
  /// first is greater. Only with runs. The search stops at the first greater start, also in unsorted lists.
  std::size_t runOf(std::uint32_t primitive) const;

  /// Lets run starts and hole groups follow a compaction of the active list. A start is lowered by the number of
  /// dropped records before it; one at or beyond the old record count stays as it is.
  void renumberFaces(const FaceRenumbering& renumbering);
};

}  // namespace util
