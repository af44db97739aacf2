#include <facetbox/util/triangles/RayDescent.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace util {
namespace {

/// Vector operations for any processor, in the compiler's vector types; on x86-64 they become SSE2.
struct Base {
  typedef float Half __attribute__((vector_size(16)));
  typedef std::int32_t Mask __attribute__((vector_size(16)));

  struct Floats {
    Half low, high;

    friend Floats operator+(const Floats& a, const Floats& b) { return {a.low + b.low, a.high + b.high}; }
    friend Floats operator-(const Floats& a, const Floats& b) { return {a.low - b.low, a.high - b.high}; }
    friend Floats operator*(const Floats& a, const Floats& b) { return {a.low * b.low, a.high * b.high}; }
  };

  static Floats load(const float* p) {
    Floats x;
    __builtin_memcpy(&x, p, sizeof x);
    return x;
  }
  static Floats all(float x) { return {Half{x, x, x, x}, Half{x, x, x, x}}; }
  static void store(float* p, const Floats& x) { __builtin_memcpy(p, &x, sizeof x); }
  static Floats min(const Floats& a, const Floats& b) {
    return {a.low < b.low ? a.low : b.low, a.high < b.high ? a.high : b.high};
  }
  static Floats max(const Floats& a, const Floats& b) {
    return {a.low > b.low ? a.low : b.low, a.high > b.high ? a.high : b.high};
  }
  static Floats multiplySubtract(const Floats& a, const Floats& b, const Floats& c) { return a * b - c; }
  static Half signOf(Half x) { return reinterpret_cast<Half>(reinterpret_cast<Mask>(x) & INT32_MIN); }
  static Floats signOf(const Floats& x) { return {signOf(x.low), signOf(x.high)}; }
  static Half flip(Half x, Half sign) {
    return reinterpret_cast<Half>(reinterpret_cast<Mask>(x) ^ reinterpret_cast<Mask>(sign));
  }
  static Floats flip(const Floats& x, const Floats& sign) { return {flip(x.low, sign.low), flip(x.high, sign.high)}; }
  /// One bit per lane of a comparison's result.
  static unsigned bits(const Mask& mask) {
#if defined(__SSE2__)
    return static_cast<unsigned>(_mm_movemask_ps(reinterpret_cast<__m128>(mask)));
#else
    return (mask[0] & 1U) | (mask[1] & 2U) | (mask[2] & 4U) | (mask[3] & 8U);
#endif
  }
  static unsigned lessEqual(const Floats& a, const Floats& b) {
    return bits(a.low <= b.low) | bits(a.high <= b.high) << 4;
  }
};

}  // namespace

void descendBase(const TriangleHierarchy::View& view, UnitRay ray, const ParameterMap& map, ExactSearch& search) {
  descend<Base>(view, ray, map, search);
}

}  // namespace util
