#pragma once

#include <facetbox/scene/RayKernel.h>
#include <facetbox/scene/UnitRays.h>

// Rays that run alike, as one.
//
// Nothing in here may call an inline function of a library: the linker would be free to keep the copy that an older
// processor cannot run.

namespace util {

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

}  // namespace util
