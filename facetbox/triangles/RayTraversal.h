#pragma once

#include <cstdint>

#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/RayTest.h>
#include <facetbox/triangles/TriangleBvh.h>

// The traversal of a ray through a hierarchy. The kernel is written once, over a set of vector operations, and compiled
// once per instruction set; nothing in here may call an inline function of a library, since the linker would be free to
// keep the copy that an older processor cannot run.

// How far the boxes have to be widened so that no triangle that the plain loop accepts is passed over.
//
// Operations round to nearest; floats too small for their format (1e-38), which a host may have flushed to zero, vanish
// in the margins of 2^-24. Let u = 2^-53, |.| the largest absolute component, A and T the matrix's linear part and
// translation, a a bound of A's row sums of absolute values, L the largest coordinate of the mesh, D = |direction|.
//
// In the world. A corner P computed from x = A v + T is off by at most rho = 5u (a L + |T|) in each coordinate. With
// the computed edges e1, e2 (at most E) and s = origin - P0 (at most S), every triple product of the test has a
// rounding error of at most 32u times the product of its three bounds: 2 roundings in each component of the cross
// product and 3 in the sum, over 6 products. So the numerators of u and v are off by N = 32u S D E, that of t by M =
// 32u S E E, the determinant by Q = 32u E E D. The test only accepts |det| >= 1e-5. Where |det| >= tau and Q <= tau /
// 4, the true determinant is at least three quarters of the computed one, and the true (u, v) of the ray and the
// computed triangle lies within delta = (N + Q) / 0.75 tau + 4u of accepted ones, the true parameter t' of an accepted
// t within (M + t Q) / 0.75 tau + 4u t. Hence the point origin + t' direction lies within eta = 2 delta E + rho + u S +
// 6u E of the transformed triangle, in each coordinate.
//
// Mostly tau = 1e-5 will do. Where coordinates or the direction are long, N and Q grow into it: a triangle that the ray
// just grazes may then be hit far from where it is. So tau is raised to 2^13 E D (32u (S + E) + 24 rho), where delta is
// small, which leaves the triangles of 1e-5 <= |det| < tau. Up to 24 rho E D, det is det A (e1 x e2) . (A^-1 direction)
// in the mesh's own coordinates, and a box around the cross products of a subtree tells whether it may hold one that
// small; such a subtree is entered too, unless tau = 1e-5 makes for boxes that the ray misses.
//
// All of this holds for any part of the triangles, with an E of its own: E bounds the edges of those that are asked
// about, and S need not shrink. Each subtree is therefore put to the longest edge in it. With the raised tau, 2 delta E
// is 64u S E / (0.75 2^13 (32u (S + E) + 24 rho)) and some u E, so that this part of eta, like tau, is in proportion to
// E: one large triangle widens the boxes that it is in, and no others. What t is off by, (M + t Q) / 0.75 tau, grows
// with E too: the bounds of the parameter are those of the longest edge of all.
//
// In the mesh's space. With any matrix B, the map w -> B (w - T) takes that point to within b_i eta + r 3 L of the
// triangle, where b_i is B's row sum and r bounds the components of B A - 1. For B from cofactors, r <= 64u kappa with
// kappa = (largest |A_ij|)^3 / |det A|. The computed image of the origin is off by at most 6u (b_i (|o| + |T|) + L),
// that of the direction by 4u b_i D per unit of the parameter; the parameter of a point in the mesh is at most
// (|o'| + 2 h) / |d'|, with h the half size of the mesh.
//
// In floats. The mesh is scaled to coordinates of at most 1, the largest coordinate of the direction is scaled to 1,
// and the origin is moved along the ray to the point n next to the mesh's center, which keeps far origins from costing
// digits. Let e = 2^-24 and w the widening so far. The plane distances plane * (1 / d) - n * (1 / d) are off by less
// than 6e (1 + |n| + w), as positions, and replacing tiny direction components by 2^-22 moves the ray by 4e of the
// same. A ray that comes within w of the mesh passes the center at a distance of at most sqrt(3) (1 + w); n, which is
// off by at most 21u |o'| in each coordinate, then has absolute coordinates that sum up to less than 3 + 10 w. Without
// grazed triangles other rays hit nothing, and 5 + 13 w stands for 1 + |n| + w.
//
// The filter of the triangles computes the numerators and the determinant once more in floats. A point n + t d that
// lies within w of the triangle's point (alpha, beta) has the numerators alpha det and beta det up to 6 w reach, where
// reach bounds the edges; the rounding of all data and operations adds less than 160e (1 + |n| + w) reach. Where |det|
// is smaller than this sum, its sign says nothing, and the triangle stays.

