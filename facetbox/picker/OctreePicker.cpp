#include <facetbox/picker/OctreePicker.h>

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <boost/thread/lock_types.hpp>

#include <facetbox/picker/OctreePickerCommands.h>
#include <facetbox/triangles/ClipPlanes.h>

namespace util {

using Lock = boost::unique_lock<boost::mutex>;

namespace {

constexpr int kCacheKind = 4;

Frustum frustumOf(const float corners[24]) {
  Vec3 points[8];
  for (std::size_t k = 0; k < 8; ++k) points[k] = {corners[3 * k], corners[3 * k + 1], corners[3 * k + 2]};
  return Frustum(points);
}

}  // namespace

OctreePicker::OctreePicker() : mCache(kCacheKind) {}

OctreePicker::~OctreePicker() = default;

/// 0 for what is no handle of this picker.
std::uint64_t OctreePicker::serialOf(std::size_t handle) const { return util::serialOf<Picker>(handle, this); }

std::size_t OctreePicker::createHandle() { return mHandles.create(this); }

void OctreePicker::addEntry(std::size_t handle, std::uint32_t id, const std::vector<const Mesh*>& meshes,
                            const double matrix[16]) {
  const std::uint64_t serial = serialOf(handle);
  if (!matrix) throw std::invalid_argument("addEntry: the matrix is null");
  for (std::size_t i = 0; i < meshes.size(); ++i)
    if (!meshes[i]) throw std::invalid_argument("addEntry: mesh " + std::to_string(i) + " is null");
  if (serial == 0) return;

  Pickable::Meshes triangulated;
  triangulated.reserve(meshes.size());
  for (const Mesh* mesh : meshes) triangulated.push_back(mCache.getTriangleMesh(*mesh));
  auto pickable = std::make_unique<Pickable>(static_cast<std::int32_t>(id), matrix, std::move(triangulated));
  const Box box = pickable->measure();
  mQueue.push(std::make_unique<AddEntryCommand>(serial, std::move(pickable), box));
}

void OctreePicker::relocate(std::size_t handle, float dx, float dy, float dz) {
  if (const std::uint64_t serial = serialOf(handle))
    mQueue.push(std::make_unique<RelocateCommand>(serial, Vec3{dx, dy, dz}));
}

void OctreePicker::dispose(std::size_t handle) {
  if (const std::uint64_t serial = serialOf(handle)) mQueue.push(std::make_unique<DisposeCommand>(serial));
}

std::uint64_t OctreePicker::getPendingCommandCount() { return mQueue.count(); }

void OctreePicker::discardPendingCommands() {
  mQueue.discard(Discarded::released);
  mCache.pruneUnused();
}

/// Executes the queued commands. Called under the tree mutex.
void OctreePicker::drain() {
  mQueue.drain([this](Command& command) { command.execute(*this); });
  if (!mMeshesMayBeUnused) return;
  // Once for all handles that were disposed of.
  mCache.pruneUnused();
  mMeshesMayBeUnused = false;
}

void OctreePicker::applyPendingCommands() {
  const Lock lock(mTreeMutex);
  drain();
}

/// The record of a handle, or null. Called under the tree mutex.
OctreePicker::HandleRecord* OctreePicker::find(std::uint64_t serial) {
  const auto found = mRecords.find(serial);
  return found == mRecords.end() ? nullptr : &found->second;
}

inline PickableSummary OctreePicker::summarize(const HandleRecord& record, std::uint32_t number) {
  const Box& box = record.mBoxes[number];
  const Object& object = record.mObjects[number];
  const Vec3 half = (box.max - box.min) / 2;
  return {box.min + half, half, object.magnitude, object.pickable.get(), object.id, object.hasTriangles};
}

/// Up to date after a query.
PickableSummaries& OctreePicker::summariesOf(HandleRecord& record) {
  if (record.mBoxes.ranked() == 0) return mNoSummaries;
  if (!record.mSummaries) record.mSummaries = std::make_unique<PickableSummaries>();
  record.mSummaries->follow(record.mBoxes);
  return *record.mSummaries;
}

/// Fetches what candidates behind candidate i will need; the pickable last, because its address has to be known.
inline void OctreePicker::prefetchAhead(const HandleRecord& record, const PickableSummaries& summaries,
                                        std::span<const BoxSet::Candidate> candidates, std::size_t i) {
  if (i + 2 * kAhead < candidates.size()) {
    const BoxSet::Candidate& ahead = candidates[i + 2 * kAhead];
    if (summaries.has(ahead.rank)) {
      summaries.prefetch(ahead.rank);
    } else {
      __builtin_prefetch(&record.mObjects[ahead.number]);
      record.mBoxes.prefetch(ahead.number);
    }
  }
  if (i + kAhead >= candidates.size()) return;
  const BoxSet::Candidate& ahead = candidates[i + kAhead];
  if (!ahead.isInside())
    prefetch(summaries.has(ahead.rank) ? summaries[ahead.rank].pickable : record.mObjects[ahead.number].pickable.get());
}

/// Lists in mFoundIds the objects that pass both stages. Called under the tree mutex.
inline void OctreePicker::findIds(HandleRecord& record, const Frustum& volume, const double viewProjection[16],
                                  bool wholeInside) {
  mFoundIds.clear();
  std::optional<ClipPlanes> planes;  // made for the first candidate that wants them
  const std::span<const BoxSet::Candidate> candidates = record.mBoxes.queryFrustum(volume, mScratch);
  PickableSummaries& summaries = summariesOf(record);
  PickableSummary unranked;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    prefetchAhead(record, summaries, candidates, i);
    const BoxSet::Candidate& candidate = candidates[i];
    PickableSummary& object = candidate.rank == BoxSet::kUnranked ? unranked : summaries[candidate.rank];
    if (!summaries.has(candidate.rank)) {
      object = summarize(record, candidate.number);
      summaries.markAsMade(candidate.rank);
    }
    ClipSide side = ClipSide::unsure;
    if (candidate.isInside()) {  // of such a box, the clip planes can be expected to say the same
      if (!planes) planes.emplace(viewProjection);
      side = planes->sideOf(object.center, object.half, object.magnitude);
    }
    if (side == ClipSide::outside) continue;
    const bool isIn = side == ClipSide::inside ? wholeInside || object.hasTriangles
                                               : object.pickable->isInClipVolume(viewProjection, wholeInside);
    if (isIn && record.mBoxes.meets(candidate, object.center, object.half, volume, mScratch))
      mFoundIds.push_back(object.id);
  }
}

