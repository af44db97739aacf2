#pragma once

#include <cstdint>

#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/RayTransform.h>
#include <facetbox/triangles/TriangleBvh.h>
#include <facetbox/triangles/UnitRay.h>

// The traversal of a bounding volume hierarchy by a ray. The kernel is written once, over a set of vector operations,
// and compiled once per instruction set. Nothing in here may call an inline function of a library: the linker would be
// free to keep the copy that an older processor cannot run.

namespace util {

/// The ray and the matrix as the plain loop sees them, and the nearest hit so far.
struct ExactSearch {
  const double* matrix;
  const double* origin;
  const double* direction;
  double best;             ///< nearest parameter; at the start the bound that a hit must stay below
  std::uint32_t triangle;  ///< that it belongs to; 0 while there is none
  Vec3 edge1, edge2;       ///< of that triangle, placed by the matrix
};

/// The test of the plain loop on one triangle whose corners have been transformed. A hit at the nearest parameter so
/// far counts where its triangle is the earlier one: the loop would have met it first.
/// @param vectors  from the first corner to the second, to the third and to the ray's origin, four places for each
void testPlaced(const double vectors[12], std::uint32_t triangle, ExactSearch& search);

/// Finds the nearest hit.
/// @return whether it could: else the ray is one for the plain loop, and `search` is untouched
using RayTraversal = bool(const TriangleBvh::View&, const RayTransform&, ExactSearch&);

/// For processors with AVX2 and fused multiply-add, and for any.
RayTraversal traverseAvx2;
RayTraversal traverseBase;

/// Of the lanes from `first` on, as many as the operations take at once, those whose triangles the ray may hit, as
/// bits: the test of Moeller and Trumbore without its division, in floats, each comparison loosened by the tolerance.
/// With `grazingRay`, each triangle has a tolerance by its own reach, and those whose determinant may be grazing stay.
template <class Ops>
inline __attribute__((always_inline)) unsigned filterLanes(const TriangleBvh::Block& block, int first,
                                                           const typename Ops::Floats* origin,
                                                           const typename Ops::Floats* direction,
                                                           float tolerancePerReach, const UnitRay* grazingRay) {
  using F = typename Ops::Floats;
  const F e1x = Ops::load(block.edge1[0] + first), e1y = Ops::load(block.edge1[1] + first),
          e1z = Ops::load(block.edge1[2] + first);
  const F e2x = Ops::load(block.edge2[0] + first), e2y = Ops::load(block.edge2[1] + first),
          e2z = Ops::load(block.edge2[2] + first);
  const F sx = origin[0] - Ops::load(block.corner[0] + first), sy = origin[1] - Ops::load(block.corner[1] + first),
          sz = origin[2] - Ops::load(block.corner[2] + first);
  const F px = direction[1] * e2z - direction[2] * e2y, py = direction[2] * e2x - direction[0] * e2z,
          pz = direction[0] * e2y - direction[1] * e2x;
  const F qx = sy * e1z - sz * e1y, qy = sz * e1x - sx * e1z, qz = sx * e1y - sy * e1x;
  const F det = e1x * px + e1y * py + e1z * pz;
  const F sign = Ops::signOf(det);
  const F u = Ops::flip(sx * px + sy * py + sz * pz, sign);
  const F v = Ops::flip(direction[0] * qx + direction[1] * qy + direction[2] * qz, sign);
  const F size = Ops::flip(det, sign);
  const F reach = Ops::load(block.reach + first);
  F perReach = Ops::all(tolerancePerReach);
  if (grazingRay != nullptr) perReach = perReach + Ops::all(grazingRay->tolerancePerReach) * reach;
  const F tolerance = perReach * reach;
  const F least = Ops::min(Ops::min(u, v), size + tolerance - u - v);
  const unsigned lanes = Ops::lessEqual(Ops::all(0.0F) - tolerance, least) | Ops::lessEqual(size, tolerance);
  if (grazingRay == nullptr) return lanes;
  const F grazing = Ops::all(grazingRay->grazing) + Ops::all(grazingRay->grazingPerReach) * reach;
  return (lanes | Ops::lessEqual(size, tolerance + grazing)) & Ops::lessEqual(Ops::all(0.0F), reach);
}

/// Transforms a corner as transformPoint() does, x, y and z at once.
template <class Ops>
inline __attribute__((always_inline)) typename Ops::Doubles placed(const double* m, const double* p) {
  return Ops::load(m) * Ops::all(p[0]) + Ops::load(m + 4) * Ops::all(p[1]) + Ops::load(m + 8) * Ops::all(p[2]) +
         Ops::load(m + 12);
}

/// Tests a triangle as the plain loop does.
template <class Ops>
inline __attribute__((always_inline)) void testExact(const TriangleBvh::Exact& exact, ExactSearch& search) {
  const typename Ops::Doubles p0 = placed<Ops>(search.matrix, exact.corner);
  alignas(32) double vectors[12];
  Ops::store(vectors, placed<Ops>(search.matrix, exact.corner + 3) - p0);
  Ops::store(vectors + 4, placed<Ops>(search.matrix, exact.corner + 6) - p0);
  Ops::store(vectors + 8, Ops::three(search.origin) - p0);
  testPlaced(vectors, exact.triangle, search);
}

/// Asks for the start of what a reference names, before it is needed.
inline __attribute__((always_inline)) void prefetch(const TriangleBvh::View& view, TriangleBvh::Reference reference) {
  const auto* start = reinterpret_cast<const char*>(view.arena + (reference & ~TriangleBvh::kLeaf));
  for (int line = 0; line < 256; line += 64) __builtin_prefetch(start + line);
}

/// Asks for a block's exact triangles while the filter runs: one of them will be wanted at once.
inline __attribute__((always_inline)) void prefetchExact(const TriangleBvh::Block& block) {
  const auto* start = reinterpret_cast<const char*>(&block + 1);
  for (int line = 0; line < 640; line += 64) __builtin_prefetch(start + line);
}

/// Children of a node, as bits.
struct Children {
  unsigned met;     ///< by the ray, their boxes widened as their own edges ask for
  unsigned grazed;  ///< those that may hold grazed triangles which the ray hits far from where they are
};

/// The children from `first` on that a ray with an eye on grazed triangles has to enter.
/// @param at  receives where the ray meets their boxes
template <class Ops>
inline __attribute__((always_inline)) Children meetGrazing(const TriangleBvh::View& view, const TriangleBvh::Node& node,
                                                           int first, const UnitRay& ray, float* at) {
  using F = typename Ops::Floats;
  const float(&normals)[6][TriangleBvh::kWidth] = view.normals[node.number].bounds;
  const F reach = Ops::load(view.normals[node.number].reach + first);
  const F edge = reach * Ops::all(ray.edgePerReach) + Ops::all(ray.edgeError);
  const F edgeSq = edge * edge;
  const F eta = edgeSq * Ops::all(ray.etaPerEdgeSq);
  // Without a bound for these, boxes so wide that every ray meets them.
  const F unbounded =
      Ops::greaterOrNothing(edgeSq * Ops::all(ray.errorPerEdgeSq),
                            Ops::all(static_cast<float>(kErrorShare * kSmallestDeterminant)), Ops::all(ray.farWidth));
  F near = Ops::all(ray.first), far = Ops::all(ray.last);
  F wideNear = Ops::all(-kLastParameter), wideFar = Ops::all(kLastParameter), low = Ops::all(0.0F), high = low,
    size = low;
  for (int a = 0; a < 3; ++a) {
    const F inverse = Ops::all(ray.inverse[a]), direction = Ops::all(ray.direction[a]);
    const int nearPlane = ray.inverse[a] < 0 ? 3 + a : a, farPlane = 3 + 2 * a - nearPlane;
    const F nearest =
        Ops::multiplySubtract(Ops::load(node.bounds[nearPlane] + first), inverse, Ops::all(ray.nearOffset[a]));
    const F farthest =
        Ops::multiplySubtract(Ops::load(node.bounds[farPlane] + first), inverse, Ops::all(ray.farOffset[a]));
    const F outward = reach * Ops::all(ray.outwardPerReach[a]);
    near = Ops::max(near, nearest - outward);
    far = Ops::min(far, farthest + outward);
    const F wide =
        (eta * Ops::all(ray.rowSums[a]) + unbounded) * Ops::all(ray.inverse[a] < 0 ? -ray.inverse[a] : ray.inverse[a]);
    wideNear = Ops::max(wideNear, nearest - wide);
    wideFar = Ops::min(wideFar, farthest + wide);
    const F least = Ops::load(normals[a] + first), most = Ops::load(normals[3 + a] + first);
    low = low + Ops::min(least * direction, most * direction);
    high = high + Ops::max(least * direction, most * direction);
    size = size + Ops::max(Ops::all(0.0F) - least, most);
  }
  Ops::store(at + first, near);
  const F slack = size * Ops::all(ray.normalError) + (Ops::all(ray.grazing) + reach * Ops::all(ray.grazingPerReach));
  return {Ops::lessEqual(near, far), Ops::lessEqual(wideNear, wideFar) & Ops::lessEqual(low, slack) &
                                         Ops::lessEqual(Ops::all(0.0F) - slack, high)};
}

/// The slab test of a ray with the eight boxes of a node: each axis bounds the parameters between its near and its far
/// plane; a box is met where these intervals overlap.
template <class Ops>
struct SlabTest {
  using F = typename Ops::Floats;

