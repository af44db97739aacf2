#include <facetbox/intersector/TriIntersector.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include <boost/thread/lock_types.hpp>

#include <facetbox/intersector/IntersectionRaster.h>
#include <facetbox/intersector/NearestSearch.h>
#include <facetbox/math/Matrix4.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/MeshStorage.h>

namespace util {

using Lock = boost::unique_lock<boost::mutex>;
using MeshPointer = std::shared_ptr<const TriangleMesh>;

namespace {

constexpr int kCacheKind = 1;
/// Meshes of this many vertices are shared; smaller ones cost less when each use has its own.
constexpr std::size_t kFewestShared = 16;

/// The mesh's vertices, each through `place`, three values each.
template <class Place>
std::vector<double> coordinatesOf(const Mesh& mesh, Place place) {
  std::vector<double> coordinates;
  coordinates.reserve(3 * mesh.storage().mVertices.size());
  for (const Vec3& vertex : mesh.storage().mVertices) {
    const Vec3 p = place(vertex);
    coordinates.insert(coordinates.end(), {p.x, p.y, p.z});
  }
  return coordinates;
}

std::shared_ptr<TriangleMesh> triangulate(Triangulator& triangulator, const Mesh& mesh,
                                          std::vector<double> coordinates) {
  constexpr int kTrianglesOnly = 0;
  return std::shared_ptr<TriangleMesh>(triangulator.triangulate(mesh, std::move(coordinates), kTrianglesOnly));
}

void narrow(const Vec3& from, float to[3]) {
  to[0] = static_cast<float>(from.x);
  to[1] = static_cast<float>(from.y);
  to[2] = static_cast<float>(from.z);
}

}  // namespace

/// A queued change. Holds all that it needs: when it is executed its handle may be gone.
class TriIntersector::Command {
 public:
  explicit Command(std::uint64_t id) : mId(id) {}
  virtual ~Command() = default;
  /// @return whether cached meshes may be without users now
  virtual bool execute(TriIntersector& intersector) = 0;

 protected:
  /// The entry, a new one where there is none; null where the handle has been disposed of meanwhile: nobody could ever
  /// ask for the entry, or have it released.
  Entry* findOrInsert(TriIntersector& intersector) const {
    if (!intersector.mHandles.isAlive(mId)) return nullptr;
    const auto found = intersector.mEntries.find(mId);
    if (found != intersector.mEntries.end()) return &found->second;
    // With room for its first instance: where memory ends, no empty entry is left behind.
    Entry entry;
    entry.mInstances.reserve(1);
    return &intersector.mEntries.emplace(mId, std::move(entry)).first->second;
  }

  const std::uint64_t mId;
};

/// Adds a shared mesh with its place.
class TriIntersector::AddEntryCommand final : public Command {
 public:
  AddEntryCommand(std::uint64_t id, MeshPointer mesh, const double transform[16])
      : Command(id), mMesh(std::move(mesh)) {
    std::copy_n(transform, 16, mTransform.begin());
  }

  bool execute(TriIntersector& intersector) override {
    Entry* const entry = findOrInsert(intersector);
    if (entry) entry->mInstances.push_back({std::move(mMesh), mTransform, nullptr});
    return entry == nullptr;
  }

 private:
  MeshPointer mMesh;
  std::array<double, 16> mTransform;
};

/// Adds a mesh that lies in the world.
class TriIntersector::AddPretransEntryCommand final : public Command {
 public:
  AddPretransEntryCommand(std::uint64_t id, MeshPointer mesh) : Command(id), mMesh(std::move(mesh)) {}

  bool execute(TriIntersector& intersector) override {
    if (Entry* entry = findOrInsert(intersector))
      entry->mInstances.push_back({std::move(mMesh), std::nullopt, nullptr});
    return false;
  }

 private:
  MeshPointer mMesh;
};

class TriIntersector::SetOABBoxCommand final : public Command {
 public:
  SetOABBoxCommand(std::uint64_t id, MeshPointer box) : Command(id), mBox(std::move(box)) {}

  bool execute(TriIntersector& intersector) override {
    if (Entry* entry = findOrInsert(intersector)) entry->mBox = std::move(mBox);
    return false;
  }

 private:
  MeshPointer mBox;
};

class TriIntersector::RelocateCommand final : public Command {
 public:
  RelocateCommand(std::uint64_t id, const Vec3& offset) : Command(id), mOffset(offset) {}

  bool execute(TriIntersector& intersector) override {
    const auto found = intersector.mEntries.find(mId);
    if (found != intersector.mEntries.end()) found->second.relocate(mOffset);
    return false;
  }

 private:
  const Vec3 mOffset;
};

class TriIntersector::DisposeCommand final : public Command {
 public:
  using Command::Command;

