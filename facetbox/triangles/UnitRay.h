#pragma once

#include <facetbox/math/Lanes.h>
#include <facetbox/triangles/RayMargins.h>
#include <facetbox/triangles/RayTransform.h>

// A ray in the unit coordinates of a bounding volume hierarchy. Written over a set of vector operations, like the
// traversal; nothing in here may call an inline function of a library either.

namespace util {

/// A ray in the unit coordinates of a hierarchy, its parameter shifted and scaled so that the largest coordinate of the
/// direction is 1. It serves to pass over boxes and triangles only; RayMargins.h derives its margins.
struct UnitRay {
  Float4 origin;
  Float4 direction;
  Float4 inverse;     ///< 1 / direction; never infinite
  Float4 nearOffset;  ///< plane * inverse - nearOffset is where the ray meets a near plane moved nearer by the margin
  Float4 farOffset;   ///< and so for a far plane moved farther
  float tolerance;    ///< of the triangle filter, per unit of a triangle's reach
  float first;        ///< parameters of interest
  float last;         ///< shrinks with every hit

  // For grazing rays only: what grows with the reach of a subtree's or a lane's triangles.
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
  constexpr double kRounding = 4 * kFloatUnit;
  const double bound = parameter + __builtin_fabs(parameter) * kRounding;
  return bound < static_cast<double>(kLastParameter) ? static_cast<float>(bound) : kLastParameter;
}

/// Turns a bound of the true parameter into one of the unit ray's: bound * scale + offset.
struct ParameterMap {
  double scale, offset;

