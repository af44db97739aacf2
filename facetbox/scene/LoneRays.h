#pragma once

#include <cstdint>

#include <facetbox/scene/RayKernel.h>
#include <facetbox/scene/SurfaceTest.h>
#include <facetbox/scene/UnitRays.h>
#include <facetbox/triangles/RayTraversal.h>

// The traversal of a scene by one ray. Written over a set of vector operations, and compiled once per instruction set.
//
// Nothing in here may call an inline function of a library: the linker would be free to keep the copy that an older
// processor cannot run.

namespace util {

/// The search of one ray among the triangles of one object.
struct SurfaceSearch {
  SurfaceRay ray;
  double best;
  std::uint32_t winsBelow;  ///< of equally near hits, triangles before this one win
  const TriangleBvh::Exact* hit;
  SurfaceMeeting meeting;
  RayMode mode;
};

inline __attribute__((always_inline)) void testSurface(const TriangleBvh::Exact& exact, SurfaceSearch& search) {
  SurfaceMeeting meeting;
  if (!meetSurface(search.ray, exact.corner, meeting)) return;
  if (!(meeting.t < search.best || (meeting.t == search.best && exact.triangle < search.winsBelow))) return;
  search.meeting = meeting;
  search.hit = &exact;
  search.winsBelow = exact.triangle;
  // Any hit will do: nothing can be nearer than this.
  search.best = search.mode == RayMode::any ? -1 : meeting.t;
}

template <class Ops>
inline __attribute__((always_inline)) void testExact(const TriangleBvh::Exact& exact, SurfaceSearch& search) {
  testSurface(exact, search);
}

/// Takes a ray into the coordinates of an object's mesh, by the operations of Placement.
/// @param stride  of the coordinates that it receives
inline __attribute__((always_inline)) void toMesh(const RayTarget& target, const RayBundle& bundle, int ray,
                                                  double* origin, double* direction, int stride = 1) {
  const double ox = bundle.origin[0][ray] - target.translation.x, oy = bundle.origin[1][ray] - target.translation.y,
               oz = bundle.origin[2][ray] - target.translation.z;
  const double dx = bundle.direction[0][ray], dy = bundle.direction[1][ray], dz = bundle.direction[2][ray];
  for (int a = 0; a < 3; ++a) {
    const Vec3& row = target.inverse[a];
    origin[a * stride] = row.x * ox + row.y * oy + row.z * oz;
    direction[a * stride] = row.x * dx + row.y * dy + row.z * dz;
  }
}

inline __attribute__((always_inline)) void startSearch(const RayTarget& target, RayMode mode, const RayBundle& bundle,
                                                       int ray, const double (&origin)[3], const double (&direction)[3],
                                                       SurfaceSearch& search) {
  search.ray = makeSurfaceRay(origin, direction);
  search.best = bundle.best[ray];
  // The lower id wins; where there is no hit yet, the bound itself is allowed.
  search.winsBelow = target.id < bundle.id[ray] ? RayBundle::kNone : 0;
  search.hit = nullptr;
  search.mode = mode;
}

inline __attribute__((always_inline)) void keep(const SurfaceSearch& search, const RayTarget& target,
                                                std::uint32_t slot, int ray, RayBundle& bundle) {
  if (search.hit == nullptr) return;
  bundle.best[ray] = search.best;
  bundle.id[ray] = target.id;
  bundle.slot[ray] = slot;
  bundle.triangle[ray] = search.hit->triangle;
  for (int i = 0; i < 3; ++i) {
    bundle.edge1[i][ray] = search.hit->corner[3 + i] - search.hit->corner[i];
    bundle.edge2[i][ray] = search.hit->corner[6 + i] - search.hit->corner[i];
  }
  bundle.second[ray] = search.meeting.second;
  bundle.third[ray] = search.meeting.third;
  bundle.all[ray] = search.meeting.all;
}

inline __attribute__((always_inline)) RayError errorOf(const RayTarget& target) {
  return {kSurfaceError * target.unitScale, kSurfaceError * target.unitScale};
}

/// A ray in the unit coordinates of a mesh.
struct MeshRay {
  double origin[3], direction[3];  ///< in the coordinates of the mesh
  UnitRays<1> unit;
};
inline __attribute__((always_inline)) void toMeshUnit(const RayTarget& target, const RayBundle& bundle, int ray,
                                                      MeshRay& out) {
  toMesh(target, bundle, ray, out.origin, out.direction);
  const double origins[3][1] = {{out.origin[0]}, {out.origin[1]}, {out.origin[2]}},
               directions[3][1] = {{out.direction[0]}, {out.direction[1]}, {out.direction[2]}};
  const double center[3] = {target.unitCenter.x, target.unitCenter.y, target.unitCenter.z};
  toUnit<OneLane, 1>(origins, directions, &bundle.best[ray], center, target.unitScale, errorOf(target), out.unit);
}

/// Not inlined: among other code, the loop of the traversal would run short of registers.
template <class Ops>
__attribute__((noinline)) void searchAlone(const TriangleBvh::View& view, const UnitRay& ray,
                                           const ParameterMap& limits, SurfaceSearch& surface) {
  search<Ops, false>(view, ray, limits, surface);
}

/// One ray against one object.
template <class Ops>
inline __attribute__((always_inline)) void castOne(const RayTarget& target, RayMode mode, std::uint32_t slot, int ray,
                                                   RayBundle& bundle) {
  MeshRay at;
  toMeshUnit(target, bundle, ray, at);
  if (!target.hasHierarchy || at.unit.isOdd(0)) return castRayPlain(target, mode, slot, ray, bundle);
  if (at.unit.isAway(0)) return;
  SurfaceSearch surface;
  startSearch(target, mode, bundle, ray, at.origin, at.direction, surface);
  searchAlone<Ops>(target.view, unitRayOf(at.unit, 0), ParameterMap{at.unit.scale[0], at.unit.offset[0]}, surface);
  keep(surface, target, slot, ray, bundle);
}

/// Calls visit(slot) for the objects whose boxes a ray may meet up to the best hit of the bundle, the nearest first.
template <class Ops, class Visit>
inline __attribute__((always_inline)) void visitObjects(const RayScene& scene, int ray, const RayBundle& bundle,
                                                        const Visit& visit) {
  const double origins[3][1] = {{bundle.origin[0][ray]}, {bundle.origin[1][ray]}, {bundle.origin[2][ray]}},
               directions[3][1] = {{bundle.direction[0][ray]}, {bundle.direction[1][ray]}, {bundle.direction[2][ray]}};
  const double center[3] = {scene.unitCenter.x, scene.unitCenter.y, scene.unitCenter.z};
  UnitRays<1> unit;
  toUnit<OneLane, 1>(origins, directions, &bundle.best[ray], center, scene.unitScale,
                     {scene.errorPerOrigin, scene.errorAtLeast}, unit);
  // What floats cannot hold visits all objects.
  const bool isOdd = unit.isOdd(0);
  if (unit.isAway(0) && !isOdd) return;
  UnitRay at = unitRayOf(unit, 0);
  const SlabTest<Ops> slabs(at);
  struct Waiting {
    ObjectTree::Reference reference;
    float near;
  } stack[ObjectTree::kStackSize];
  int depth = 0;
  stack[depth++] = {scene.root, at.first};
  while (depth > 0) {
    --depth;
    if (!isOdd && stack[depth].near > at.last) continue;
    const ObjectTree::Reference reference = stack[depth].reference;
    if (reference >= ObjectTree::kLeaf) {
      visit(reference & ~ObjectTree::kLeaf);
      shorten(unit, 0, bundle.best[ray]);
      at.last = unit.last[0];
      continue;
    }
    const ObjectTree::Node& node = scene.nodes[reference];
    alignas(32) float near[TriangleBvh::kWidth];
    unsigned met = 0;
    for (int first = 0; first < TriangleBvh::kWidth; first += Ops::kLanes) met |= slabs.meet(node, first, at, near);
    if (isOdd) met = (1U << TriangleBvh::kWidth) - 1;
    // The nearest on top.
    const int bottom = depth;
    for (; met != 0; met &= met - 1) {
      const int lane = __builtin_ctz(met);
      if (node.child[lane] == ObjectTree::kNothing) continue;
      int place = depth++;
      for (; place > bottom && stack[place - 1].near < near[lane]; --place) stack[place] = stack[place - 1];
      stack[place] = {node.child[lane], near[lane]};
    }
  }
}

/// One ray against all objects.
template <class Ops>
inline __attribute__((always_inline)) void castAlone(const RayScene& scene, RayMode mode, int ray, RayBundle& bundle) {
  visitObjects<Ops>(
      scene, ray, bundle, [&](std::uint32_t slot) __attribute__((always_inline)) {
        castOne<Ops>(scene.targets[slot], mode, slot, ray, bundle);
      });
}

}  // namespace util
