#pragma once

#include <cstdint>

#include <facetbox/scene/RayKernel.h>
#include <facetbox/scene/SurfaceTest.h>
#include <facetbox/triangles/RayMargins.h>
#include <facetbox/triangles/RayTraversal.h>
#include <facetbox/triangles/UnitRay.h>

// The traversal of a scene by rays: of the hierarchy over its objects, and of those over their triangles. Written once,
// over a set of vector operations, and compiled once per instruction set. Nothing in here may call an inline function
// of a library: the linker would be free to keep the copy that an older processor cannot run.
//
// What is passed over provably holds no hit. Let u = 2^-53, O the largest coordinate of a ray's origin in the
// coordinates of a mesh, whose own are at most 1. The test shears corners with an error of at most 8u (1 + O) along
// each axis, and is exact from there on. So the ray passes within that of the triangle wherever it is hit, and its t is
// off by at most 16u (1 + O), as a length. Moving the origin next to the hierarchy's center adds 10u (1 + O) and more.
// Unit coordinates are these, shifted and scaled: 128u (1 + O) times the scale bounds all of it. Floats add the errors
// that RayMargins.h derives, as there.

namespace util {

/// Errors of a ray in unit coordinates: this times the largest coordinate of its origin, plus that.
struct RayError {
  double perOrigin, atLeast;
};
inline constexpr double kSurfaceError = 128 * kUnit;

/// One number in place of several, for one ray.
struct OneLane {
  static constexpr int kDoubles = 1;
  using Doubles = double;
  static __attribute__((always_inline)) double load(const double* p) { return *p; }
  static __attribute__((always_inline)) void store(double* p, double x) { *p = x; }
  static __attribute__((always_inline)) double all(double x) { return x; }
  static __attribute__((always_inline)) double min(double a, double b) { return a < b ? a : b; }
  static __attribute__((always_inline)) double max(double a, double b) { return a > b ? a : b; }
  static __attribute__((always_inline)) double absolute(double x) { return __builtin_fabs(x); }
  static __attribute__((always_inline)) double withSignOf(double x, double sign) { return __builtin_copysign(x, sign); }
  static __attribute__((always_inline)) float rounded(double x) { return static_cast<float>(x); }
};
template <class Ops>
struct FourLanes : Ops {
  static constexpr int kDoubles = 4;
};

/// Rays in the unit coordinates of a hierarchy, side by side. As UnitRay, but offsets are by planes, low and high.
template <int kCount>
struct alignas(32) UnitRays {
  float origin[3][kCount], direction[3][kCount], inverse[3][kCount];
  float low[3][kCount], high[3][kCount];  ///< plane * inverse - this: where the ray meets that plane moved outward
  float width[kCount], tolerance[kCount];
  float first[kCount], last[kCount];
  double scale[kCount], offset[kCount];  ///< as ParameterMap's
  // What tells which rays to leave out, or to treat otherwise.
  double wide[kCount], offCenter[kCount], size[kCount];