std::int64_t OctreePicker::pickFrustum(std::size_t handle, const float corners[24], const float matrix[16],
                                       bool wholeInside, std::uint32_t* ids, std::size_t capacity) {
  const std::uint64_t serial = serialOf(handle);
  const Lock lock(mTreeMutex);
  drain();
  HandleRecord* const record = find(serial);
  if (!record) return 0;

  double viewProjection[16];
  std::copy_n(matrix, 16, viewProjection);
  findIds(*record, frustumOf(corners), viewProjection, wholeInside);

  const auto count = static_cast<std::int64_t>(mFoundIds.size());
  if (mFoundIds.size() > capacity) return -count;
  std::ranges::copy(mFoundIds, ids);
  return count;
}

bool OctreePicker::pickRay(std::size_t handle, std::int32_t id, const float origin[3], const float direction[3],
                           float* distance, float* normal) {
  const std::uint64_t serial = serialOf(handle);
  const Lock lock(mTreeMutex);
  drain();
  HandleRecord* const record = find(serial);
  Pickable* const pickable = record ? record->mById.find(id) : nullptr;
  if (!pickable) return false;

  const double from[3] = {origin[0], origin[1], origin[2]}, along[3] = {direction[0], direction[1], direction[2]};
  const Pickable::RayHit nearest = pickable->intersectRay(from, along, normal != nullptr);
  *distance = static_cast<float>(nearest.t);
  if (normal)
    for (int axis = 0; axis < 3; ++axis) normal[axis] = static_cast<float>(nearest.normal[axis]);
  return nearest.isHit;
}

}  // namespace util
