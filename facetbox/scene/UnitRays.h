#pragma once

#include <facetbox/triangles/RayMargins.h>
#include <facetbox/triangles/UnitRay.h>

// Rays in the unit coordinates of hierarchies, as scenes cast them.
//
// What is passed over provably holds no hit. Let u = 2^-53, O the largest coordinate of a ray's origin in the
// coordinates of a mesh, whose own are at most 1. The test shears corners with an error of at most 8u (1 + O) along
// each axis, and is exact from there on. So the ray passes within that of the triangle wherever it is hit, and its t is
// off by at most 16u (1 + O), as a length. Moving the origin next to the hierarchy's center adds 10u (1 + O) and more.
// Unit coordinates are these, shifted and scaled: 128u (1 + O) times the scale bounds all of it. Floats add the errors
// that RayMargins.h derives, as there.
//
// Nothing in here may call an inline function of a library: the linker would be free to keep the copy that an older
// processor cannot run.

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

}  // namespace util
