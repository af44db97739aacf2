#include <facetbox/mesh/MeshStorage.h>

#include <algorithm>
#include <cassert>
#include <utility>

#include <boost/thread/lock_types.hpp>

namespace util {

const std::vector<ConnectivityCache::VertexPair>& ConnectivityCache::edges(const PrimitiveList& faces) {
  const boost::unique_lock<boost::mutex> lock(mMutex);
  if (!mEdges) {
    auto edges = std::make_unique<std::vector<VertexPair>>();
    edges->reserve(faces.poolSize());
    for (std::size_t face = 0; face < faces.size(); ++face) {
      const auto corners = faces.corners(face);
      for (std::size_t i = 0; i < corners.size(); ++i)
        edges->push_back(std::minmax({corners[i], corners[i + 1 == corners.size() ? 0 : i + 1]}));
    }
    std::ranges::sort(*edges);
    edges->erase(std::unique(edges->begin(), edges->end()), edges->end());
    mEdges = std::move(edges);
  }
  return *mEdges;
}

void ConnectivityCache::keepTwins(EdgeTwins&& twins) {
  const boost::unique_lock<boost::mutex> lock(mMutex);
  mTwins = std::move(twins);
}

std::optional<EdgeTwins> ConnectivityCache::takeTwins() {
  const boost::unique_lock<boost::mutex> lock(mMutex);
  return std::exchange(mTwins, std::nullopt);
}

void ConnectivityCache::clear() {
  const boost::unique_lock<boost::mutex> lock(mMutex);
  mEdges.reset();
  mTwins.reset();
}

CacheStamps& CacheStamps::operator=(const CacheStamps&) {
  const boost::unique_lock<boost::mutex> lock(mMutex);
  mStamps.reset();
  return *this;
}

std::uint64_t CacheStamps::stampOr(int kind, std::uint64_t fresh) {
  assert(kind >= 0 && kind < kKinds);
  const boost::unique_lock<boost::mutex> lock(mMutex);
  if (!mStamps) mStamps = std::make_unique<std::array<std::uint64_t, kKinds>>();
  std::uint64_t& stamp = (*mStamps)[kind];
  if (stamp == 0) stamp = fresh;
  return stamp;
}

std::size_t MeshStorage::runOf(std::uint32_t primitive) const {
  assert(!mRunStarts.empty());
  const auto next = std::find_if(mRunStarts.begin(), mRunStarts.end(),
                                 [primitive](std::uint32_t start) { return start > primitive; });
  const auto run = static_cast<std::size_t>(next - mRunStarts.begin());
  return run == 0 ? 0 : run - 1;
}

void MeshStorage::renumberFaces(const FaceRenumbering& renumbering) {
  for (std::uint32_t& start : mRunStarts)
    if (start < renumbering.size()) start = renumbering.rank(start);
  if (mHistory) {
    mHistory->dropHolesOf(mHoles, renumbering);
    mHistory->faces.renumber(
        [&](std::uint32_t face) { return renumbering.isGone(face) ? NumberHistory::kNone : renumbering.rank(face); });
  }
  mHoles.renumber(renumbering);
}

}  // namespace util
