#include <facetbox/picker/OctreePicker.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <limits>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>

#include <boost/thread/lock_types.hpp>

#include <facetbox/triangles/FrustumCulling.h>

using util::Box;
using util::Vec3;
using Lock = boost::unique_lock<boost::mutex>;

namespace {

constexpr int kCacheKind = 4;

Vec3 vectorOf(const double* p) { return {p[0], p[1], p[2]}; }

/// Objects lie anywhere in memory: this has one fetched that will be looked at soon.
template <class Object>
void prefetch(const Object* object) {
  const char* bytes = reinterpret_cast<const char*>(object);
  for (std::size_t line = 0; line < sizeof(Object); line += 64) __builtin_prefetch(bytes + line);
}
constexpr std::size_t kAhead = 8;

bool isFinite(const Vec3& v) { return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z); }

}  // namespace

/// The cube of clip space as planes in the world: which side of them an object lies on, told from its box.
///
/// For a row x of the view projection Q and its last row w, w - x and w + x are linear functions of the world point.
/// Over a box each is its value at the center, give or take a reach. A vertex p of an object with the matrix M, whose
/// last row is (0, 0, 0, 1), is however projected by Q M, rounded. Let S be |M| |p|, the largest over all vertices and
/// coordinates or 1, and A the largest sum of the sizes of a row's coefficients. Then Q M p comes out right to 8 ulp of
/// A S, and so do Q times the box's center, the reaches and the box itself: 1e-13 A S covers these many times over for
/// the sum of two rows. Where w - |x| exceeds that margin all over the box for x, y and z, w is above it too, and each
/// vertex projects into the cube; where w does and x - w does, each projects beyond that face. The margin has 1e-20
/// added to keep clear of the smallest w. NaN fails every comparison: unsure.
class OctreePicker::ClipPlanes {
 public:
  explicit ClipPlanes(const double q[16]) {
    for (int column = 0; column < 4; ++column)
      for (std::size_t row = 0; row < 3; ++row)
        mRows[row].of[column] = Pair{q[4 * column + 3] - q[4 * column + static_cast<int>(row)],
                                     q[4 * column + 3] + q[4 * column + static_cast<int>(row)]};
    for (Two& two : mRows)
      for (int column = 0; column < 3; ++column)
        for (int k = 0; k < 2; ++k) two.size[column][k] = std::fabs(two.of[column][k]);
    mLargestSum = 0;
    for (int row = 0; row < 4; ++row) {
      const double sum = std::fabs(q[row]) + std::fabs(q[4 + row]) + std::fabs(q[8 + row]) + std::fabs(q[12 + row]);
      // Once NaN or infinite, it stays so.
      mLargestSum = sum <= mLargestSum ? mLargestSum : sum + 0 * mLargestSum;
    }
  }

  /// @param size  at least S
  util::ClipSide sideOf(const Vec3& center, const Vec3& half, double size) const {
    const double margin = 1e-13 * mLargestSum * size + 1e-20;
    if (!(margin <= 1e80 && size <= 1e100)) return util::ClipSide::unsure;
    Pair lowest, highest;
    for (std::size_t row = 0; row < 3; ++row) {
      const Two& two = mRows[row];
      const Pair middle = two.of[0] * center.x + two.of[1] * center.y + two.of[2] * center.z + two.of[3];
      const Pair reach = two.size[0] * half.x + two.size[1] * half.y + two.size[2] * half.z;
      const Pair low = middle - reach, high = middle + reach;
      // The sum of both functions is 2 w.
      if (row == 0) {
        lowest = low;
        highest = high;
      } else {
        lowest = low < lowest ? low : lowest;
        highest = high < highest ? high : highest;
      }
    }
    if (lowest[0] > margin && lowest[1] > margin) return util::ClipSide::inside;
    const bool isBeyond = highest[0] < -margin || highest[1] < -margin;
    return isBeyond && lowestW(center, half) > margin ? util::ClipSide::outside : util::ClipSide::unsure;
  }

 private:
  using Pair = double __attribute__((vector_size(16)));
  /// w - x and w + x: coefficients of x, y, z and 1, and the sizes of the first three.
  struct Two {
    std::array<Pair, 4> of;
    std::array<Pair, 3> size;
  };

