#include <facetbox/triangles/TriangleMeshCache.h>

#include <atomic>
#include <cassert>
#include <utility>
#include <vector>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/lock_types.hpp>

#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/MeshStorage.h>

namespace util {
namespace {

constexpr int kKindWithEdges = 1;

/// The next stamp of each kind, for the whole process.
constinit std::atomic<std::uint64_t> nextStamps[CacheStamps::kKinds] = {1, 1, 1, 1, 1};

std::uint64_t takeStamp(int kind) { return nextStamps[kind].fetch_add(1); }

/// Takes back a stamp that no mesh got (one that is found in a cache has an older one), unless others have been taken
/// since: then it is lost.
void giveBackStamp(int kind, std::uint64_t stamp) {
  std::uint64_t expected = stamp + 1;
  nextStamps[kind].compare_exchange_strong(expected, stamp);
}

std::vector<double> coordinatesOf(const Mesh& mesh) {
  const Buffer<Vec3>& vertices = mesh.storage().mVertices;
  std::vector<double> coordinates;
  coordinates.reserve(3 * vertices.size());
  for (const Vec3& v : vertices) coordinates.insert(coordinates.end(), {v.x, v.y, v.z});
  return coordinates;
}

}  // namespace

/// The triangle meshes of a cache. Those that somebody holds and those that nobody does lie apart, so that pruning
/// looks at no others.
class TriangleMeshCache::Store {
 public:
  using Lock = boost::unique_lock<boost::mutex>;

  /// The mesh of a stamp, or null; under the mutex.
  static std::shared_ptr<TriangleMesh> find(const std::shared_ptr<Store>& store, std::uint64_t stamp);
  /// Adds one that has a user; under the mutex.
  void add(std::uint64_t stamp, const std::shared_ptr<Use>& use);
  /// One use less. A stamp that is gone is left at that: so is the cache.
  void release(std::uint64_t stamp) noexcept;
  /// Drops the meshes that nobody holds.
  void prune();
  /// Drops all; who holds one keeps it.
  void clear();

  boost::mutex mMutex;

 private:
  struct Cached {
    std::shared_ptr<TriangleMesh> mMesh;
    std::weak_ptr<Use> mUse;
    std::size_t mUseCount;  ///< 2 while one that has expired has not been released yet
  };
  using ByStamp = std::map<std::uint64_t, Cached>;

  ByStamp mHeld, mUnheld;  // guarded by mMutex; a mesh changes sides with its node, so that nothing can fail
};

/// What all who hold a cached mesh share: the last of them releases it.
class TriangleMeshCache::Use {
 public:
  Use(std::shared_ptr<Store> store, std::uint64_t stamp, std::shared_ptr<TriangleMesh> mesh) noexcept
      : mStore(std::move(store)), mStamp(stamp), mMesh(std::move(mesh)) {}
  ~Use() { mStore->release(mStamp); }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;

  const std::shared_ptr<TriangleMesh>& mesh() const { return mMesh; }
  static std::shared_ptr<TriangleMesh> pointer(const std::shared_ptr<Use>& use) { return {use, use->mMesh.get()}; }

 private:
  const std::shared_ptr<Store> mStore;
  const std::uint64_t mStamp;
  const std::shared_ptr<TriangleMesh> mMesh;
};

std::shared_ptr<TriangleMesh> TriangleMeshCache::Store::find(const std::shared_ptr<Store>& store, std::uint64_t stamp) {
  ByStamp &held = store->mHeld, &unheld = store->mUnheld;
  auto found = held.find(stamp);
  const bool isHeld = found != held.end();
  if (!isHeld && (found = unheld.find(stamp)) == unheld.end()) return nullptr;
  std::shared_ptr<Use> use = found->second.mUse.lock();
  if (!use) {
    use = std::make_shared<Use>(store, stamp, found->second.mMesh);
    // Nothing fails from here on: a use must not end under the mutex.
    found->second.mUse = use;
    ++found->second.mUseCount;
    if (!isHeld) held.insert(unheld.extract(found));
  }
  return Use::pointer(use);
}

void TriangleMeshCache::Store::add(std::uint64_t stamp, const std::shared_ptr<Use>& use) {
  mHeld.emplace(stamp, Cached{use->mesh(), use, 1});
}

void TriangleMeshCache::Store::release(std::uint64_t stamp) noexcept {
  const Lock lock(mMutex);
  const auto found = mHeld.find(stamp);
  if (found != mHeld.end() && --found->second.mUseCount == 0) mUnheld.insert(mHeld.extract(found));
}

void TriangleMeshCache::Store::prune() {
  ByStamp unused;  // destroyed after the lock is released
  const Lock lock(mMutex);
  unused.swap(mUnheld);
}

void TriangleMeshCache::Store::clear() {
  ByStamp held, unheld;
  const Lock lock(mMutex);
  held.swap(mHeld);
  unheld.swap(mUnheld);
}

/// A triangulation under way: one thread makes it, others may wait for it.
struct TriangleMeshCache::InFlight {
  /// What has been made, or null when that failed.
  std::shared_ptr<TriangleMesh> wait() {
    boost::unique_lock<boost::mutex> lock(mMutex);
    while (!mIsDone) mDone.wait(lock);
    return mResult;
  }
  void finish(std::shared_ptr<TriangleMesh> result) {
    {
      const boost::unique_lock<boost::mutex> lock(mMutex);
      mResult = std::move(result);
      mIsDone = true;
    }
    mDone.notify_all();
  }

