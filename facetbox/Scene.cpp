#include <facetbox/Scene.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>

#include <facetbox/commands/CommandQueue.h>
#include <facetbox/scene/NearestPoint.h>
#include <facetbox/scene/RayCasting.h>
#include <facetbox/scene/SceneState.h>
#include <facetbox/scene/ViewSelection.h>

namespace facetbox {

using util::Placement;
using util::SceneMesh;
using util::SceneState;

/// Order of the locks: the state's, which queries share and changes have alone, then the queue's own. The one of the
/// meshes is taken alone.
class Scene::Implementation {
 public:
  Id add(std::shared_ptr<const PolyMesh> mesh, const Transform& transform) {
    std::shared_ptr<const SceneMesh> shape = shapeOf(std::move(mesh));
    auto change = changeTo(Change::Kind::add, std::move(shape), transform);
    change->id = newId();
    // The scene knows the mesh of an object before anyone can move it.
    const Id id = change->id;
    {
      const std::lock_guard lock(mShapesMutex);
      mShapeOfObject.emplace(id, change->shape);
    }
    mQueue.push(std::move(change));
    return id;
  }

  void move(Id id, const Transform& transform) {
    requireKnown(id);
    std::shared_ptr<const SceneMesh> shape;
    {
      const std::lock_guard lock(mShapesMutex);
      const auto found = mShapeOfObject.find(id);
      if (found == mShapeOfObject.end()) return;
      shape = found->second;
    }
    auto change = changeTo(Change::Kind::move, std::move(shape), transform);
    change->id = id;
    mQueue.push(std::move(change));
  }

  void remove(Id id) {
    requireKnown(id);
    auto change = std::make_unique<Change>();
    change->kind = Change::Kind::remove;
    change->id = id;
    {
      const std::lock_guard lock(mShapesMutex);
      if (mShapeOfObject.erase(id) == 0) return;
    }
    mQueue.push(std::move(change));
  }

  /// Answers a query on the state as it is after all changes so far.
  template <class Query>
  auto ask(Query query) {
    if (mQueue.count() != 0 || mIsUnfinished) {
      const std::unique_lock lock(mStateMutex);
      mIsUnfinished = true;  // until all is done: it may run out of memory
      mQueue.drain([this](Change& change) { execute(change); });
      mState.update();
      mIsUnfinished = false;
    }
    const std::shared_lock lock(mStateMutex);
    return query(static_cast<const SceneState&>(mState));
  }

 private:
  struct Change {
    enum class Kind { add, move, remove };
    Kind kind = Kind::add;
    Id id = kNone;
    std::shared_ptr<const SceneMesh> shape;   // as the caller's mesh has it
    std::shared_ptr<const SceneMesh> placed;  // what rays ask: the same, or a copy with placed corners
    Placement placement;
  };

  void execute(Change& change) {
    switch (change.kind) {
      case Change::Kind::add:
        mState.add({change.id, std::move(change.placed), change.placement});
        break;
      case Change::Kind::move:
        mState.move(change.id, std::move(change.placed), change.placement);
        break;
      case Change::Kind::remove:
        mState.remove(change.id);
        break;
    }
  }

  /// Whatever takes time or may throw is done here, on the caller's thread.
  static std::unique_ptr<Change> changeTo(Change::Kind kind, std::shared_ptr<const SceneMesh> shape,
                                          const Transform& transform) {
    for (const auto& row : transform.rows)
      for (const double x : row)
        if (!std::isfinite(x)) throw std::invalid_argument("Scene: a number of the transform is not finite");
    auto change = std::make_unique<Change>();
    change->kind = kind;
    change->placement = Placement(transform, shape->scale());
    change->placed = shape;
    if (!change->placement.isInvertible()) {
      change->placed = util::placedCopy(*shape, change->placement);
      change->placement = Placement({}, change->placed->scale());
    }
    const util::Box box = change->placement.worldBox(change->placed->box());
    // Of an empty box as well; and NaN fails.
    const bool isNear = !(box.min.x <= box.max.x) ||
                        std::max(largestMagnitude(box.min), largestMagnitude(box.max)) <= Placement::kFarthest;
    if (change->placed->triangleCount() != 0 && !(isNear && box.min.x <= box.max.x))
      throw std::invalid_argument("Scene: the transform places the mesh beyond 1e150");
    change->shape = std::move(shape);
    return change;
  }

  Id newId() {
    Id id = mNextId.load();
    do {
      if (id == kNone) throw std::length_error("Scene: no more than 2^32 - 1 objects can be numbered");
    } while (!mNextId.compare_exchange_weak(id, id + 1));
    return id;
  }
  void requireKnown(Id id) const {
    if (id >= mNextId.load())
      throw std::invalid_argument("Scene: there has never been an object " + std::to_string(id));
  }