  double lowestW(const Vec3& center, const Vec3& half) const {
    const auto w = [&](std::size_t column) { return (mRows[0].of[column][0] + mRows[0].of[column][1]) / 2; };
    return w(0) * center.x + w(1) * center.y + w(2) * center.z + w(3) -
           (std::fabs(w(0)) * half.x + std::fabs(w(1)) * half.y + std::fabs(w(2)) * half.z);
  }

  std::array<Two, 3> mRows;
  double mLargestSum;
};

/// A queued change. Holds all that it needs: when it is executed its handle may be gone.
class OctreePicker::Command {
 public:
  explicit Command(std::uint64_t serial) : mSerial(serial) {}
  virtual ~Command() = default;
  virtual void execute(OctreePicker& picker) = 0;

 protected:
  const std::uint64_t mSerial;
};

class OctreePicker::AddEntryCommand final : public Command {
 public:
  AddEntryCommand(std::uint64_t serial, PickablePointer pickable, const Box& box)
      : Command(serial), mPickable(std::move(pickable)), mBox(box) {}

  void execute(OctreePicker& picker) override {
    // Disposed of meanwhile: nobody could ever ask for the record, or have it released.
    if (!picker.mHandles.isAlive(mSerial)) return;
    HandleRecord& record = picker.mRecords[mSerial];
    // A place under the id first, and room: where memory ends, the object is found by both kinds of query or by none.
    Pickable*& place = record.mById[mPickable->mId];
    record.mObjects.makeRoom();
    record.mBoxes.add(mBox);
    // An earlier object of this id stays in the set on purpose: view volumes still find it.
    place = mPickable.get();
    record.mObjects.push_back(std::move(mPickable));
  }

 private:
  PickablePointer mPickable;
  const Box mBox;  // measured by who queued it
};

class OctreePicker::RelocateCommand final : public Command {
 public:
  RelocateCommand(std::uint64_t serial, const Vec3& offset) : Command(serial), mOffset(offset) {}

  void execute(OctreePicker& picker) override {
    HandleRecord* const record = picker.find(mSerial);
    if (!record) return;
    const auto& objects = record->mObjects;
    record->mBoxes.moveAll([&](std::uint32_t number) {
      if (number + kAhead < objects.size()) prefetch(objects[number + kAhead].get());
      return objects[number]->move(mOffset);
    });
  }

 private:
  const Vec3 mOffset;
};

class OctreePicker::DisposeCommand final : public Command {
 public:
  using Command::Command;

  void execute(OctreePicker& picker) override {
    picker.mRecords.erase(mSerial);
    // Even without a record: additions that came too late or failed may have left triangles in the cache.
    if (picker.mHandles.free(mSerial)) picker.mMeshesMayBeUnused = true;
  }
};

Box OctreePicker::Pickable::measure() {
  mLocalBox = mUntranslated = Box{};
  mHasTriangles = false;
  const Vec3 translation = vectorOf(mMatrix + 12);
  Box box;
  mIsSmall = std::ranges::all_of(
      mMeshes, [](const auto& mesh) { return mesh->vertexCoordinates().size() <= 3 * util::kFewVertices; });
  // Becomes NaN with the first number that is not finite.
  double nothing = 0;
  for (const auto& mesh : mMeshes) {
    mHasTriangles = mHasTriangles || !mesh->indices().empty();
    const std::span<const double> vertices = mesh->vertexCoordinates();
    for (std::size_t v = 0; v + 2 < vertices.size(); v += 3) {
      const double x = vertices[v], y = vertices[v + 1], z = vertices[v + 2];
      const Vec3 p{mMatrix[0] * x + mMatrix[4] * y + mMatrix[8] * z, mMatrix[1] * x + mMatrix[5] * y + mMatrix[9] * z,
                   mMatrix[2] * x + mMatrix[6] * y + mMatrix[10] * z};
      mLocalBox.extend(Vec3{x, y, z});
      mUntranslated.extend(p);
      box.extend(p + translation);
      nothing += 0.0 * p.x + 0.0 * p.y + 0.0 * p.z;
    }
  }
  mIsFinite = nothing == 0;
  if (!mIsFinite) mLocalBox = Box{};

  mReach = std::numeric_limits<double>::infinity();
  const bool isPlaced = mMatrix[3] == 0 && mMatrix[7] == 0 && mMatrix[11] == 0 && mMatrix[15] == 1;
  // A large element that meets no coordinate but 0 may still overflow in a product of matrices.
  constexpr double kLargest = 1e100;
  const bool isModest = std::all_of(mMatrix, mMatrix + 12, [](double x) { return std::fabs(x) <= kLargest; });
  if (!mIsFinite || !isPlaced || !isModest || !(mLocalBox.min.x <= mLocalBox.max.x)) return box;
  const auto largest = [](double min, double max) { return std::max(std::fabs(min), std::fabs(max)); };
  const Vec3 p{largest(mLocalBox.min.x, mLocalBox.max.x), largest(mLocalBox.min.y, mLocalBox.max.y),
               largest(mLocalBox.min.z, mLocalBox.max.z)};
  mReach = 0;
  for (int row = 0; row < 3; ++row)
    mReach = std::max(
        mReach, std::fabs(mMatrix[row]) * p.x + std::fabs(mMatrix[4 + row]) * p.y + std::fabs(mMatrix[8 + row]) * p.z);
  return box;
}

