#include <facetbox/math/Lanes.h>
#include <facetbox/scene/PointDistanceKernel.h>

namespace util {
namespace {

/// Vector operations for any processor, in the compiler's vector types; on x86-64 they become SSE2.
struct Base {
  using Floats = Float4;
  using Doubles = Double2;

  static Floats max(Floats a, Floats b) { return a > b ? a : b; }
  static Floats min(Floats a, Floats b) { return a < b ? a : b; }
  static float least(Floats x) {
    const float a = x[0] < x[1] ? x[0] : x[1], b = x[2] < x[3] ? x[2] : x[3];
    return a < b ? a : b;
  }
  static Doubles max(Doubles a, Doubles b) { return a > b ? a : b; }
  static Doubles min(Doubles a, Doubles b) { return a < b ? a : b; }
  static Doubles widened(const float* p) { return Doubles{double{p[0]}, double{p[1]}}; }
  // Of comparisons, whose types differ from compiler to compiler.
  template <class Mask>
  static unsigned floatBits(Mask mask) {
    return bitsOf(reinterpret_cast<Int4>(mask));
  }
  template <class Mask>
  static unsigned doubleBits(Mask mask) {
    return static_cast<unsigned>((mask[0] & 1) | (mask[1] & 2));
  }
};

}  // namespace

const UnitPoint::Functions kPointDistancesBase = PointDistanceKernel<Base>::kFunctions;

}  // namespace util
