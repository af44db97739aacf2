#pragma once

#include <facetbox/scene/PointDistances.h>

// Written once over vectors of the compiler, and compiled once per instruction set. Nothing in here may call an inline
// function of a library: the linker would be free to keep the copy that an older processor cannot run.

namespace util {

template <class Lanes>
struct PointDistanceKernel {
  using Floats = typename Lanes::Floats;
  using Doubles = typename Lanes::Doubles;
  static constexpr int kWidth = TriangleBvh::kWidth;
  static constexpr int kFloats = sizeof(Floats) / sizeof(float), kDoubles = sizeof(Doubles) / sizeof(double);

  template <class Vector, class Number>
  static __attribute__((always_inline)) Vector load(const Number* from) {
    Vector vector;
    __builtin_memcpy(&vector, from, sizeof vector);
    return vector;
  }

  static __attribute__((always_inline)) Floats excessOf(const UnitPoint::Data& point, const TriangleBvh::Node& node,
                                                        int first) {
    Floats sum{};
    for (int a = 0; a < 3; ++a) {
      const Floats below = load<Floats>(node.bounds[a] + first) - point.inCube[a],
                   above = point.inCube[a] - load<Floats>(node.bounds[3 + a] + first);
      const Floats away = Lanes::max(Lanes::max(below, above), Floats{});
      sum += away * (away + point.twiceBeyond[a]);
    }
    return sum;
  }

  static unsigned childrenWithin(const UnitPoint::Data& point, const TriangleBvh::Node& node, float limit,
                                 float* excess) {
    unsigned children = 0;
    for (int first = 0; first < kWidth; first += kFloats) {
      const Floats sum = excessOf(point, node, first);
      __builtin_memcpy(excess + first, &sum, sizeof sum);
      children |= Lanes::floatBits(sum <= limit) << first;
    }
    return children;
  }

  static int nearestChild(const UnitPoint::Data& point, const TriangleBvh::Node& node) {
    Floats excess[kWidth / kFloats];
    for (int i = 0; i < kWidth / kFloats; ++i) excess[i] = excessOf(point, node, i * kFloats);
    Floats least = excess[0];
    for (int i = 1; i < kWidth / kFloats; ++i) least = Lanes::min(least, excess[i]);
    const float nearest = Lanes::least(least);
    unsigned children = 0;
    for (int i = 0; i < kWidth / kFloats; ++i) children |= Lanes::floatBits(excess[i] <= nearest) << (i * kFloats);
    return __builtin_ctz(children);
  }

  struct Vectors {
    Doubles x, y, z;
  };
  static __attribute__((always_inline)) Doubles dot(const Vectors& a, const Vectors& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
  }
  static __attribute__((always_inline)) Vectors cross(const Vectors& a, const Vectors& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
  }
  static __attribute__((always_inline)) Vectors loadThree(const float (&from)[3][kWidth], int first) {
    return {Lanes::widened(from[0] + first), Lanes::widened(from[1] + first), Lanes::widened(from[2] + first)};
  }
  /// To edges from `start` on. An edge without length is its start: then the product that counts is 0 too.
  static __attribute__((always_inline)) Doubles edgeDistanceSq(const Vectors& start, const Vectors& edge) {
    const Doubles size = Lanes::max(dot(edge, edge), Doubles{} + 1e-290);
    const Doubles t = Lanes::min(Lanes::max(Doubles{} - dot(start, edge) / size, Doubles{}), Doubles{} + 1.0);
    const Vectors to{start.x + t * edge.x, start.y + t * edge.y, start.z + t * edge.z};
    return dot(to, to);
  }

  static unsigned trianglesWithin(const UnitPoint::Data& point, const TriangleBvh::Block& block, double limit,
                                  double* distanceSq) {
    unsigned lanes = 0;
    for (int first = 0; first < kWidth; first += kDoubles) {
      const Vectors corner = loadThree(block.corner, first), ab = loadThree(block.edge1, first),
                    ac = loadThree(block.edge2, first);
      const Vectors toA{corner.x - point.at[0], corner.y - point.at[1], corner.z - point.at[2]};
      const Vectors toB{toA.x + ab.x, toA.y + ab.y, toA.z + ab.z}, bc{ac.x - ab.x, ac.y - ab.y, ac.z - ab.z};
      Doubles least = Lanes::min(Lanes::min(edgeDistanceSq(toA, ab), edgeDistanceSq(toA, ac)), edgeDistanceSq(toB, bc));
      const Vectors normal = cross(ab, ac);
      const Doubles size = dot(normal, normal), v = dot(cross(ac, toA), normal), w = dot(cross(toA, ab), normal),
                    height = dot(toA, normal);
      const auto isInside = (v > 0) & (w > 0) & (v + w < size);
      least = Lanes::min(least, isInside ? height * height / size : least);
      __builtin_memcpy(distanceSq + first, &least, sizeof least);
      lanes |= Lanes::doubleBits((least <= limit) & (Lanes::widened(block.reach + first) >= 0)) << first;
    }
    return lanes;
  }

  static constexpr UnitPoint::Functions kFunctions{childrenWithin, nearestChild, trianglesWithin};
};

}  // namespace util