  /// The triangles of a mesh, made the first time. Two threads that add it at once may both make them; one is kept.
  std::shared_ptr<const SceneMesh> shapeOf(std::shared_ptr<const PolyMesh> mesh) {
    const PolyMesh* const key = mesh.get();
    {
      const std::lock_guard lock(mShapesMutex);
      const auto found = mShapes.find(key);
      if (found != mShapes.end())
        if (auto shape = found->second.lock()) return shape;
    }
    auto made = std::make_shared<const SceneMesh>(std::move(mesh));
    const std::lock_guard lock(mShapesMutex);
    std::weak_ptr<const SceneMesh>& entry = mShapes[key];
    if (auto shape = entry.lock()) return shape;
    entry = made;
    // Entries of meshes that have gone, from time to time.
    if (mShapes.size() > 2 * mShapesKept + kFewShapes) {
      std::erase_if(mShapes, [](const auto& other) { return other.second.expired(); });
      mShapesKept = mShapes.size();
    }
    return made;
  }

  static constexpr std::size_t kFewShapes = 16;

  util::CommandQueue<Change> mQueue;
  std::atomic<Id> mNextId{0};
  std::shared_mutex mStateMutex;
  std::atomic<bool> mIsUnfinished{false};
  SceneState mState;  // guarded by mStateMutex

  std::mutex mShapesMutex;  // guards what follows
  // A shape holds its mesh: as long as there is one, no other mesh has the address.
  std::map<const PolyMesh*, std::weak_ptr<const SceneMesh>> mShapes;
  std::size_t mShapesKept = 0;
  std::unordered_map<Id, std::shared_ptr<const SceneMesh>> mShapeOfObject;
};

Scene::Scene() : mImplementation(std::make_unique<Implementation>()) {}
Scene::~Scene() = default;

Id Scene::add(std::shared_ptr<const PolyMesh> mesh, const Transform& transform) {
  return mImplementation->add(std::move(mesh), transform);
}
void Scene::move(Id id, const Transform& transform) { mImplementation->move(id, transform); }
void Scene::remove(Id id) { mImplementation->remove(id); }

std::size_t Scene::size() const {
  return mImplementation->ask([](const SceneState& state) { return state.size(); });
}

std::optional<std::array<double, 6>> Scene::box() const {
  return mImplementation->ask([](const SceneState& state) -> std::optional<std::array<double, 6>> {
    const util::Box box = state.tree().bounds();
    if (!(box.min.x <= box.max.x)) return {};
    return std::array{box.min.x, box.min.y, box.min.z, box.max.x, box.max.y, box.max.z};
  });
}

Hits Scene::castRays(std::span<const double> origins, std::span<const double> directions,
                     const RayOptions& options) const {
  return mImplementation->ask(
      [&](const SceneState& state) { return util::castRays(state, origins, directions, options); });
}

std::vector<std::uint8_t> Scene::anyHit(std::span<const double> origins, std::span<const double> directions,
                                        const RayOptions& options) const {
  return mImplementation->ask(
      [&](const SceneState& state) { return util::anyHit(state, origins, directions, options); });
}

std::size_t Scene::allHits(std::span<const double> origin, std::span<const double> direction, std::span<Hit> hits,
                           double limit) const {
  if (origin.size() != 3 || direction.size() != 3)
    throw std::invalid_argument("Rays: the origin and the direction have three numbers each");
  std::vector<Hit> all = mImplementation->ask(
      [&](const SceneState& state) { return util::allHits(state, origin.data(), direction.data(), limit); });
  const std::size_t count = std::min(all.size(), hits.size());
  std::ranges::partial_sort(all, all.begin() + static_cast<std::ptrdiff_t>(count), {},
                            [](const Hit& hit) { return std::tuple(hit.t, hit.id, hit.triangle); });
  std::copy_n(all.begin(), count, hits.begin());
  return all.size();
}

std::vector<Id> Scene::select(const Matrix& viewProjection, Select which) const {
  return mImplementation->ask([&](const SceneState& state) {
    std::vector<Id> ids;
    for (const std::uint32_t slot : util::slotsInView(state, viewProjection, which)) ids.push_back(state[slot].id);
    std::ranges::sort(ids);
    return ids;
  });
}

std::vector<std::optional<Nearest>> Scene::nearest(std::span<const double> points) const {
  return mImplementation->ask([&](const SceneState& state) { return util::nearestPoints(state, points); });
}

}  // namespace facetbox