Box OctreePicker::Pickable::move(const Vec3& offset) {
  const double translation[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, offset.x, offset.y, offset.z, 1};
  double moved[16];
  util::multiply(translation, mMatrix, moved);
  bool onlyTranslationChanged = true;
  for (const int column : {0, 4, 8})
    for (int i = column; i < column + 3; ++i) onlyTranslationChanged = onlyTranslationChanged && moved[i] == mMatrix[i];
  std::copy_n(moved, 16, mMatrix);
  std::vector<util::RayTransform>().swap(mPlacements);
  mWasAsked = false;

  // Rounded addition is monotone: the smallest sum of all vertices' is that of the smallest.
  if (onlyTranslationChanged && mIsFinite && mUntranslated.min.x <= mUntranslated.max.x) {
    const Vec3 to = vectorOf(mMatrix + 12);
    const Box box{mUntranslated.min + to, mUntranslated.max + to};
    if (isFinite(box.min) && isFinite(box.max)) return box;
  }
  return measure();
}

/// @param planes  null where the world box is not worth a look
bool OctreePicker::Pickable::isInsideClipVolume(const double viewProjection[16], const ClipPlanes* planes,
                                                bool wholeInside) const {
  util::ClipSide side = util::ClipSide::unsure;
  if (planes) {
    // The last row's translation is 1.
    const Vec3 to = vectorOf(mMatrix + 12), half = (mUntranslated.max - mUntranslated.min) / 2;
    const double size = mReach + std::fabs(to.x) + std::fabs(to.y) + std::fabs(to.z) + 1;
    side = planes->sideOf(mUntranslated.min + half + to, half, size);
  }
  double c[16];
  if (side == util::ClipSide::unsure) {
    util::multiply(viewProjection, mMatrix, c);
    // The first vertex beyond the volume tells more than a box that crosses its surface.
    if (!mIsSmall) side = util::sideOfClipCube(mLocalBox, c);  // the tighter box: in the object's own coordinates
  }
  if (side == util::ClipSide::outside) return false;
  if (side == util::ClipSide::inside) return wholeInside || mHasTriangles;
  if (wholeInside)
    return std::ranges::all_of(mMeshes, [&](const auto& mesh) { return util::liesInClipCube(*mesh, c); });
  return std::ranges::any_of(mMeshes, [&](const auto& mesh) { return util::overlapsClipCube(*mesh, c); });
}

OctreePicker::OctreePicker() : mCache(kCacheKind) {}

OctreePicker::~OctreePicker() = default;

std::uint64_t OctreePicker::serialOf(std::size_t handle) const { return util::serialOf<Picker>(handle, this); }

std::size_t OctreePicker::createHandle() { return mHandles.create(this); }

void OctreePicker::addEntry(std::size_t handle, std::uint32_t id, const std::vector<const util::Mesh*>& meshes,
                            const double matrix[16]) {
  const std::uint64_t serial = serialOf(handle);
  if (!matrix) throw std::invalid_argument("addEntry: the matrix is null");
  for (std::size_t i = 0; i < meshes.size(); ++i)
    if (!meshes[i]) throw std::invalid_argument("addEntry: mesh " + std::to_string(i) + " is null");
  if (serial == 0) return;

  auto pickable = std::make_unique<Pickable>();
  pickable->mId = static_cast<std::int32_t>(id);
  std::copy_n(matrix, 16, pickable->mMatrix);
  pickable->mMeshes.reserve(meshes.size());
  for (const util::Mesh* mesh : meshes) pickable->mMeshes.push_back(mCache.getTriangleMesh(*mesh));
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
  mQueue.discard(util::Discarded::released);
  mCache.pruneUnused();
}