  int near[3], far[3];  ///< rows of a node's bounds
  F inverse[3], nearOffset[3], farOffset[3];

  explicit __attribute__((always_inline)) SlabTest(const UnitRay& ray) {
    for (int a = 0; a < 3; ++a) {
      near[a] = ray.inverse[a] < 0 ? 3 + a : a;
      far[a] = 3 + 2 * a - near[a];
      inverse[a] = Ops::all(ray.inverse[a]);
      nearOffset[a] = Ops::all(ray.nearOffset[a]);
      farOffset[a] = Ops::all(ray.farOffset[a]);
    }
  }

  /// The children from `first` on that the ray meets between its first and its last parameter, as bits.
  /// @param at  receives where
  __attribute__((always_inline)) unsigned meet(const TriangleBvh::Node& node, int first, const UnitRay& ray,
                                               float* at) const {
    const auto onNear = [&](int a) __attribute__((always_inline)) {
      return Ops::multiplySubtract(Ops::load(node.bounds[near[a]] + first), inverse[a], nearOffset[a]);
    };
    const auto onFar = [&](int a) __attribute__((always_inline)) {
      return Ops::multiplySubtract(Ops::load(node.bounds[far[a]] + first), inverse[a], farOffset[a]);
    };
    const F enter = Ops::max(Ops::max(Ops::all(ray.first), onNear(0)), Ops::max(onNear(1), onNear(2)));
    const F leave = Ops::min(Ops::min(Ops::all(ray.last), onFar(0)), Ops::min(onFar(1), onFar(2)));
    Ops::store(at + first, enter);
    return Ops::lessEqual(enter, leave) << first;
  }
};

/// The subtrees that a traversal has put off, with where the ray meets their boxes.
struct WaitingSubtrees {
  struct Subtree {
    TriangleBvh::Reference reference;
    float near;
  };
  Subtree stack[TriangleBvh::kStackSize];
  int depth;  // not initialized here: that would make an inline constructor

