#pragma once

#include <array>
#include <memory>
#include <optional>
#include <vector>

#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/RayTest.h>
#include <facetbox/util/TriangleMesh.h>

namespace util {

/// A mesh in the world.
struct Instance {
  std::shared_ptr<const TriangleMesh> mMesh;          ///< with its edges
  std::optional<std::array<double, 16>> mTransform;   ///< none: the mesh is the instance's own and lies in the world
  std::unique_ptr<const RayTransform> mRayTransform;  ///< made by the first ray after a change
};

/// An object of the intersector.
struct Entry {
  std::shared_ptr<const TriangleMesh> mBox;  ///< in the world; null while there is none
  std::vector<Instance> mInstances;          ///< in the order in which they were added

  /// Moves box and instances, or throws and moves nothing.
  void relocate(const Vec3& offset);
};

/// Gives a mesh that lies in the world its hierarchy, where that pays; for its only owner.
void prepareForQueries(TriangleMesh& mesh);

}  // namespace util