  /// A bound above every parameter of the unit ray at which a hit up to `best` can lie.
  __attribute__((always_inline)) float limit(double best) const { return above(best * scale + offset); }
};

/// What becomes of a ray: it is traversed, or traversed with an eye on triangles that it grazes; it cannot hit
/// anything; or it is one for the plain loop.
enum class RayPlan { traverse, traverseGrazing, noHit, usePlainLoop };

/// A ray's image in unit coordinates, in doubles.
template <class Ops>
struct RayImage {
  typename Ops::Doubles nearest;    ///< the point next to the mesh's center
  typename Ops::Doubles direction;  ///< its length is not scaled yet
  double originSize, directionSize;
  double shift;      ///< the parameter of `nearest`
  double offCenter;  ///< sum of its absolute coordinates
};

template <class Ops>
inline __attribute__((always_inline)) RayImage<Ops> imageOf(const RayTransform& transform, const double* rayOrigin,
                                                            const double* rayDirection) {
  using V = typename Ops::Doubles;
  const V direction = Ops::three(rayDirection);
  const V x = Ops::load(transform.columns[0]), y = Ops::load(transform.columns[1]), z = Ops::load(transform.columns[2]);
  const V moved = Ops::three(rayOrigin) - Ops::load(transform.translation);
  const V o = Ops::template lane<0>(moved) * x + Ops::template lane<1>(moved) * y + Ops::template lane<2>(moved) * z -
              Ops::load(transform.center);
  const V d = Ops::template lane<0>(direction) * x + Ops::template lane<1>(direction) * y +
              Ops::template lane<2>(direction) * z;
  const double shift = -Ops::sum(o * d) / Ops::sum(d * d);
  const V n = o + Ops::all(shift) * d;
  return {n, d, Ops::largest(o), Ops::largest(d), shift, Ops::sum(Ops::absolute(n))};
}

/// The errors of a ray by the longest edge of all triangles, named as in RayMargins.h.
struct RayErrors {
  double D, O;            ///< |direction|, |origin|
  double Q;               ///< of the determinant
  double drift;           ///< of the direction's image, per unit of a row sum
  double reach;           ///< S + E
  double perDeterminant;  ///< 1 / 0.75 tau
  double tau;
  bool mayGraze;         ///< whether tau is raised
  double common;         ///< the width of all boxes
  double perRowAtLeast;  ///< the width per unit of a row sum, without the longest edge's part
  double perRow;         ///< the same with it
  double widest;         ///< w
  double around;         ///< 1 + |n| + w, without the part of w
  double size;           ///< 1 + |n| + w
};

// What follows is written so that few operations have to wait for each other: every ray takes at least as long as the
// longest chain of them.
template <class Ops>
inline __attribute__((always_inline)) void boundErrors(const RayTransform& transform, const RayImage<Ops>& image,
                                                       RayErrors& errors) {
  const double O = errors.O, Q = errors.Q;
  const double anywhere = kMargin * O + transform.worldReach;
  const double here = transform.growth * image.originSize + (transform.imageError * O + transform.meshReach);
  const double reach = anywhere < here ? anywhere : here;
  errors.reach = reach;
  errors.tau = kSmallestDeterminant;
  errors.perDeterminant = 1 / (kSureShare * kSmallestDeterminant);
  errors.around = kSize;
  errors.mayGraze = !(Q <= kErrorShare * kSmallestDeterminant &&
                      2 * errors.perDeterminant * Q * reach * transform.largestRowSum < kWide);
  if (errors.mayGraze) {
    errors.tau = kRaise * transform.edge * errors.D *
                 (kTripleProductError * reach + kDeterminantPerCornerError * transform.cornerError);
    errors.perDeterminant = 1 / (kSureShare * errors.tau);
    errors.around += image.offCenter;
  }
  errors.common = transform.commonWidth + kUnitPositionError * image.originSize;
  errors.perRowAtLeast =
      kUnit * reach + (transform.pointError + kImageError * O +
                       kMarginOfProduct * errors.drift * (image.originSize + 2) * (1 / image.directionSize));
  errors.perRow = 2 * errors.perDeterminant * Q * reach + errors.perRowAtLeast;
  errors.widest = errors.common + transform.largestRowSum * errors.perRow;
  errors.size = errors.around + kSizePerWidth * errors.widest;
}

/// Sets where the ray meets the planes of boxes that are wider by `width`.
template <class Ops>
inline __attribute__((always_inline)) void setOffsets(const RayImage<Ops>& image, typename Ops::Doubles width,
                                                      UnitRay& ray) {
  const typename Ops::Doubles outward = Ops::withSignOf(width, image.direction);
  ray.nearOffset = Ops::rounded(image.nearest + outward) * ray.inverse;
  ray.farOffset = Ops::rounded(image.nearest - outward) * ray.inverse;
}

/// The ray for a traversal, as if no triangle were grazed.
template <class Ops>
inline __attribute__((always_inline)) void makeRay(const RayTransform& transform, const RayImage<Ops>& image,
                                                   const RayErrors& errors, UnitRay& ray, ParameterMap& limits) {
  const typename Ops::Doubles d = image.direction;
  const double dSize = image.directionSize;
  ray.origin = Ops::rounded(image.nearest);
  ray.direction = Ops::rounded(d * Ops::all(1 / dSize));
  ray.inverse = Ops::rounded(Ops::all(dSize) /
                             Ops::withSignOf(Ops::max(Ops::absolute(d), Ops::all(kSmallestComponent * dSize)), d));
  // Here is kPlaneError * size, but for what grows with perRow: that is part of the row sums.
  setOffsets<Ops>(image,
                  Ops::all((1 + kPlaneErrorPerWidth) * errors.common + kPlaneError * errors.around) +
                      Ops::load(transform.rowSums) * Ops::all(errors.perRow),
                  ray);
  ray.tolerance = static_cast<float>(kFloatMargin * (kFilterPerWidth * errors.widest + kFilterError * errors.size));

  const double slack = errors.perDeterminant * transform.determinantError * errors.reach;
  const double spread = kParameterError * (slack + __builtin_fabs(image.shift));
  limits.scale = (1 + kMargin * (errors.perDeterminant * errors.Q + kParameterError)) * dSize;
  limits.offset = (slack + spread - image.shift) * dSize;
  // The least parameter is, but for its sign, the largest one of the ray in the other direction.
  ray.first = -above((slack + spread + image.shift) * dSize);
  ray.last = kLastParameter;
}

inline __attribute__((always_inline)) bool isModest(float value) {
  constexpr float kMost = static_cast<float>(kLargestFloat), kLeast = 1e-30F;
  return value > kLeast && value < kMost;
}

/// Turns the ray into one with an eye on grazed triangles.
/// @return whether floats can hold it
template <class Ops>
inline __attribute__((always_inline)) bool addGrazing(const RayTransform& transform, const RayImage<Ops>& image,
                                                      const RayErrors& errors, UnitRay& ray) {
  using V = typename Ops::Doubles;
  /// Boxes are wider by one more rounding than where all of the width is part of the origin.
  constexpr double kOwnMargin = 1.2;
  constexpr double kDirectionError = 12 * kFloatUnit, kLargestDirectionError = 0x1p-8;
  constexpr double kLargestEdge = 1e15;  // its square fits in well
  const double E = transform.edge, D = errors.D, reach = errors.reach;
  const V rowSums = Ops::load(transform.rowSums);

  // Per unit of an edge in the world.
  const double error = kTripleProductError * reach + kDeterminantPerCornerError * transform.cornerError;
  const double etaPerEdge = kMarginOfProduct * 2 * kTripleProductError * reach / (kSureShare * kRaise * error);
  const double edgePerReach = kMargin * transform.growth, edgeError = kMarginOfProduct * 2 * transform.cornerError;
  const double perRow = errors.perRowAtLeast + etaPerEdge * edgeError;
  const V ownWidth =
      Ops::all(kOwnMargin * (errors.common + kPlaneError * errors.size)) + rowSums * Ops::all(kOwnMargin * perRow);
  setOffsets<Ops>(image, ownWidth, ray);
  const double widthPerReach = etaPerEdge * edgePerReach * transform.largestRowSum;
  ray.outwardPerReach =
      Ops::rounded(rowSums * Ops::all(etaPerEdge * edgePerReach)) * (ray.inverse < 0 ? -ray.inverse : ray.inverse);
  ray.tolerance =
      static_cast<float>(kFloatMargin * (kFilterPerWidth * (errors.common + transform.largestRowSum * perRow) +
                                         kFilterError * errors.size));
  ray.tolerancePerReach = static_cast<float>(kFloatMargin * kFilterPerWidth * widthPerReach);

  const double unit = 1 / image.directionSize;
  const double directionError =
      kDirectionError + transform.imageError + 1.1 * errors.drift * transform.largestRowSum * unit;
  const double toUnit = unit / transform.volume;
  const double grazingPerEdge =
      kMarginOfProduct * (kRaise * error + kDeterminantPerCornerError * transform.cornerError) * D * toUnit;
  if (!(directionError < kLargestDirectionError) || !(toUnit < kLargestFloat) ||
      !(errors.tau * toUnit < kLargestFloat) || !(widthPerReach < kLargestFloat) ||
      !(grazingPerEdge * edgePerReach < kLargestFloat))
    return false;
  ray.normalError = static_cast<float>(kMargin * directionError);
  ray.grazing = static_cast<float>(grazingPerEdge * edgeError);
  ray.grazingPerReach = static_cast<float>(grazingPerEdge * edgePerReach);
  ray.rowSums = Ops::rounded(rowSums);
  ray.edgePerReach = static_cast<float>(edgePerReach);
  ray.edgeError = static_cast<float>(edgeError);
  ray.errorPerEdgeSq = static_cast<float>(kMarginOfProduct * kTripleProductError * D);
  ray.etaPerEdgeSq =
      static_cast<float>(kMarginOfProduct * 2 * kTripleProductError * D * reach / (kSureShare * kSmallestDeterminant));
  ray.farWidth = static_cast<float>(4 * errors.size);
  return E < kLargestEdge && isModest(ray.edgePerReach) && isModest(ray.errorPerEdgeSq) && isModest(ray.etaPerEdgeSq) &&
         E * E * static_cast<double>(ray.etaPerEdgeSq) < kLargestFloat && transform.largestRowSum < kLargestFloat;
}

/// Derives the unit ray, with its margins.
template <class Ops>
inline __attribute__((always_inline)) RayPlan prepare(const RayTransform& transform, const double* origin,
                                                      const double* direction, UnitRay& ray, ParameterMap& limits) {
  constexpr double kLargestDrift = 0.01, kLargestDirection = 1e100, kSmallestDirection = 1e-100;
  RayErrors errors;
  errors.D = Ops::largest(Ops::three(direction));
  errors.O = Ops::largest(Ops::three(origin));
  if (!(errors.D < kLargestMagnitude && errors.O < kLargestMagnitude)) return RayPlan::usePlainLoop;
  errors.Q = transform.determinantError * errors.D;
  // No determinant exceeds 6 E E D: where even 7 E E D is below the limit, all triangles are parallel to the ray.
  if (7 * errors.Q < kTripleProductError * kSmallestDeterminant) return RayPlan::noHit;

  const RayImage<Ops> image = imageOf<Ops>(transform, origin, direction);
  errors.drift = kDirectionImageError * errors.D;
  if (!(errors.drift * transform.largestRowSum < kLargestDrift * image.directionSize) ||
      !(image.directionSize > kSmallestDirection && image.directionSize < kLargestDirection))
    return RayPlan::usePlainLoop;

  boundErrors<Ops>(transform, image, errors);
  // A NaN or an infinity anywhere in the ray ends up in here.
  if (!(errors.size < kLargestFloat && image.offCenter < kLargestFloat)) return RayPlan::usePlainLoop;
  if (!errors.mayGraze && image.offCenter > kCenterDistance + kCenterDistancePerWidth * errors.widest)
    return RayPlan::noHit;

  makeRay<Ops>(transform, image, errors, ray, limits);
  if (!errors.mayGraze) return RayPlan::traverse;
  return addGrazing<Ops>(transform, image, errors, ray) ? RayPlan::traverseGrazing : RayPlan::usePlainLoop;
}

}  // namespace util