/// Executes what is queued; under the tree mutex.
void OctreePicker::drain() {
  mQueue.drain([this](Command& command) { command.execute(*this); });
  if (!mMeshesMayBeUnused) return;
  // Once for all that was disposed of.
  mCache.pruneUnused();
  mMeshesMayBeUnused = false;
}

void OctreePicker::applyPendingCommands() {
  const Lock lock(mTreeMutex);
  drain();
}

OctreePicker::HandleRecord* OctreePicker::find(std::uint64_t serial) {
  const auto found = mRecords.find(serial);
  return found == mRecords.end() ? nullptr : &found->second;
}

std::int64_t OctreePicker::pickFrustum(std::size_t handle, const float corners[24], const float matrix[16],
                                       bool wholeInside, std::uint32_t* ids, std::size_t capacity) {
  const std::uint64_t serial = serialOf(handle);
  const Lock lock(mTreeMutex);
  drain();
  HandleRecord* const record = find(serial);
  if (!record) return 0;

  Vec3 points[8];
  for (std::size_t k = 0; k < 8; ++k) points[k] = {corners[3 * k], corners[3 * k + 1], corners[3 * k + 2]};
  const util::Frustum volume(points);
  double viewProjection[16];
  std::copy_n(matrix, 16, viewProjection);
  std::optional<ClipPlanes> planes;  // made when they are asked for

  const std::span<const util::BoxSet::Candidate> candidates = record->mBoxes.queryFrustum(volume, mScratch);
  mFoundIds.clear();
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    if (i + 2 * kAhead < candidates.size()) __builtin_prefetch(&record->mObjects[candidates[i + 2 * kAhead].number]);
    if (i + kAhead < candidates.size()) {
      prefetch(record->mObjects[candidates[i + kAhead].number].get());
      record->mBoxes.prefetch(candidates[i + kAhead]);
    }
    const util::BoxSet::Candidate& candidate = candidates[i];
    const Pickable& pickable = *record->mObjects[candidate.number];
    if (candidate.isInside() && !planes) planes.emplace(viewProjection);
    if (pickable.isInsideClipVolume(viewProjection, candidate.isInside() ? &*planes : nullptr, wholeInside) &&
        record->mBoxes.meets(candidate, volume, mScratch))
      mFoundIds.push_back(static_cast<std::uint32_t>(pickable.mId));
  }

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
  Pickable* const found = record ? record->mById.find(id) : nullptr;
  if (!found) return false;
  Pickable& pickable = *found;
  // The first ray makes do without: most objects are asked once between two changes, if at all.
  if (pickable.mWasAsked && pickable.mPlacements.empty()) {
    std::vector<util::RayTransform> placements;
    placements.reserve(pickable.mMeshes.size());
    for (const auto& mesh : pickable.mMeshes) placements.emplace_back(*mesh, pickable.mMatrix);
    pickable.mPlacements = std::move(placements);
  }
  pickable.mWasAsked = true;

  const double from[3] = {origin[0], origin[1], origin[2]}, along[3] = {direction[0], direction[1], direction[2]};
  constexpr double kFarthest = FLT_MAX;
  double best = kFarthest, bestNormal[3] = {0, 0, 0};
  bool hit = false;
  for (std::size_t i = 0; i < pickable.mMeshes.size(); ++i) {
    double t = kFarthest, meshNormal[3];
    const util::TriangleMesh& mesh = *pickable.mMeshes[i];
    double* const normalOut = normal ? meshNormal : nullptr;
    const bool isHit =
        pickable.mPlacements.empty()
            ? util::intersectRay(mesh, pickable.mMatrix, from, along, &t, normalOut)
            : util::intersectRay(mesh, pickable.mPlacements[i], pickable.mMatrix, from, along, &t, normalOut);
    if (!isHit) continue;
    hit = true;
    // Strictly: the earlier mesh wins a tie.
    if (!(t < best)) continue;
    best = t;
    if (normal) std::copy_n(meshNormal, 3, bestNormal);
  }
  *distance = static_cast<float>(best);
  if (normal)
    for (int axis = 0; axis < 3; ++axis) normal[axis] = static_cast<float>(bestNormal[axis]);
  return hit;
}