 private:
  boost::mutex mMutex;
  boost::condition_variable mDone;
  bool mIsDone = false;                   // guarded by mMutex
  std::shared_ptr<TriangleMesh> mResult;  // guarded by mMutex
};

TriangleMeshCache::TriangleMeshCache(int kind) : mKind(kind), mStore(std::make_shared<Store>()) {
  assert(kind >= 0 && kind < CacheStamps::kKinds);
}

TriangleMeshCache::~TriangleMeshCache() { mStore->clear(); }

std::shared_ptr<TriangleMesh> TriangleMeshCache::getTriangleMesh(const Mesh& mesh) {
  for (;;) {
    const Claim claim = findOrClaim(mesh);
    if (claim.cached) return claim.cached;
    if (claim.isOurs) return fulfill(claim, mesh);
    // Another thread is making it. Where that fails, this one tries itself.
    if (auto result = claim.record->wait()) return result;
  }
}

/// Finds the cached triangles or the record of those that are being made, or registers that this thread makes them.
TriangleMeshCache::Claim TriangleMeshCache::findOrClaim(const Mesh& mesh) {
  const Store::Lock lock(mStore->mMutex);
  const std::uint64_t fresh = takeStamp(mKind);
  const std::uint64_t stamp = mesh.storage().mStamps.stampOr(mKind, fresh);
  if (auto cached = Store::find(mStore, stamp)) {
    giveBackStamp(mKind, fresh);
    return {stamp, std::move(cached), nullptr, false};
  }
  if (const auto others = mInFlight.find(stamp); others != mInFlight.end()) {
    giveBackStamp(mKind, fresh);
    return {stamp, nullptr, others->second, false};
  }
  auto record = std::make_shared<InFlight>();
  mInFlight.emplace(stamp, record);
  return {stamp, nullptr, std::move(record), true};
}

/// Makes what this thread has claimed, and tells those who wait how it went.
std::shared_ptr<TriangleMesh> TriangleMeshCache::fulfill(const Claim& claim, const Mesh& mesh) {
  assert(claim.isOurs);
  std::shared_ptr<Use> use;  // ends after the lock is released
  try {
    use = std::make_shared<Use>(mStore, claim.stamp, makeTriangleMesh(mesh));
    const Store::Lock lock(mStore->mMutex);
    mStore->add(claim.stamp, use);
    mInFlight.erase(claim.stamp);
  } catch (...) {
    use.reset();  // before another thread can add the stamp anew: it would release that one's
    {
      const Store::Lock lock(mStore->mMutex);
      mInFlight.erase(claim.stamp);
    }
    claim.record->finish(nullptr);
    throw;
  }
  auto result = Use::pointer(use);
  claim.record->finish(result);
  return result;
}

std::shared_ptr<TriangleMesh> TriangleMeshCache::makeTriangleMesh(const Mesh& mesh) {
  constexpr int kTrianglesOnly = 0;
  std::vector<double> coordinates = coordinatesOf(mesh);
  std::shared_ptr<TriangleMesh> result;
  {
    const boost::unique_lock<boost::mutex> lock(mTriangulatorMutex);
    result.reset(mTriangulator.triangulate(mesh, std::move(coordinates), kTrianglesOnly));
  }
  result->buildHierarchy();
  if (mKind == kKindWithEdges) result->buildEdges();
  return result;
}

void TriangleMeshCache::pruneUnused() { mStore->prune(); }

}  // namespace util
