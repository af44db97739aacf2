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

  template <class Vector>
  struct Pair {
    Vector low, high;

    friend Pair operator+(const Pair& a, const Pair& b) { return {a.low + b.low, a.high + b.high}; }
    friend Pair operator-(const Pair& a, const Pair& b) { return {a.low - b.low, a.high - b.high}; }
    friend Pair operator*(const Pair& a, const Pair& b) { return {a.low * b.low, a.high * b.high}; }
    friend Pair operator/(const Pair& a, const Pair& b) { return {a.low / b.low, a.high / b.high}; }
  };
  typedef double HalfDoubles __attribute__((vector_size(16)));
  using Floats = Pair<Half>;
  using Doubles = Pair<HalfDoubles>;

  static Doubles load(const double* p) {
    Doubles x;
    __builtin_memcpy(&x, p, sizeof x);
    return x;
  }
  static Doubles all(double x) { return {HalfDoubles{x, x}, HalfDoubles{x, x}}; }
  static void store(double* p, const Doubles& x) { __builtin_memcpy(p, &x, sizeof x); }
  static Doubles three(const double* p) { return {HalfDoubles{p[0], p[1]}, HalfDoubles{p[2], 0}}; }
  template <int kLane>
  static Doubles lane(const Doubles& x) {
    return all(kLane < 2 ? x.low[kLane & 1] : x.high[kLane & 1]);
  }
  static Doubles max(const Doubles& a, const Doubles& b) {
    return {a.low > b.low ? a.low : b.low, a.high > b.high ? a.high : b.high};
  }
  static HalfDoubles absolute(HalfDoubles x) { return x < 0 ? -x : x; }
  static Doubles absolute(const Doubles& x) { return {absolute(x.low), absolute(x.high)}; }
  /// Of something positive.
  static HalfDoubles withSignOf(HalfDoubles x, HalfDoubles sign) { return sign < 0 ? -x : x; }
  static Doubles withSignOf(const Doubles& x, const Doubles& sign) {
    return {withSignOf(x.low, sign.low), withSignOf(x.high, sign.high)};
  }
  static void storeRounded(float* p, const Doubles& x) {
    for (int i = 0; i < 2; ++i) {
      p[i] = static_cast<float>(x.low[i]);
      p[2 + i] = static_cast<float>(x.high[i]);
    }
  }
  static double largest(const Doubles& x) {
    const HalfDoubles a = max(absolute(x), {absolute(x).high, absolute(x).high}).low;
    return a[0] > a[1] ? a[0] : a[1];
  }
  static double sum(const Doubles& x) { return x.low[0] + x.low[1] + x.high[0] + x.high[1]; }

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
  static Half greaterOrNothing(Half a, Half b, Half value) { return a > b ? value : Half{}; }
  /// `value` where a > b, else 0.
  static Floats greaterOrNothing(const Floats& a, const Floats& b, const Floats& value) {
    return {greaterOrNothing(a.low, b.low, value.low), greaterOrNothing(a.high, b.high, value.high)};
  }
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

bool descendBase(const TriangleHierarchy::View& view, const RayPlacement& placement, ExactSearch& search) {
  return descend<Base>(view, placement, search);
}

}  // namespace util
