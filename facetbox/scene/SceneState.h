#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include <facetbox/Scene.h>
#include <facetbox/scene/ObjectTree.h>
#include <facetbox/scene/Placement.h>
#include <facetbox/scene/RayKernel.h>
#include <facetbox/scene/SceneMesh.h>

namespace util {

/// An object of a scene.
struct SceneObject {
  facetbox::Id id = facetbox::kNone;
  std::shared_ptr<const SceneMesh> mesh;
  Placement placement;
};

/// The objects of a scene as of its last executed change. Queries only read it.
class SceneState {
 public:
  std::size_t size() const { return mSlots.size(); }
  /// By slot: a number that the tree has for it. Slots of objects that have gone are used again.
  const SceneObject& operator[](std::uint32_t slot) const { return mObjects[slot]; }
  /// Of the objects that have triangles.
  const ObjectTree& tree() const { return mTree; }
  /// What rays need of the objects.
  RayScene rayScene() const;

  /// Throws before anything is changed, or changes all.
  void add(SceneObject object);
  /// Nothing if there is no such object (any more).
  void move(facetbox::Id id, std::shared_ptr<const SceneMesh> mesh, const Placement& placement);
  void remove(facetbox::Id id);
  /// After changes, and before queries.
  void update() { mTree.update(); }

 private:
  void place(std::uint32_t slot, std::shared_ptr<const SceneMesh> mesh, const Placement& placement);

  std::vector<SceneObject> mObjects;
  std::vector<RayTarget> mTargets;  // by slot
  std::vector<std::uint32_t> mFreeSlots;
  std::unordered_map<facetbox::Id, std::uint32_t> mSlots;
  ObjectTree mTree;
  double mOriginError = 0;  // the largest of all objects, ever
};

}  // namespace util