  /// Misses everything.
  __attribute__((always_inline)) bool isAway(int i) const {
    return offCenter[i] > kCenterDistance + kCenterDistancePerWidth * wide[i];
  }
  /// Floats cannot hold it.
  __attribute__((always_inline)) bool isOdd(int i) const {
    constexpr double kSmallestDirection = 1e-100, kLargestDirection = 1e100;
    return !((kSize + kSizePerWidth * wide[i] < kLargestFloat) & (offCenter[i] < kLargestFloat) &
             (size[i] > kSmallestDirection) & (size[i] < kLargestDirection));
  }
};

/// above() of several.
template <class Lanes>
inline __attribute__((always_inline)) auto aboveLanes(const typename Lanes::Doubles& x) {
  constexpr double kRounding = 4 * kFloatUnit;
  return Lanes::rounded(
      Lanes::min(x + Lanes::absolute(x) * Lanes::all(kRounding), Lanes::all(static_cast<double>(kLastParameter))));
}

/// @param best  bounds
template <class Lanes, int kCount>
inline __attribute__((always_inline)) void toUnit(const double (&origin)[3][kCount],
                                                  const double (&direction)[3][kCount], const double* best,
                                                  const double center[3], double scale, const RayError& error,
                                                  UnitRays<kCount>& out) {
  using V = typename Lanes::Doubles;
  const auto put = [](float* to, auto lanes) __attribute__((always_inline)) {
    __builtin_memcpy(to, &lanes, sizeof lanes);
  };
  for (int i = 0; i < kCount; i += Lanes::kDoubles) {
    const V s = Lanes::all(scale);
    V o[3], d[3], n[3];
    V farthest = Lanes::all(0.0), offCenter = Lanes::all(0.0), size = Lanes::all(0.0);
    for (int a = 0; a < 3; ++a) {
      const V from = Lanes::load(origin[a] + i);
      farthest = Lanes::max(Lanes::absolute(from), farthest);
      o[a] = from * s - Lanes::all(center[a]);
      d[a] = Lanes::load(direction[a] + i) * s;
      size = Lanes::max(Lanes::absolute(d[a]), size);
    }
    const V shift =
        (Lanes::all(0.0) - (o[0] * d[0] + o[1] * d[1] + o[2] * d[2])) / (d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    for (int a = 0; a < 3; ++a) {
      n[a] = o[a] + shift * d[a];
      offCenter = offCenter + Lanes::absolute(n[a]);
    }
    const V wide = Lanes::all(error.perOrigin) * farthest + Lanes::all(error.atLeast);
    const V around = Lanes::all(kSize) + Lanes::all(kSizePerWidth) * wide;
    const V width = Lanes::all(1 + kPlaneErrorPerWidth) * wide + Lanes::all(kPlaneError * kSize);
    Lanes::store(out.wide + i, wide);
    Lanes::store(out.offCenter + i, offCenter);
    Lanes::store(out.size + i, size);
    put(out.width + i, Lanes::rounded(width));
    put(out.tolerance + i, Lanes::rounded(Lanes::all(kFloatMargin * kFilterPerWidth) * wide +
                                          Lanes::all(kFloatMargin * kFilterError) * around));
    const V unit = Lanes::all(1.0) / size, least = Lanes::all(kSmallestComponent) * size;
    for (int a = 0; a < 3; ++a) {
      put(out.origin[a] + i, Lanes::rounded(n[a]));
      put(out.direction[a] + i, Lanes::rounded(d[a] * unit));
      const auto inverse = Lanes::rounded(size / Lanes::withSignOf(Lanes::max(Lanes::absolute(d[a]), least), d[a]));
      put(out.inverse[a] + i, inverse);
      put(out.low[a] + i, Lanes::rounded(n[a] + width) * inverse);
      put(out.high[a] + i, Lanes::rounded(n[a] - width) * inverse);
    }
    const V slack = Lanes::all(2.0) * wide, start = shift * size;
    const V perT = size * Lanes::all(1 + 0x1p-50), offset = slack - start;
    Lanes::store(out.scale + i, perT);
    Lanes::store(out.offset + i, offset);
    const auto first = aboveLanes<Lanes>(start + slack);
    put(out.first + i, -first);
    put(out.last + i, aboveLanes<Lanes>(Lanes::load(best + i) * perT + offset));
  }
}

/// A ray's hit has become nearer.
template <int kCount>
inline __attribute__((always_inline)) void shorten(UnitRays<kCount>& rays, int ray, double best) {
  const float limit = best < 0 ? -kLastParameter : above(best * rays.scale[ray] + rays.offset[ray]);
  if (limit < rays.last[ray]) rays.last[ray] = limit;
}

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
inline __attribute__((always_inline)) void toMesh(const RayTarget& target, const RayBundle& bundle, int ray,
                                                  double (&origin)[3], double (&direction)[3]) {
  const double ox = bundle.origin[0][ray] - target.translation.x, oy = bundle.origin[1][ray] - target.translation.y,
               oz = bundle.origin[2][ray] - target.translation.z;
  const double dx = bundle.direction[0][ray], dy = bundle.direction[1][ray], dz = bundle.direction[2][ray];
  for (int a = 0; a < 3; ++a) {
    const Vec3& row = target.inverse[a];
    origin[a] = row.x * ox + row.y * oy + row.z * oz;
    direction[a] = row.x * dx + row.y * dy + row.z * dz;
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

template <int kCount>
inline __attribute__((always_inline)) UnitRay unitRayOf(const UnitRays<kCount>& rays, int i) {
  UnitRay ray;
  for (int a = 0; a < 3; ++a) {
    ray.origin[a] = rays.origin[a][i];
    ray.direction[a] = rays.direction[a][i];
    ray.inverse[a] = rays.inverse[a][i];
    ray.nearOffset[a] = rays.inverse[a][i] < 0 ? rays.high[a][i] : rays.low[a][i];
    ray.farOffset[a] = rays.inverse[a][i] < 0 ? rays.low[a][i] : rays.high[a][i];
  }
  ray.tolerance = rays.tolerance[i];
  ray.first = rays.first[i];
  ray.last = rays.last[i];
  return ray;
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

/// What rays that run alike have in common, in unit coordinates: they lie between two planes along each of the two
/// other axes, as linear functions of the coordinate on the axis of their direction.
struct alignas(32) Beam {
  float start[RayBundle::kSize], speed[RayBundle::kSize];  ///< along the axis; rays that take no part start far behind
  float left[RayBundle::kSize];                            ///< 0, or kLastParameter for a ray that takes no part
  int axis, other[2];
  float sign;                     ///< in which way the rays run along the axis
  float least[2][2], most[2][2];  ///< value at 0, and per unit
  float first, last;              ///< along the axis, times the sign; the last shrinks
  float margin;
  float spread[2];  ///< how far apart the rays are, along each of the other axes
};

/// Of sums in floats: coordinates are at most 5, and 10 at both ends.
inline constexpr float kBeamError = 512 * static_cast<float>(kFloatUnit);

/// @return whether the rays of the mask all run along one axis, more than sideways, in one way
template <int kCount>
inline __attribute__((always_inline)) bool runAlike(const UnitRays<kCount>& rays, unsigned mask, int& axis) {
  const int one = __builtin_ctz(mask);
  const float x = __builtin_fabsf(rays.direction[0][one]), y = __builtin_fabsf(rays.direction[1][one]),
              z = __builtin_fabsf(rays.direction[2][one]);
  axis = y > x ? (z > y ? 2 : 1) : (z > x ? 2 : 0);
  constexpr float kLeast = 0.5F;
  const float sign = rays.direction[axis][one] < 0 ? -1.0F : 1.0F;
  unsigned alike = 0;
  for (int i = 0; i < kCount; ++i) alike |= static_cast<unsigned>(rays.direction[axis][i] * sign > kLeast) << i;
  return (mask & ~alike) == 0;
}

template <class Ops>
inline __attribute__((always_inline)) float leastOf(const typename Ops::Floats& x) {
  alignas(32) float lanes[Ops::kLanes];
  Ops::store(lanes, x);
  float least = lanes[0];
  for (int i = 1; i < Ops::kLanes; ++i) least = lanes[i] < least ? lanes[i] : least;
  return least;
}
template <class Ops>
inline __attribute__((always_inline)) float mostOf(const typename Ops::Floats& x) {
  alignas(32) float lanes[Ops::kLanes];
  Ops::store(lanes, x);
  float most = lanes[0];
  for (int i = 1; i < Ops::kLanes; ++i) most = lanes[i] > most ? lanes[i] : most;
  return most;
}

/// Where the last of the rays ends.
template <class Ops, int kCount>
inline __attribute__((always_inline)) void endBeam(const UnitRays<kCount>& rays, Beam& beam) {
  typename Ops::Floats last = Ops::all(-kLastParameter);
  for (int i = 0; i < kCount; i += Ops::kLanes)
    last = Ops::max(Ops::load(beam.start + i) + Ops::load(rays.last + i) * Ops::load(beam.speed + i), last);
  const float most = mostOf<Ops>(last);
  beam.last = most + beam.margin + kBeamError * __builtin_fabsf(most);
}

template <class Ops, int kCount>
inline __attribute__((always_inline)) void makeBeam(const UnitRays<kCount>& rays, unsigned mask, int axis, Beam& beam) {
  using F = typename Ops::Floats;
  beam.axis = axis;
  beam.other[0] = axis == 2 ? 0 : axis + 1;
  beam.other[1] = axis == 0 ? 2 : axis - 1;
  beam.sign = rays.direction[axis][__builtin_ctz(mask)] < 0 ? -1.0F : 1.0F;
  // Rays that take no part may have any numbers, NaN as well. Of min and max, the second operand stays then.
  alignas(32) float divisor[kCount];
  F width = Ops::all(0.0F), first = Ops::all(kLastParameter);
  for (int i = 0; i < kCount; ++i) {
    const bool isIn = (mask >> i & 1U) != 0;
    beam.left[i] = isIn ? 0 : kLastParameter;
    beam.speed[i] = isIn ? __builtin_fabsf(rays.direction[axis][i]) : 0;
    beam.start[i] = isIn ? beam.sign * rays.origin[axis][i] : -kLastParameter;
    divisor[i] = isIn ? rays.direction[axis][i] : 1;
  }
  for (int i = 0; i < kCount; i += Ops::kLanes) {
    const F left = Ops::load(beam.left + i);
    width = Ops::max(Ops::load(rays.width + i) - left, width);
    first = Ops::min(Ops::load(beam.start + i) + Ops::load(rays.first + i) * Ops::load(beam.speed + i) + left + left,
                     first);
  }
  beam.margin = 3 * mostOf<Ops>(width) + kBeamError;
  for (int side = 0; side < 2; ++side) {
    const int a = beam.other[side];
    F below[2] = {Ops::all(kLastParameter), Ops::all(kLastParameter)},
      above[2] = {Ops::all(-kLastParameter), Ops::all(-kLastParameter)};
    for (int i = 0; i < kCount; i += Ops::kLanes) {
      const F left = Ops::load(beam.left + i), from = Ops::load(rays.origin[axis] + i),
              slope = Ops::load(rays.direction[a] + i) / Ops::load(divisor + i);
      for (int end = 0; end < 2; ++end) {
        const F at = Ops::load(rays.origin[a] + i) + (Ops::all(end == 0 ? -1.0F : 1.0F) - from) * slope;
        below[end] = Ops::min(at + left, below[end]);
        above[end] = Ops::max(at - left, above[end]);
      }
    }
    const float low[2] = {leastOf<Ops>(below[0]), leastOf<Ops>(below[1])},
                high[2] = {mostOf<Ops>(above[0]), mostOf<Ops>(above[1])};
    const float apart[2] = {high[0] - low[0], high[1] - low[1]};
    beam.spread[side] = apart[0] > apart[1] ? apart[0] : apart[1];
    beam.least[side][0] = 0.5F * (low[0] + low[1]) - beam.margin;
    beam.least[side][1] = 0.5F * (low[1] - low[0]);
    beam.most[side][0] = 0.5F * (high[0] + high[1]) + beam.margin;
    beam.most[side][1] = 0.5F * (high[1] - high[0]);
  }
  const float start = leastOf<Ops>(first);
  beam.first = start - beam.margin - kBeamError * __builtin_fabsf(start);
  endBeam<Ops>(rays, beam);
}

/// Whether rays do better together: what they meet of boxes of a size is not much more than one by one.
inline __attribute__((always_inline)) bool isNarrow(const Beam& beam, float size, unsigned mask) {
  constexpr float kMostPerRay = 2;
  const float across[2] = {beam.spread[0] / size + 1, beam.spread[1] / size + 1};
  return across[0] * across[1] <= kMostPerRay * static_cast<float>(__builtin_popcount(mask));
}

/// The children whose boxes a beam meets, as bits.
/// @param near  receives where they begin, along the beam
template <class Ops>
inline __attribute__((always_inline)) unsigned meetBeam(const TriangleBvh::Node& node, const Beam& beam, float* near) {
  using F = typename Ops::Floats;
  unsigned met = 0;
  for (int first = 0; first < TriangleBvh::kWidth; first += Ops::kLanes) {
    const F low = Ops::load(node.bounds[beam.axis] + first), high = Ops::load(node.bounds[3 + beam.axis] + first);
    const F zero = Ops::all(0.0F);
    const F begin = beam.sign < 0 ? zero - high : low, end = beam.sign < 0 ? zero - low : high;
    Ops::store(near + first, begin);
    unsigned in = Ops::lessEqual(begin, Ops::all(beam.last)) & Ops::lessEqual(Ops::all(beam.first), end);
    for (int side = 0; side < 2; ++side) {
      const int a = beam.other[side];
      const F least =
          Ops::all(beam.least[side][0]) + Ops::all(beam.least[side][1]) * (beam.least[side][1] < 0 ? high : low);
      const F most =
          Ops::all(beam.most[side][0]) + Ops::all(beam.most[side][1]) * (beam.most[side][1] < 0 ? low : high);
      in &= Ops::lessEqual(least, Ops::load(node.bounds[3 + a] + first)) &
            Ops::lessEqual(Ops::load(node.bounds[a] + first), most);
    }
    met |= in << first;
  }
  return met;
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
  for (int i = 0; i < kCount; ++i) {
    const double ox = bundle.origin[0][i] - target.translation.x, oy = bundle.origin[1][i] - target.translation.y,
                 oz = bundle.origin[2][i] - target.translation.z;
    const double dx = bundle.direction[0][i], dy = bundle.direction[1][i], dz = bundle.direction[2][i];
    for (int a = 0; a < 3; ++a) {
      const Vec3& row = target.inverse[a];
      origin[a][i] = row.x * ox + row.y * oy + row.z * oz;
      direction[a][i] = row.x * dx + row.y * dy + row.z * dz;
    }
  }
  const double center[3] = {target.unitCenter.x, target.unitCenter.y, target.unitCenter.z};
  UnitRays<kCount> rays;
  toUnit<FourLanes<Ops>, kCount>(origin, direction, bundle.best, center, target.unitScale, errorOf(target), rays);
  unsigned away = 0, odd = 0;
  for (int i = 0; i < kCount; ++i) {
    away |= static_cast<unsigned>(rays.isAway(i)) << i;
    odd |= static_cast<unsigned>(rays.isOdd(i)) << i;
  }
  mask &= ~(away & ~odd);
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
  unsigned mask = bundle.rays, away = 0, odd = 0;
  for (int i = 0; i < kCount; ++i) {
    away |= static_cast<unsigned>(rays.isAway(i)) << i;
    odd |= static_cast<unsigned>(rays.isOdd(i)) << i;
  }
  mask &= ~(away & ~odd);
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