  /// Takes the last one that begins before `last`.
  __attribute__((always_inline)) bool takeNext(float last, TriangleBvh::Reference& reference) {
    do {
      if (depth == 0) return false;
      --depth;
    } while (stack[depth].near > last);
    reference = stack[depth].reference;
    return true;
  }
};

/// The nearest of some children; the others are put off, in no particular order.
/// @param met  as bits; at least one
/// @param at   where the ray meets the children's boxes
inline __attribute__((always_inline)) TriangleBvh::Reference nearestChild(const TriangleBvh::View& view,
                                                                          const TriangleBvh::Node& node, unsigned met,
                                                                          const float* at, WaitingSubtrees& waiting) {
  const int a = __builtin_ctz(met);
  met &= met - 1;
  TriangleBvh::Reference reference = node.child[a];
  float nearest = at[a];
  while (met != 0) {
    const int c = __builtin_ctz(met);
    met &= met - 1;
    const TriangleBvh::Reference other = node.child[c];
    const float distance = at[c];
    const bool isNearer = distance < nearest;
    WaitingSubtrees::Subtree& later = waiting.stack[waiting.depth];
    later.reference = isNearer ? reference : other;
    later.near = isNearer ? nearest : distance;
    reference = isNearer ? other : reference;
    nearest = isNearer ? distance : nearest;
    if (view.isLarge) prefetch(view, later.reference);
    ++waiting.depth;
  }
  return reference;
}

/// Tests the triangles of a block that the filter leaves.
/// @tparam Search  what testExact() takes; `best` bounds the parameter, and shrinks
template <class Ops, bool kGrazing, class Search>
inline __attribute__((always_inline)) void testBlock(const TriangleBvh::View& view, const TriangleBvh::Block& block,
                                                     const ParameterMap& limits, UnitRay& ray, Search& exact) {
  using F = typename Ops::Floats;
  const F origin[3] = {Ops::all(ray.origin[0]), Ops::all(ray.origin[1]), Ops::all(ray.origin[2])};
  const F direction[3] = {Ops::all(ray.direction[0]), Ops::all(ray.direction[1]), Ops::all(ray.direction[2])};
  if (view.isLarge) prefetchExact(block);
  unsigned hits = 0;
  for (int first = 0; first < TriangleBvh::kWidth; first += Ops::kLanes)
    hits |= filterLanes<Ops>(block, first, origin, direction, ray.tolerance, kGrazing ? &ray : nullptr) << first;
  if (hits == 0) return;
  const double before = exact.best;
  do {
    testExact<Ops>(TriangleBvh::View::exact(block)[__builtin_ctz(hits)], exact);
    hits &= hits - 1;
  } while (hits != 0);
  if (!(exact.best < before)) return;
  const float limit = limits.limit(exact.best);
  if (limit < ray.last) ray.last = limit;
}

/// The children of a node that the ray has to enter, as bits.
/// @param at  receives where the ray meets their boxes
template <class Ops, bool kGrazing>
inline __attribute__((always_inline)) unsigned childrenToEnter(const TriangleBvh::View& view,
                                                               const TriangleBvh::Node& node,
                                                               const SlabTest<Ops>& slabs, const UnitRay& ray,
                                                               float* at) {
  unsigned met = 0, grazed = 0;
  for (int first = 0; first < TriangleBvh::kWidth; first += Ops::kLanes) {
    if (!kGrazing) {
      met |= slabs.meet(node, first, ray, at);
      continue;
    }
    const Children children = meetGrazing<Ops>(view, node, first, ray, at);
    met |= children.met << first;
    grazed |= children.grazed << first;
  }
  if (kGrazing) {
    // Whatever lies nearer says nothing about grazed triangles.
    for (unsigned i = 0; i < TriangleBvh::kWidth; ++i)
      if ((grazed >> i & 1) != 0) at[i] = ray.first;
  }
  return met | grazed;
}

/// Finds the nearest hit among the triangles that the filters leave between the ray's first and its last parameter:
/// depth first, near boxes first.
template <class Ops, bool kGrazing, class Search>
inline __attribute__((always_inline)) void search(const TriangleBvh::View& view, UnitRay ray,
                                                  const ParameterMap& limits, Search& exact) {
  const SlabTest<Ops> slabs(ray);
  WaitingSubtrees waiting;
  waiting.depth = 0;
  TriangleBvh::Reference reference = view.root;
  for (;;) {
    bool isBlock = true;
    while ((reference & TriangleBvh::kLeaf) == 0) {
      const TriangleBvh::Node& node = view.node(reference);
      alignas(32) float at[TriangleBvh::kWidth];
      const unsigned met = childrenToEnter<Ops, kGrazing>(view, node, slabs, ray, at);
      if (met == 0) {
        isBlock = false;
        break;
      }
      reference = nearestChild(view, node, met, at, waiting);
    }
    if (isBlock) testBlock<Ops, kGrazing>(view, view.block(reference), limits, ray, exact);
    if (!waiting.takeNext(ray.last, reference)) return;
  }
}

template <class Ops>
inline __attribute__((always_inline)) bool traverse(const TriangleBvh::View& view, const RayTransform& transform,
                                                    ExactSearch& exact) {
  UnitRay ray;
  ParameterMap limits{};
  const RayPlan plan = prepare<Ops>(transform, exact.origin, exact.direction, ray, limits);
  if (plan == RayPlan::traverse) search<Ops, false>(view, ray, limits, exact);
  if (plan == RayPlan::traverseGrazing) search<Ops, true>(view, ray, limits, exact);
  return plan != RayPlan::usePlainLoop;
}

}  // namespace util
