#include <facetbox/util/triangles/TriangleMeshCache.h>

#include <atomic>
#include <cassert>
#include <utility>
#include <vector>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/lock_types.hpp>

#include <facetbox/util/math/Vec3.h>
#include <facetbox/util/mesh/MeshStorage.h>

namespace util {
namespace {

constexpr int kKindWithEdgePairs = 1;

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

TriangleMeshCache::TriangleMeshCache(int kind) : mKind(kind) { assert(kind >= 0 && kind < CacheStamps::kKinds); }

TriangleMeshCache::~TriangleMeshCache() = default;

std::shared_ptr<TriangleMesh> TriangleMeshCache::getTriangleMesh(const Mesh& mesh) {
  std::uint64_t stamp;
  std::shared_ptr<InFlight> record;
  for (;;) {
    bool isOurs = false;
    {
      const boost::unique_lock<boost::mutex> lock(mMutex);
      const std::uint64_t fresh = takeStamp(mKind);
      stamp = mesh.storage().mStamps.stampOr(mKind, fresh);
      if (const auto cached = mMeshes.find(stamp); cached != mMeshes.end()) {
        giveBackStamp(mKind, fresh);
        return cached->second;
      }
      if (const auto others = mInFlight.find(stamp); others != mInFlight.end()) {
        giveBackStamp(mKind, fresh);
        record = others->second;
      } else {
        record = std::make_shared<InFlight>();
        mInFlight.emplace(stamp, record);
        isOurs = true;
      }
    }
    if (isOurs) break;
    if (auto result = record->wait()) return result;
  }

  std::shared_ptr<TriangleMesh> result;
  try {
    result = makeTriangleMesh(mesh);
    const boost::unique_lock<boost::mutex> lock(mMutex);
    mMeshes.insert_or_assign(stamp, result);
    mInFlight.erase(stamp);
  } catch (...) {
    {
      const boost::unique_lock<boost::mutex> lock(mMutex);
      mInFlight.erase(stamp);
    }
    record->finish(nullptr);
    throw;
  }
  record->finish(result);
  return result;
}

std::shared_ptr<TriangleMesh> TriangleMeshCache::makeTriangleMesh(const Mesh& mesh) {
  std::vector<double> coordinates = coordinatesOf(mesh);
  std::shared_ptr<TriangleMesh> result;
  {
    const boost::unique_lock<boost::mutex> lock(mTriangulatorMutex);
    result.reset(mTriangulator.triangulate(mesh, std::move(coordinates), mKind == kKindWithEdgePairs ? 1 : 0));
  }
  result->buildHierarchy();
  return result;
}

void TriangleMeshCache::pruneUnused() {
  decltype(mMeshes) unused;  // destroyed after the lock is released
  const boost::unique_lock<boost::mutex> lock(mMutex);
  for (auto entry = mMeshes.begin(); entry != mMeshes.end();) {
    const auto current = entry++;
    if (current->second.use_count() == 1) unused.insert(mMeshes.extract(current));
  }
}

}  // namespace util
