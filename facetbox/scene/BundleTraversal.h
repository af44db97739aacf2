#pragma once

#include <cstdint>

#include <facetbox/scene/Beam.h>
#include <facetbox/scene/LoneRays.h>
#include <facetbox/scene/RayKernel.h>

// The traversal of a scene by rays: of the hierarchy over its objects, and of those over their triangles. Written once,
// over a set of vector operations, and compiled once per instruction set. Nothing in here may call an inline function
// of a library: the linker would be free to keep the copy that an older processor cannot run.

namespace util {

/// Takes the rays that miss everything out of the mask.
/// @return those that floats cannot hold, as bits
template <int kCount>
inline __attribute__((always_inline)) unsigned leaveOut(const UnitRays<kCount>& rays, unsigned& mask) {
  unsigned away = 0, odd = 0;
  for (int i = 0; i < kCount; ++i) {
    away |= static_cast<unsigned>(rays.isAway(i)) << i;
    odd |= static_cast<unsigned>(rays.isOdd(i)) << i;
  }
  mask &= ~(away & ~odd);
  return odd;
}

/// The rays of the mask that meet a child's box, as bits.
template <class Ops, int kCount>
inline __attribute__((always_inline)) unsigned raysThatMeet(const TriangleBvh::Node& node, int child,
                                                            const UnitRays<kCount>& rays, unsigned mask) {
  using F = typename Ops::Floats;
  unsigned met = 0;
  for (int first = 0; first < kCount; first += Ops::kLanes) {
    F near = Ops::load(rays.first + first), far = Ops::load(rays.last + first);
    for (int a = 0; a < 3; ++a) {
      const F inverse = Ops::load(rays.inverse[a] + first);
      const F low = Ops::multiplySubtract(Ops::all(node.bounds[a][child]), inverse, Ops::load(rays.low[a] + first));
      const F high =
          Ops::multiplySubtract(Ops::all(node.bounds[3 + a][child]), inverse, Ops::load(rays.high[a] + first));
      near = Ops::max(near, Ops::min(low, high));
      far = Ops::min(far, Ops::max(low, high));
    }
    met |= Ops::lessEqual(near, far) << first;
  }
  return met & mask;
}

/// The lanes of a block that a ray of many may hit.
template <class Ops, int kCount>
inline __attribute__((always_inline)) unsigned filterFor(const TriangleBvh::Block& block, const UnitRays<kCount>& rays,
                                                         int ray) {
  using F = typename Ops::Floats;
  const F origin[3] = {Ops::all(rays.origin[0][ray]), Ops::all(rays.origin[1][ray]), Ops::all(rays.origin[2][ray])};
  const F direction[3] = {Ops::all(rays.direction[0][ray]), Ops::all(rays.direction[1][ray]),
                          Ops::all(rays.direction[2][ray])};
  unsigned lanes = 0;
  for (int first = 0; first < TriangleBvh::kWidth; first += Ops::kLanes)
    lanes |= filterLanes<Ops>(block, first, origin, direction, rays.tolerance[ray], nullptr) << first;
  return lanes;
}

/// What a beam has put off.
struct WaitingChild {
  TriangleBvh::Reference reference;
  std::uint32_t parent;  ///< of nodes: reference
  std::uint32_t lane;
  float near;
};

/// Below so many rays, each goes alone.
inline constexpr int kFewestTogether = 4;

/// Rays of a bundle against one object, together.
template <class Ops>
__attribute__((noinline)) void castTogether(const RayTarget& target, RayMode mode, std::uint32_t slot, unsigned mask,
                                            RayBundle& bundle) {
  constexpr int kCount = RayBundle::kSize;
  alignas(32) double origin[3][kCount], direction[3][kCount];
  for (int i = 0; i < kCount; ++i) toMesh(target, bundle, i, &origin[0][i], &direction[0][i], kCount);
  const double center[3] = {target.unitCenter.x, target.unitCenter.y, target.unitCenter.z};
  UnitRays<kCount> rays;
  toUnit<FourLanes<Ops>, kCount>(origin, direction, bundle.best, center, target.unitScale, errorOf(target), rays);
  unsigned odd = leaveOut(rays, mask);
  if (!target.hasHierarchy) odd = mask;
  for (unsigned left = mask & odd; left != 0; left &= left - 1)
    castRayPlain(target, mode, slot, __builtin_ctz(left), bundle);
  mask &= ~odd;
  if (mask == 0) return;

  SurfaceSearch searches[kCount];
  for (unsigned left = mask; left != 0; left &= left - 1) {
    const int i = __builtin_ctz(left);
    const double from[3] = {origin[0][i], origin[1][i], origin[2][i]},
                 along[3] = {direction[0][i], direction[1][i], direction[2][i]};
    startSearch(target, mode, bundle, i, from, along, searches[i]);
  }
  int axis = 0;
  Beam beam;
  bool goTogether = __builtin_popcount(mask) >= kFewestTogether && runAlike(rays, mask, axis);
  if (goTogether) {
    makeBeam<Ops>(rays, mask, axis, beam);
    goTogether = isNarrow(beam, target.leafSize, mask);
  }
  if (!goTogether) {
    for (; mask != 0; mask &= mask - 1) {
      const int i = __builtin_ctz(mask);
      searchAlone<Ops>(target.view, unitRayOf(rays, i), ParameterMap{rays.scale[i], rays.offset[i]}, searches[i]);
      keep(searches[i], target, slot, i, bundle);
    }
    return;
  }
  const TriangleBvh::View& view = target.view;
  WaitingChild stack[TriangleBvh::kStackSize];
  int depth = 0;
  TriangleBvh::Reference reference = view.root;
  std::uint32_t parent = RayBundle::kNone, lane = 0;
  for (;;) {
    if ((reference & TriangleBvh::kLeaf) == 0) {
      const TriangleBvh::Node& node = view.node(reference);
      alignas(32) float near[TriangleBvh::kWidth];
      unsigned met = meetBeam<Ops>(node, beam, near);
      if (met != 0) {
        parent = reference;
        lane = static_cast<std::uint32_t>(__builtin_ctz(met));
        float nearest = near[lane];
        for (met &= met - 1; met != 0; met &= met - 1) {
          const auto other = static_cast<std::uint32_t>(__builtin_ctz(met));
          const bool isNearer = near[other] < nearest;
          const std::uint32_t later = isNearer ? lane : other;
          stack[depth++] = {node.child[later], parent, later, near[later]};
          if (view.isLarge) prefetch(view, node.child[later]);
          if (!isNearer) continue;
          lane = other;
          nearest = near[other];
        }
        reference = node.child[lane];
        continue;
      }
    } else {
      unsigned some = mask;
      if (parent != RayBundle::kNone) some = raysThatMeet<Ops>(view.node(parent), static_cast<int>(lane), rays, mask);
      const TriangleBvh::Block& block = view.block(reference);
      bool isHit = false;
      for (; some != 0; some &= some - 1) {
        const int i = __builtin_ctz(some);
        unsigned lanes = filterFor<Ops>(block, rays, i);
        if (lanes == 0) continue;
        const double before = searches[i].best;
        for (; lanes != 0; lanes &= lanes - 1)
          testExact<Ops>(TriangleBvh::View::exact(block)[__builtin_ctz(lanes)], searches[i]);
        if (!(searches[i].best < before)) continue;
        shorten(rays, i, searches[i].best);
        isHit = true;
      }
      if (isHit) endBeam<Ops>(rays, beam);
    }
    do {
      if (depth == 0) {
        for (; mask != 0; mask &= mask - 1) {
          const int i = __builtin_ctz(mask);
          keep(searches[i], target, slot, i, bundle);
        }
        return;
      }
      --depth;
    } while (stack[depth].near > beam.last);
    reference = stack[depth].reference;
    parent = stack[depth].parent;
    lane = stack[depth].lane;
  }
}

/// Barycentric coordinates and normals of the hits; of rays without any, whatever comes out.
template <class Ops>
inline __attribute__((always_inline)) void finish(const RayScene& scene, RayBundle& bundle) {
  using Lanes = FourLanes<Ops>;
  using V = typename Lanes::Doubles;
  constexpr int kCount = RayBundle::kSize;
  alignas(32) double rows[3][3][kCount];
  for (int i = 0; i < kCount; ++i) {
    const std::uint32_t slot = bundle.slot[i];
    for (int r = 0; r < 3; ++r) {
      const Vec3 row = slot == RayBundle::kNone ? Vec3{1, 1, 1} : scene.targets[slot].rows[r];
      rows[r][0][i] = row.x;
      rows[r][1][i] = row.y;
      rows[r][2][i] = row.z;
    }
  }
  for (int i = 0; i < kCount; i += Lanes::kDoubles) {
    const V all = Lanes::load(bundle.all + i);
    Lanes::store(bundle.u + i, Lanes::load(bundle.second + i) / all);
    Lanes::store(bundle.v + i, Lanes::load(bundle.third + i) / all);
    V e1[3], e2[3];
    V largest1 = Lanes::all(0.0), largest2 = largest1;
    for (int r = 0; r < 3; ++r) {
      const V x = Lanes::load(rows[r][0] + i), y = Lanes::load(rows[r][1] + i), z = Lanes::load(rows[r][2] + i);
      e1[r] = x * Lanes::load(bundle.edge1[0] + i) + y * Lanes::load(bundle.edge1[1] + i) +
              z * Lanes::load(bundle.edge1[2] + i);
      e2[r] = x * Lanes::load(bundle.edge2[0] + i) + y * Lanes::load(bundle.edge2[1] + i) +
              z * Lanes::load(bundle.edge2[2] + i);
      largest1 = Lanes::max(Lanes::absolute(e1[r]), largest1);
      largest2 = Lanes::max(Lanes::absolute(e2[r]), largest2);
    }
    const V n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
    const V length = Lanes::root(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    for (int r = 0; r < 3; ++r) Lanes::store(bundle.normal[r] + i, n[r] / length);
    Lanes::store(bundle.edgeSize1 + i, largest1);
    Lanes::store(bundle.edgeSize2 + i, largest2);
  }
}

/// All rays of a bundle against all objects.
template <class Ops>
inline __attribute__((always_inline)) void castInto(const RayScene& scene, RayMode mode, RayBundle& bundle) {
  constexpr int kCount = RayBundle::kSize;
  if (scene.onlySlot != RayBundle::kNone) {
    castTogether<Ops>(scene.targets[scene.onlySlot], mode, scene.onlySlot, bundle.rays, bundle);
    return;
  }
  const double center[3] = {scene.unitCenter.x, scene.unitCenter.y, scene.unitCenter.z};
  UnitRays<kCount> rays;
  toUnit<FourLanes<Ops>, kCount>(bundle.origin, bundle.direction, bundle.best, center, scene.unitScale,
                                 {scene.errorPerOrigin, scene.errorAtLeast}, rays);
  unsigned mask = bundle.rays;
  const unsigned odd = leaveOut(rays, mask);
  if (mask == 0) return;
  int axis = 0;
  Beam beam;
  bool goTogether = (mask & odd) == 0 && __builtin_popcount(mask) >= kFewestTogether && runAlike(rays, mask, axis);
  if (goTogether) {
    makeBeam<Ops>(rays, mask, axis, beam);
    goTogether = isNarrow(beam, scene.leafSize, mask);
  }
  if (!goTogether) {
    for (; mask != 0; mask &= mask - 1) castAlone<Ops>(scene, mode, __builtin_ctz(mask), bundle);
    return;
  }
  WaitingChild stack[ObjectTree::kStackSize];
  int depth = 0;
  stack[depth++] = {scene.root, 0, RayBundle::kNone, beam.first};
  while (depth > 0) {
    const WaitingChild at = stack[--depth];
    if (at.near > beam.last) continue;
    if (at.reference >= ObjectTree::kLeaf) {
      const unsigned some = raysThatMeet<Ops>(scene.nodes[at.parent], static_cast<int>(at.lane), rays, mask);
      if (some == 0) continue;
      const std::uint32_t slot = at.reference & ~ObjectTree::kLeaf;
      const RayTarget& target = scene.targets[slot];
      if (target.hasHierarchy && __builtin_popcount(some) >= kFewestTogether) {
        castTogether<Ops>(target, mode, slot, some, bundle);
      } else {
        for (unsigned left = some; left != 0; left &= left - 1)
          castOne<Ops>(target, mode, slot, __builtin_ctz(left), bundle);
      }
      for (unsigned left = some; left != 0; left &= left - 1) {
        const int i = __builtin_ctz(left);
        shorten(rays, i, bundle.best[i]);
      }
      endBeam<Ops>(rays, beam);
      continue;
    }
    const ObjectTree::Node& node = scene.nodes[at.reference];
    alignas(32) float near[TriangleBvh::kWidth];
    unsigned met = meetBeam<Ops>(node, beam, near);
    const int bottom = depth;
    for (; met != 0; met &= met - 1) {
      const auto lane = static_cast<std::uint32_t>(__builtin_ctz(met));
      if (node.child[lane] == ObjectTree::kNothing) continue;
      int place = depth++;
      for (; place > bottom && stack[place - 1].near < near[lane]; --place) stack[place] = stack[place - 1];
      stack[place] = {node.child[lane], at.reference, lane, near[lane]};
    }
  }
}

template <class Ops>
inline __attribute__((always_inline)) void castBundle(const RayScene& scene, RayMode mode, RayBundle& bundle) {
  castInto<Ops>(scene, mode, bundle);
  if (mode == RayMode::nearest) finish<Ops>(scene, bundle);
}

}  // namespace util
