#pragma once

#include <cstdint>
#include <vector>

#include <facetbox/math/Vec3.h>
#include <facetbox/scene/ObjectTree.h>
#include <facetbox/triangles/TriangleBvh.h>

namespace util {

class SceneMesh;

/// What rays need of an object.
struct RayTarget {
  Vec3 inverse[3] = {};  ///< rows of the way into the mesh's coordinates
  Vec3 rows[3] = {};     ///< and of the linear part of the way back
  Vec3 translation = {};
  TriangleBvh::View view = {};
  Vec3 unitCenter = {};  ///< of the mesh's hierarchy, in its unit coordinates
  double unitScale = 1;
  float leafSize = 1;  ///< about that of a block of triangles, in unit coordinates
  const SceneMesh* mesh = nullptr;
  std::uint32_t id = 0;
  bool hasHierarchy = false;
};

/// What rays need of a scene. Valid until it changes.
struct RayScene {
  const ObjectTree::Node* nodes;
  ObjectTree::Reference root;  ///< ObjectTree::kNothing where there are no objects
  Vec3 unitCenter;             ///< of the tree, in its unit coordinates
  double unitScale;
  double errorPerOrigin, errorAtLeast;  ///< how far a hit may lie outside of its object's box, in unit coordinates
  const RayTarget* targets;             ///< by slot
  std::uint32_t onlySlot;               ///< where there is but one object; else kNone of RayBundle
  float leafSize;                       ///< about that of an object, in unit coordinates
};

enum class RayMode {
  nearest,  ///< looks for the nearest hit
  any,      ///< looks for any hit
};

/// Rays on their way through a scene, side by side, with the nearest hits so far.
struct alignas(32) RayBundle {
  static constexpr int kSize = 16;
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

  double origin[3][kSize], direction[3][kSize];  ///< the largest coordinate of a direction is from 1/2 to 1
  double best[kSize];                            ///< at the start the bound that a hit may not exceed
  std::uint32_t id[kSize], slot[kSize];          ///< of the object that is hit, or kNone
  std::uint32_t triangle[kSize];
  double second[kSize], third[kSize];  ///< barycentric coordinates, times `all`
  double all[kSize];
  double edge1[3][kSize], edge2[3][kSize];  ///< of the triangle, in the mesh's coordinates
  // What is made of these at the end.
  double u[kSize], v[kSize];                  ///< barycentric coordinates
  double edgeSize1[kSize], edgeSize2[kSize];  ///< largest coordinates of the edges in the world
  double normal[3][kSize];                    ///< unit normals in the world, where these sizes are modest
  unsigned rays;                              ///< a bit for each that takes part
};

/// Casts the rays of a bundle: together through the parts of the hierarchies where they run alike, else one by one. The
/// hits are those of the plain loop over all objects and triangles.
using CastRays = void(const RayScene& scene, RayMode mode, RayBundle& bundle);
CastRays castRaysAvx2, castRaysBase;

/// The plain loop over the triangles of an object, for one ray.
void castRayPlain(const RayTarget& target, RayMode mode, std::uint32_t slot, int ray, RayBundle& bundle) noexcept;

/// Every hit of one ray of a bundle, up to its bound, in no order.
struct RayMeeting {
  std::uint32_t slot, id, triangle;
  double t, second, third, all;
  Vec3 edge1, edge2;  ///< of the triangle, in the mesh's coordinates
};
std::vector<RayMeeting> collectHits(const RayScene& scene, int ray, const RayBundle& bundle);

}  // namespace util