namespace util {

inline constexpr double kUnit = 0x1p-53;
inline constexpr double kFloatUnit = 0x1p-24;
/// A hit lies nearer than the largest float.
inline constexpr double kFarthest = 3.4028234663852886e38;
/// Determinants strictly between -kSmallestDeterminant and kSmallestDeterminant mean a parallel ray.
inline constexpr double kSmallestDeterminant = 1e-5;
/// Magnitudes up to this can be multiplied four at a time without overflow.
inline constexpr double kLargestMagnitude = 1e70;

/// A vector of three; the fourth place has no meaning.
typedef float Float4 __attribute__((vector_size(16)));

/// A ray in the unit coordinates of a hierarchy, its parameter shifted and scaled so that the largest coordinate of the
/// direction is 1. It serves to pass over boxes and triangles only; the margins are derived above.
struct UnitRay {
  Float4 origin;
  Float4 direction;
  Float4 inverse;     ///< 1 / direction; never infinite
  Float4 nearOffset;  ///< plane * inverse - nearOffset is where the ray meets a near plane moved nearer by the margin
  Float4 farOffset;   ///< and so for a far plane moved farther
  float tolerance;    ///< of the triangle filter, per unit of a triangle's reach
  float first;        ///< parameters of interest
  float last;         ///< shrinks with every hit

  // For traversals with grazing only, see above: what grows with the reach of a subtree's or a lane's triangles.
  Float4 outwardPerReach;   ///< by which planes are moved beyond their offsets, as parameters
  float tolerancePerReach;  ///< of the triangle filter, added to its tolerance
  float edgePerReach;       ///< the edges' size in the world from the reach: times this,
  float edgeError;          ///< plus this
  float grazing;            ///< determinants up to this, in unit coordinates, need the wide boxes:
  float grazingPerReach;    ///< plus this times the reach
  float normalError;        ///< of such a determinant, per unit of the sum of the cross product's coordinates
  // The wide boxes.
  Float4 rowSums;        ///< boxes are wider by this times eta
  float errorPerEdgeSq;  ///< Q from the edges' size
  float etaPerEdgeSq;    ///< eta from it
  float farWidth;        ///< a width with which every ray meets every box
};

/// No parameter of the unit ray that matters lies beyond.
inline constexpr float kLastParameter = 3e38F;

/// A float above a parameter of the unit ray.
inline __attribute__((always_inline)) float above(double parameter) {
  const double bound = parameter + __builtin_fabs(parameter) * 0x1p-22;
  return bound < static_cast<double>(kLastParameter) ? static_cast<float>(bound) : kLastParameter;
}

/// Turns a bound of the true parameter into one of the unit ray's: bound * scale + offset.
struct ParameterMap {
  double scale, offset;

