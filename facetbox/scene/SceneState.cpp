#include <facetbox/scene/SceneState.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace util {

void SceneState::add(SceneObject object) {
  std::uint32_t slot;
  const bool isNew = mFreeSlots.empty();
  if (isNew) {
    slot = static_cast<std::uint32_t>(mObjects.size());
    mTargets.resize(mObjects.size() + 1);
    mObjects.emplace_back();
  } else {
    slot = mFreeSlots.back();
  }
  try {
    if (mFreeSlots.capacity() < mObjects.size()) mFreeSlots.reserve(2 * mObjects.size());  // remove() shall not throw
    const auto entry = mSlots.emplace(object.id, slot).first;
    try {
      if (object.mesh->triangleCount() != 0) mTree.insert(slot, object.placement.worldBox(object.mesh->box()));
    } catch (...) {
      mSlots.erase(entry);
      throw;
    }
  } catch (...) {
    if (isNew) mObjects.pop_back();
    throw;
  }
  if (!isNew) mFreeSlots.pop_back();
  mObjects[slot].id = object.id;
  place(slot, std::move(object.mesh), object.placement);
}

void SceneState::place(std::uint32_t slot, std::shared_ptr<const SceneMesh> mesh, const Placement& placement) {
  SceneObject& object = mObjects[slot];
  object.mesh = std::move(mesh);
  object.placement = placement;
  mOriginError = std::max(mOriginError, placement.originError());
  RayTarget& target = mTargets[slot];
  std::copy_n(placement.inverse(), 3, target.inverse);
  std::copy_n(placement.rows(), 3, target.rows);
  target.translation = placement.translation();
  target.mesh = object.mesh.get();
  target.id = object.id;
  const TriangleBvh& hierarchy = object.mesh->hierarchy();
  target.hasHierarchy = hierarchy.isUsable();
  target.leafSize = static_cast<float>(3 * std::sqrt(8 / static_cast<double>(object.mesh->triangleCount() + 1)));
  target.view = hierarchy.view();
  target.unitScale = hierarchy.scale();
  target.unitCenter = hierarchy.scale() * hierarchy.center();
}

RayScene SceneState::rayScene() const {
  // Of the way into the tree's unit coordinates.
  constexpr double kRounding = 128 * 0x1p-53;
  const double scale = mTree.scale();
  const Vec3 center = scale * mTree.center();
  return {mTree.nodes(),
          mTree.root(),
          center,
          scale,
          scale * (mOriginError + kRounding),
          kRounding * (largestMagnitude(center) + 1),
          mTargets.data(),
          mTree.only(),
          static_cast<float>(2 / std::cbrt(static_cast<double>(mTree.size() + 1)))};
}

void SceneState::move(facetbox::Id id, std::shared_ptr<const SceneMesh> mesh, const Placement& placement) {
  const auto found = mSlots.find(id);
  if (found == mSlots.end()) return;
  place(found->second, std::move(mesh), placement);
  const Box& box = mObjects[found->second].mesh->box();
  if (box.min.x <= box.max.x) mTree.move(found->second, placement.worldBox(box));
}

void SceneState::remove(facetbox::Id id) {
  const auto found = mSlots.find(id);
  if (found == mSlots.end()) return;
  SceneObject& object = mObjects[found->second];
  if (object.mesh->triangleCount() != 0) mTree.remove(found->second);
  mFreeSlots.push_back(found->second);
  object = {};
  mSlots.erase(found);
}

}  // namespace util
