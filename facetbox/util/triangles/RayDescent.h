#pragma once

#include <cstdint>

#include <facetbox/util/math/Vec3.h>
#include <facetbox/util/triangles/TriangleHierarchy.h>

// The descent of a ray through a hierarchy. The kernel is written once, over a set of vector operations, and compiled
// once per instruction set; nothing in here may call an inline function of a library, since the linker would be free to
// keep the copy that an older processor cannot run.

namespace util {

/// A ray in the unit coordinates of a hierarchy, its parameter shifted and scaled so that the largest coordinate of the
/// direction is 1. It serves to pass over boxes and triangles only; RayTest.cpp derives the margins.
struct UnitRay {
  float origin[3];
  float direction[3];
  float tolerance;      ///< of the triangle filter, per unit of a triangle's reach
  float nearOrigin[3];  ///< origin moved so that the near planes of all boxes lie nearer by the margin
  float farOrigin[3];   ///< and so that the far planes lie farther
  float inverse[3];     ///< 1 / direction; never infinite
  float first;          ///< parameters of interest
  float last;           ///< shrinks with every hit
};

/// Turns a bound of the true parameter into one of the unit ray's: (bound * growth + slack - shift) * scale.
struct ParameterMap {
  double growth, slack, shift, scale;

  /// A bound above every parameter of the unit ray at which a hit up to `best` can lie.
  float limit(double best) const {
    const double reach = best * growth + slack;
    const double value = (reach - shift) * scale;
    const double magnitude = (reach < 0 ? -reach : reach) + (shift < 0 ? -shift : shift);
    const double limit = value + (value < 0 ? -value : value) * 0x1p-22 + magnitude * scale * 0x1p-50;
    return limit < 3e38 ? static_cast<float>(limit) : 3e38F;
  }
};

/// The ray and the matrix as the plain loop sees them, and the nearest hit so far.
struct ExactSearch {
  const double* matrix;
  const double* origin;
  const double* direction;
  double best;             ///< nearest parameter; at the start the bound that a hit must stay below
  std::uint32_t triangle;  ///< that it belongs to; 0 while there is none
  Vec3 edge1, edge2;       ///< of that triangle, placed by the matrix
};

/// The test of the plain loop on one triangle. A hit at the nearest parameter so far counts where its triangle is the
/// earlier one: the loop would have met it first.
void testExact(const TriangleHierarchy::Exact& exact, ExactSearch& search);

using RayDescent = void(const TriangleHierarchy::View&, UnitRay, const ParameterMap&, ExactSearch&);

/// For processors with AVX2 and fused multiply-add, and for any.
RayDescent descendAvx2;
RayDescent descendBase;

/// The lanes whose triangles the ray may hit, as bits: the test of Moeller and Trumbore without its division, in
/// floats, each comparison loosened by the tolerance.
template <class Ops>
inline __attribute__((always_inline)) unsigned filterBlock(const TriangleHierarchy::Block& block,
                                                           const typename Ops::Floats* origin,
                                                           const typename Ops::Floats* direction,
                                                           typename Ops::Floats tolerancePerReach) {
  using F = typename Ops::Floats;
  const F e1x = Ops::load(block.edge1[0]), e1y = Ops::load(block.edge1[1]), e1z = Ops::load(block.edge1[2]);
  const F e2x = Ops::load(block.edge2[0]), e2y = Ops::load(block.edge2[1]), e2z = Ops::load(block.edge2[2]);
  const F sx = origin[0] - Ops::load(block.corner[0]), sy = origin[1] - Ops::load(block.corner[1]),
          sz = origin[2] - Ops::load(block.corner[2]);
  const F px = direction[1] * e2z - direction[2] * e2y, py = direction[2] * e2x - direction[0] * e2z,
          pz = direction[0] * e2y - direction[1] * e2x;
  const F qx = sy * e1z - sz * e1y, qy = sz * e1x - sx * e1z, qz = sx * e1y - sy * e1x;
  const F det = e1x * px + e1y * py + e1z * pz;
  const F sign = Ops::signOf(det);
  const F u = Ops::flip(sx * px + sy * py + sz * pz, sign);
  const F v = Ops::flip(direction[0] * qx + direction[1] * qy + direction[2] * qz, sign);
  const F size = Ops::flip(det, sign);
  const F tolerance = tolerancePerReach * Ops::load(block.reach);
  const F least = Ops::min(Ops::min(u, v), size + tolerance - u - v) + tolerance;
  return Ops::lessEqual(Ops::all(0.0F), least) | Ops::lessEqual(size, tolerance);
}

/// Tests every triangle that the filters leave between the ray's first and its last parameter, near boxes first.
template <class Ops>
inline __attribute__((always_inline)) void descend(const TriangleHierarchy::View& view, UnitRay ray,
                                                   const ParameterMap& map, ExactSearch& search) {
  using F = typename Ops::Floats;
  struct Entry {
    TriangleHierarchy::Reference reference;
    float near;
  };
  constexpr int kStack = (TriangleHierarchy::kWidth - 1) * TriangleHierarchy::kMaxDepth + TriangleHierarchy::kWidth;
  constexpr TriangleHierarchy::Reference kNothing = ~0U;
  Entry stack[kStack];
  int depth = 0;

  const int nearX = ray.inverse[0] < 0 ? 3 : 0, nearY = ray.inverse[1] < 0 ? 4 : 1, nearZ = ray.inverse[2] < 0 ? 5 : 2;
  const int farX = 3 - nearX, farY = 5 - nearY, farZ = 7 - nearZ;
  const F inverseX = Ops::all(ray.inverse[0]), inverseY = Ops::all(ray.inverse[1]), inverseZ = Ops::all(ray.inverse[2]);
  const F nearX0 = Ops::all(ray.nearOrigin[0] * ray.inverse[0]), nearY0 = Ops::all(ray.nearOrigin[1] * ray.inverse[1]),
          nearZ0 = Ops::all(ray.nearOrigin[2] * ray.inverse[2]);
  const F farX0 = Ops::all(ray.farOrigin[0] * ray.inverse[0]), farY0 = Ops::all(ray.farOrigin[1] * ray.inverse[1]),
          farZ0 = Ops::all(ray.farOrigin[2] * ray.inverse[2]);

  TriangleHierarchy::Reference reference = view.root;
  for (;;) {
    while ((reference & TriangleHierarchy::kLeaf) == 0) {
      const TriangleHierarchy::Node& node = view.node(reference);
      const F near = Ops::max(
          Ops::max(Ops::all(ray.first), Ops::multiplySubtract(Ops::load(node.bounds[nearX]), inverseX, nearX0)),
          Ops::max(Ops::multiplySubtract(Ops::load(node.bounds[nearY]), inverseY, nearY0),
                   Ops::multiplySubtract(Ops::load(node.bounds[nearZ]), inverseZ, nearZ0)));
      const F far =
          Ops::min(Ops::min(Ops::all(ray.last), Ops::multiplySubtract(Ops::load(node.bounds[farX]), inverseX, farX0)),
                   Ops::min(Ops::multiplySubtract(Ops::load(node.bounds[farY]), inverseY, farY0),
                            Ops::multiplySubtract(Ops::load(node.bounds[farZ]), inverseZ, farZ0)));
      unsigned met = Ops::lessEqual(near, far);
      if (met == 0) {
        reference = kNothing;
        break;
      }
      const int a = __builtin_ctz(met);
      met &= met - 1;
      reference = node.child[a];
      if (met == 0) continue;
      // Go on with the nearest child, the others wait. Which is nearest cannot be foretold: no branch on it.
      alignas(32) float at[TriangleHierarchy::kWidth];
      Ops::store(at, near);
      float nearest = at[a];
      do {
        const int c = __builtin_ctz(met);
        met &= met - 1;
        const TriangleHierarchy::Reference other = node.child[c];
        const float distance = at[c];
        const bool isNearer = distance < nearest;
        stack[depth].reference = isNearer ? reference : other;
        stack[depth].near = isNearer ? nearest : distance;
        reference = isNearer ? other : reference;
        nearest = isNearer ? distance : nearest;
        ++depth;
      } while (met != 0);
    }
    if (reference != kNothing) {
      const TriangleHierarchy::Block& block = view.block(reference);
      const F origin[3] = {Ops::all(ray.origin[0]), Ops::all(ray.origin[1]), Ops::all(ray.origin[2])};
      const F direction[3] = {Ops::all(ray.direction[0]), Ops::all(ray.direction[1]), Ops::all(ray.direction[2])};
      unsigned hits = filterBlock<Ops>(block, origin, direction, Ops::all(ray.tolerance));
      if (hits != 0) {
        const double before = search.best;
        do {
          testExact(TriangleHierarchy::View::exact(block)[__builtin_ctz(hits)], search);
          hits &= hits - 1;
        } while (hits != 0);
        if (search.best < before) {
          const float limit = map.limit(search.best);
          if (limit < ray.last) ray.last = limit;
        }
      }
    }
    do {
      if (depth == 0) return;
      --depth;
    } while (stack[depth].near > ray.last);
    reference = stack[depth].reference;
  }
}

}  // namespace util