  /// A bound above every parameter of the unit ray at which a hit up to `best` can lie.
  __attribute__((always_inline)) float limit(double best) const { return above(best * scale + offset); }
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

/// What becomes of a ray: it is traversed (with grazing: with an eye on grazed triangles), cannot hit anything, or is
/// one for the plain loop.
enum class RayPlan { traverse, traverseGrazing, noHit, usePlainLoop };

/// Derives the unit ray, with its margins, from the ray of the search.
template <class Ops>
inline __attribute__((always_inline)) RayPlan prepare(const RayTransform& placement, const ExactSearch& search,
                                                      UnitRay& ray, ParameterMap& limits) {
  using V = typename Ops::Doubles;
  /// Boxes may be widened by this much, in unit coordinates, before grazed triangles are treated apart.
  constexpr double kWide = 0x1p-12;
  constexpr double kRaise = 0x1p13;
  const V origin = Ops::three(search.origin), direction = Ops::three(search.direction);
  const double D = Ops::largest(direction), O = Ops::largest(origin), E = placement.edge;
  if (!(D < kLargestMagnitude && O < kLargestMagnitude)) return RayPlan::usePlainLoop;
  const double Q = placement.determinantError * D;
  // No determinant exceeds 6 E E D.
  if (7 * Q < 32 * kUnit * kSmallestDeterminant) return RayPlan::noHit;

  // The ray in unit coordinates, its origin moved next to the center.
  const V x = Ops::load(placement.columns[0]), y = Ops::load(placement.columns[1]), z = Ops::load(placement.columns[2]);
  const V moved = origin - Ops::load(placement.translation);
  const V o = Ops::template lane<0>(moved) * x + Ops::template lane<1>(moved) * y + Ops::template lane<2>(moved) * z -
              Ops::load(placement.center);
  const V d = Ops::template lane<0>(direction) * x + Ops::template lane<1>(direction) * y +
              Ops::template lane<2>(direction) * z;
  const double oSize = Ops::largest(o), dSize = Ops::largest(d);
  // Per unit of a row sum, the error of d.
  const double drift = 4 * kUnit * D;
  if (!(drift * placement.largestRowSum < 0.01 * dSize) || !(dSize > 1e-100 && dSize < 1e100))
    return RayPlan::usePlainLoop;
  const double shift = -Ops::sum(o * d) / Ops::sum(d * d);
  const V n = o + Ops::all(shift) * d;
  const double offCenter = Ops::sum(Ops::absolute(n));

  // What follows is written so that few operations have to wait for each other: every ray takes at least as long as the
  // longest chain of them. Here, reach is S + E.
  const double anywhere = 1.01 * O + placement.worldReach;
  const double here = placement.growth * oSize + (placement.imageError * O + placement.meshReach);
  const double reach = anywhere < here ? anywhere : here;
  double tau = kSmallestDeterminant, perDeterminant = 1 / (0.75 * kSmallestDeterminant), around = 5;
  const bool mayGraze =
      !(Q <= 0.25 * kSmallestDeterminant && 2 * perDeterminant * Q * reach * placement.largestRowSum < kWide);
  if (mayGraze) {
    tau = kRaise * E * D * (32 * kUnit * reach + 24 * placement.cornerError);
    perDeterminant = 1 / (0.75 * tau);
    around += offCenter;
  }
  const double unit = 1 / dSize;
  const double common = placement.commonWidth + 10 * kUnit * oSize;
  // What the longest edge of all has no part in, and the rest.
  const double perRowAtLeast =
      kUnit * reach + (placement.pointError + 6 * kUnit * O + 1.02 * drift * (oSize + 2) * unit);
  const double perRow = 2 * perDeterminant * Q * reach + perRowAtLeast;
  const double widest = common + placement.largestRowSum * perRow;
  // Of 1 + |n| + w.
  const double size = around + 13 * widest;
  // A NaN or an infinity anywhere in the ray ends up in here.
  if (!(size < 1e30 && offCenter < 1e30)) return RayPlan::usePlainLoop;
  if (!mayGraze && offCenter > 4 + 12 * widest) return RayPlan::noHit;

  const V along = d * Ops::all(unit);
  // Here is 10 kFloatUnit * size, but for what grows with perRow: that is part of the row sums.
  const V width = Ops::all((1 + 130 * kFloatUnit) * common + 10 * kFloatUnit * around) +
                  Ops::load(placement.rowSums) * Ops::all(perRow);
  const V outward = Ops::withSignOf(width, d);
  ray.origin = Ops::rounded(n);
  ray.direction = Ops::rounded(along);
  ray.inverse =
      Ops::rounded(Ops::all(dSize) / Ops::withSignOf(Ops::max(Ops::absolute(d), Ops::all(0x1p-22 * dSize)), d));
  ray.nearOffset = Ops::rounded(n + outward) * ray.inverse;
  ray.farOffset = Ops::rounded(n - outward) * ray.inverse;
  ray.tolerance = static_cast<float>(1.001 * (6 * widest + 160 * kFloatUnit * size));
  const double slack = perDeterminant * placement.determinantError * reach;
  // For the rounding of the parameters.
  const double spread = 16 * kUnit * (slack + __builtin_fabs(shift));
  limits.scale = (1 + 1.01 * (perDeterminant * Q + 16 * kUnit)) * dSize;
  limits.offset = (slack + spread - shift) * dSize;
  // The least parameter is, but for its sign, the largest one of the ray in the other direction.
  ray.first = -above((slack + spread + shift) * dSize);
  ray.last = kLastParameter;
  if (!mayGraze) return RayPlan::traverse;

  // Per unit of an edge in the world.
  const double error = 32 * kUnit * reach + 24 * placement.cornerError;
  const double etaPerEdge = 1.02 * 2 * 32 * kUnit * reach / (0.75 * kRaise * error);
  const double edgePerReach = 1.01 * placement.growth, edgeError = 1.02 * 2 * placement.cornerError;
  const double perRowOfAll = perRowAtLeast + etaPerEdge * edgeError;
  // One more rounding than where all of the width is part of the origin.
  const V ownWidth =
      Ops::all(1.2 * (common + 10 * kFloatUnit * size)) + Ops::load(placement.rowSums) * Ops::all(1.2 * perRowOfAll);
  const V ownOutward = Ops::withSignOf(ownWidth, d);
  ray.nearOffset = Ops::rounded(n + ownOutward) * ray.inverse;
  ray.farOffset = Ops::rounded(n - ownOutward) * ray.inverse;
  const double widthPerReach = etaPerEdge * edgePerReach * placement.largestRowSum;
  ray.outwardPerReach = Ops::rounded(Ops::load(placement.rowSums) * Ops::all(etaPerEdge * edgePerReach)) *
                        (ray.inverse < 0 ? -ray.inverse : ray.inverse);
  ray.tolerance =
      static_cast<float>(1.001 * (6 * (common + placement.largestRowSum * perRowOfAll) + 160 * kFloatUnit * size));
  ray.tolerancePerReach = static_cast<float>(1.001 * 6 * widthPerReach);
  const double directionError = 12 * kFloatUnit + placement.imageError + 1.1 * drift * placement.largestRowSum * unit;
  const double toUnit = unit / placement.volume;
  const double grazingPerEdge = 1.02 * (kRaise * error + 24 * placement.cornerError) * D * toUnit;
  if (!(directionError < 0x1p-8) || !(toUnit < 1e30) || !(tau * toUnit < 1e30) || !(widthPerReach < 1e30) ||
      !(grazingPerEdge * edgePerReach < 1e30))
    return RayPlan::usePlainLoop;
  ray.normalError = static_cast<float>(1.01 * directionError);
  ray.grazing = static_cast<float>(grazingPerEdge * edgeError);
  ray.grazingPerReach = static_cast<float>(grazingPerEdge * edgePerReach);
  ray.rowSums = Ops::rounded(Ops::load(placement.rowSums));
  ray.edgePerReach = static_cast<float>(edgePerReach);
  ray.edgeError = static_cast<float>(edgeError);
  ray.errorPerEdgeSq = static_cast<float>(1.02 * 32 * kUnit * D);
  ray.etaPerEdgeSq = static_cast<float>(1.02 * 2 * 32 * kUnit * D * reach / (0.75 * kSmallestDeterminant));
  ray.farWidth = static_cast<float>(4 * size);
  const auto isModest = [](float value) { return value > 1e-30F && value < 1e30F; };
  if (!(E < 1e15 && isModest(ray.edgePerReach) && isModest(ray.errorPerEdgeSq) && isModest(ray.etaPerEdgeSq) &&
        E * E * static_cast<double>(ray.etaPerEdgeSq) < 1e30 && placement.largestRowSum < 1e30))
    return RayPlan::usePlainLoop;
  return RayPlan::traverseGrazing;
}

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

/// The children from `first` on that a traversal with grazing has to enter.
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
                            Ops::all(static_cast<float>(0.25 * kSmallestDeterminant)), Ops::all(ray.farWidth));
  F near = Ops::all(ray.first), far = Ops::all(ray.last);
  F wideNear = Ops::all(-3e38F), wideFar = Ops::all(3e38F), low = Ops::all(0.0F), high = low, size = low;
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

/// Tests every triangle that the filters leave between the ray's first and its last parameter, near boxes first.
template <class Ops, bool kGrazing>
inline __attribute__((always_inline)) void search(const TriangleBvh::View& view, UnitRay ray,
                                                  const ParameterMap& limits, ExactSearch& exact) {
  using F = typename Ops::Floats;
  struct Entry {
    TriangleBvh::Reference reference;
    float near;
  };
  constexpr TriangleBvh::Reference kNothing = ~0U;
  Entry stack[TriangleBvh::kStackSize];
  int depth = 0;

  const int nearX = ray.inverse[0] < 0 ? 3 : 0, nearY = ray.inverse[1] < 0 ? 4 : 1, nearZ = ray.inverse[2] < 0 ? 5 : 2;
  const int farX = 3 - nearX, farY = 5 - nearY, farZ = 7 - nearZ;
  const F inverseX = Ops::all(ray.inverse[0]), inverseY = Ops::all(ray.inverse[1]), inverseZ = Ops::all(ray.inverse[2]);
  const F nearX0 = Ops::all(ray.nearOffset[0]), nearY0 = Ops::all(ray.nearOffset[1]),
          nearZ0 = Ops::all(ray.nearOffset[2]);
  const F farX0 = Ops::all(ray.farOffset[0]), farY0 = Ops::all(ray.farOffset[1]), farZ0 = Ops::all(ray.farOffset[2]);

  TriangleBvh::Reference reference = view.root;
  for (;;) {
    while ((reference & TriangleBvh::kLeaf) == 0) {
      const TriangleBvh::Node& node = view.node(reference);
      alignas(32) float at[TriangleBvh::kWidth];
      unsigned met = 0, grazed = 0;
      for (int first = 0; first < TriangleBvh::kWidth; first += Ops::kLanes) {
        if (kGrazing) {
          const Children children = meetGrazing<Ops>(view, node, first, ray, at);
          met |= children.met << first;
          grazed |= children.grazed << first;
          continue;
        }
        const auto plane = [&](int row) __attribute__((always_inline)) { return Ops::load(node.bounds[row] + first); };
        const F near = Ops::max(Ops::max(Ops::all(ray.first), Ops::multiplySubtract(plane(nearX), inverseX, nearX0)),
                                Ops::max(Ops::multiplySubtract(plane(nearY), inverseY, nearY0),
                                         Ops::multiplySubtract(plane(nearZ), inverseZ, nearZ0)));
        const F far = Ops::min(Ops::min(Ops::all(ray.last), Ops::multiplySubtract(plane(farX), inverseX, farX0)),
                               Ops::min(Ops::multiplySubtract(plane(farY), inverseY, farY0),
                                        Ops::multiplySubtract(plane(farZ), inverseZ, farZ0)));
        Ops::store(at + first, near);
        met |= Ops::lessEqual(near, far) << first;
      }
      met |= grazed;
      if (met == 0) {
        reference = kNothing;
        break;
      }
      const int a = __builtin_ctz(met);
      met &= met - 1;
      reference = node.child[a];
      if (met == 0) continue;
      // Go on with the nearest child, the others wait.
      if (kGrazing) {
        // Whatever lies nearer says nothing about grazed triangles.
        for (unsigned i = 0; i < TriangleBvh::kWidth; ++i)
          if ((grazed >> i & 1) != 0) at[i] = ray.first;
      }
      float nearest = at[a];
      do {
        const int c = __builtin_ctz(met);
        met &= met - 1;
        const TriangleBvh::Reference other = node.child[c];
        const float distance = at[c];
        const bool isNearer = distance < nearest;
        stack[depth].reference = isNearer ? reference : other;
        stack[depth].near = isNearer ? nearest : distance;
        reference = isNearer ? other : reference;
        nearest = isNearer ? distance : nearest;
        if (view.isLarge) prefetch(view, stack[depth].reference);
        ++depth;
      } while (met != 0);
    }
    if (reference != kNothing) {
      const TriangleBvh::Block& block = view.block(reference);
      const F origin[3] = {Ops::all(ray.origin[0]), Ops::all(ray.origin[1]), Ops::all(ray.origin[2])};
      const F direction[3] = {Ops::all(ray.direction[0]), Ops::all(ray.direction[1]), Ops::all(ray.direction[2])};
      if (view.isLarge) prefetchExact(block);
      unsigned hits = 0;
      for (int first = 0; first < TriangleBvh::kWidth; first += Ops::kLanes)
        hits |= filterLanes<Ops>(block, first, origin, direction, ray.tolerance, kGrazing ? &ray : nullptr) << first;
      if (hits != 0) {
        const double before = exact.best;
        do {
          testExact<Ops>(TriangleBvh::View::exact(block)[__builtin_ctz(hits)], exact);
          hits &= hits - 1;
        } while (hits != 0);
        if (exact.best < before) {
          const float limit = limits.limit(exact.best);
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

template <class Ops>
inline __attribute__((always_inline)) bool traverse(const TriangleBvh::View& view, const RayTransform& placement,
                                                    ExactSearch& exact) {
  UnitRay ray;
  ParameterMap limits{};
  const RayPlan plan = prepare<Ops>(placement, exact, ray, limits);
  if (plan == RayPlan::traverse) search<Ops, false>(view, ray, limits, exact);
  if (plan == RayPlan::traverseGrazing) search<Ops, true>(view, ray, limits, exact);
  return plan != RayPlan::usePlainLoop;
}

}  // namespace util