  bool execute(TriIntersector& intersector) override {
    intersector.mEntries.erase(mId);
    intersector.mHandles.free(mId);
    return true;
  }
};

TriIntersector::TriIntersector() : mCache(kCacheKind) {}

TriIntersector::~TriIntersector() = default;

std::uint64_t TriIntersector::idOf(std::size_t handle) const { return serialOf<Intersector>(handle, this); }

std::size_t TriIntersector::createHandle() { return mHandles.create(this); }

void TriIntersector::addEntry(std::size_t handle, const Mesh& mesh, const double transform[16],
                              Triangulator& triangulator) {
  const std::uint64_t id = idOf(handle);
  if (!transform) throw std::invalid_argument("addEntry: the transform is null");
  if (id == 0) return;

  if (mesh.storage().mVertices.size() >= kFewestShared) {
    mQueue.push(std::make_unique<AddEntryCommand>(id, mCache.getTriangleMesh(mesh), transform));
    return;
  }
  const std::shared_ptr<TriangleMesh> triangles = triangulate(
      triangulator, mesh, coordinatesOf(mesh, [&](const Vec3& vertex) { return transformPoint(transform, vertex); }));
  prepareForQueries(*triangles);
  triangles->buildEdges();
  mQueue.push(std::make_unique<AddPretransEntryCommand>(id, triangles));
}

bool TriIntersector::setOABBox(std::size_t handle, const Mesh& box, Triangulator& triangulator) {
  const std::uint64_t id = idOf(handle);
  if (id == 0) return false;
  mQueue.push(std::make_unique<SetOABBoxCommand>(
      id, triangulate(triangulator, box, coordinatesOf(box, [](const Vec3& vertex) { return vertex; }))));
  return true;
}

bool TriIntersector::relocate(std::size_t handle, double dx, double dy, double dz) {
  const std::uint64_t id = idOf(handle);
  if (id == 0) return false;
  mQueue.push(std::make_unique<RelocateCommand>(id, Vec3{dx, dy, dz}));
  return true;
}

bool TriIntersector::dispose(std::size_t handle) {
  const std::uint64_t id = idOf(handle);
  if (id == 0) return false;
  mQueue.push(std::make_unique<DisposeCommand>(id));
  return true;
}

std::uint64_t TriIntersector::getPendingCommandCount() { return mQueue.count(); }

void TriIntersector::discardPendingCommands() { mQueue.discard(Discarded::abandoned); }

/// Executes what is queued; under the query mutex.
void TriIntersector::processCommands() {
  mQueue.drain([this](Command& command) {
    if (command.execute(*this)) mMeshesMayBeUnused = true;
  });
  if (!mMeshesMayBeUnused) return;
  // Once for all that was disposed of.
  mCache.pruneUnused();
  mMeshesMayBeUnused = false;
}

void TriIntersector::applyPendingCommands() {
  const Lock lock(mQueryMutex);
  processCommands();
}

/// The answer of a test on an entry as it is after all that is queued; false where there is no entry.
template <class Test>
bool TriIntersector::query(std::size_t handle, Test test) {
  const std::uint64_t id = idOf(handle);
  const Lock lock(mQueryMutex);
  processCommands();
  const auto found = mEntries.find(id);
  return found != mEntries.end() && test(found->second);
}

bool TriIntersector::testRaster(std::size_t handle, const float matrix[16], const int viewport[4],
                                const std::int32_t* raster, int rasterWidth, int rasterHeight, int offsetX,
                                int offsetY) {
  return query(handle, [&](const Entry& entry) {
    const IntersectionRaster mask(matrix, viewport, raster, rasterWidth, rasterHeight, offsetX, offsetY);
    return showsOnRaster(entry, mask, mScratch);
  });
}

bool TriIntersector::intersectsFrustum(std::size_t handle, const float matrix[16], bool contained) {
  return query(handle, [&](const Entry& entry) {
    double view[16];
    std::copy_n(matrix, 16, view);
    return contained ? liesInVolume(entry, view) : overlapsVolume(entry, view, mScratch);
  });
}

bool TriIntersector::findNearestInFrustum(std::size_t handle, const float matrix[16], const float eye[3],
                                          const float direction[3], float point[3], float corner0[3], float corner1[3],
                                          float corner2[3]) {
  return query(handle, [&](const Entry& entry) {
    double view[16];
    std::copy_n(matrix, 16, view);
    NearestSearch search(view, toVec3(eye), toVec3(direction));
    const NearestHit* hit = findNearest(entry, search, mScratch);
    if (!hit) return false;
    narrow(hit->mPoint, point);
    narrow(hit->mCorners[0], corner0);
    narrow(hit->mCorners[1], corner1);
    narrow(hit->mCorners[2], corner2);
    return true;
  });
}

bool TriIntersector::intersectsRay(std::size_t handle, const float origin[3], const float direction[3], float* distance,
                                   float* normal) {
  return query(handle, [&](Entry& entry) {
    const double from[3] = {origin[0], origin[1], origin[2]}, along[3] = {direction[0], direction[1], direction[2]};
    double t = 0, unitNormal[3] = {0, 0, 0};
    if (!util::intersectsRay(entry, from, along, &t, normal ? unitNormal : nullptr)) return false;
    *distance = static_cast<float>(t);
    if (normal)
      for (int axis = 0; axis < 3; ++axis) normal[axis] = static_cast<float>(unitNormal[axis]);
    return true;
  });
}

}  // namespace util
