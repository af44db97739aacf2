#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include <boost/thread/mutex.hpp>

#include <facetbox/util/Triangulator.h>

namespace util {

/// Triangulates each polygon mesh once and shares the result with all who ask for it.
///
/// A polygon mesh is known by a stamp that it carries, one per kind of cache: by object, not by content. One that
/// changes after its first use keeps receiving its first triangulation as long as that stays cached. Caches of one kind
/// share stamps, but each triangulates for itself.
///
/// Safe to use from several threads. Order of the locks:
/// - the cache's mutex, and under it a polygon mesh's stamp mutex. It guards the maps only and is never held while
///   triangles are made or waited for: who prunes, or asks for a mesh that is there, never waits for a triangulation.
///   Whoever lets go of a triangle mesh as its last user takes it too.
/// - the triangulator's mutex comes after it and is never held together with it; under it, the mutex of a polygon
///   mesh's derived facts.
/// - a record in flight has a mutex that is taken alone.
class TriangleMeshCache {
 public:
  /// @param kind  0 to 4; the meshes of kind 1 come with their edges
  explicit TriangleMeshCache(int kind);
  ~TriangleMeshCache();
  TriangleMeshCache(const TriangleMeshCache&) = delete;
  TriangleMeshCache& operator=(const TriangleMeshCache&) = delete;

  /// The triangles of `mesh`, with their hierarchy; never null. When another thread is just making them, waits for
  /// it. When making them fails, nothing is cached, and each of those who wait tries itself. May outlive the cache.
  /// @throws what Triangulator::triangulate() throws
  std::shared_ptr<TriangleMesh> getTriangleMesh(const Mesh& mesh);

  /// Drops the triangle meshes that nobody else holds. Those being made are passed over. O(meshes dropped).
  void pruneUnused();

 private:
  class Store;
  class Use;
  struct InFlight;
  /// What a thread has learned about a polygon mesh: its triangles, or a record of those that are being made.
  struct Claim {
    std::uint64_t stamp;
    std::shared_ptr<TriangleMesh> cached;  ///< null where they are still to be made
    std::shared_ptr<InFlight> record;      ///< null where they are cached
    bool isOurs;                           ///< whether this thread makes them
  };
  Claim findOrClaim(const Mesh& mesh);
  std::shared_ptr<TriangleMesh> fulfill(const Claim& claim, const Mesh& mesh);
  std::shared_ptr<TriangleMesh> makeTriangleMesh(const Mesh& mesh);

  const int mKind;
  const std::shared_ptr<Store> mStore;                           // shared with those who hold meshes
  std::map<std::uint64_t, std::shared_ptr<InFlight>> mInFlight;  // by stamp; guarded by the store's mutex
  boost::mutex mTriangulatorMutex;
  Triangulator mTriangulator;  // guarded by mTriangulatorMutex
};

}  // namespace util
