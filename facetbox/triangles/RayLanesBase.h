#pragma once

#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <facetbox/math/Lanes.h>

namespace util {
// Each file has its own copy: these must not be exchanged for what is compiled for newer processors.
namespace {

/// Vector operations for any processor, in the compiler's vector types; on x86-64 they become SSE2.
struct Base {
  static constexpr int kLanes = 4;
  typedef float Floats __attribute__((vector_size(16)));
  typedef std::int32_t FloatBits __attribute__((vector_size(16)));
  typedef double Half __attribute__((vector_size(16)));
  typedef std::int64_t HalfBits __attribute__((vector_size(16)));

  struct Doubles {
    Half low, high;

    friend Doubles operator+(const Doubles& a, const Doubles& b) { return {a.low + b.low, a.high + b.high}; }
    friend Doubles operator-(const Doubles& a, const Doubles& b) { return {a.low - b.low, a.high - b.high}; }
    friend Doubles operator*(const Doubles& a, const Doubles& b) { return {a.low * b.low, a.high * b.high}; }
    friend Doubles operator/(const Doubles& a, const Doubles& b) { return {a.low / b.low, a.high / b.high}; }
  };

  // Vector by vector: the compiler keeps what is copied as a whole in memory.
  template <class Vector, class Number>
  static Vector loadVector(const Number* p) {
    Vector x;
    __builtin_memcpy(&x, p, sizeof x);
    return x;
  }
  template <class Vector, class Number>
  static void storeVector(Number* p, const Vector& x) {
    __builtin_memcpy(p, &x, sizeof x);
  }

  static Doubles load(const double* p) { return {loadVector<Half>(p), loadVector<Half>(p + 2)}; }
  static Doubles all(double x) { return {Half{x, x}, Half{x, x}}; }
  static void store(double* p, const Doubles& x) {
    storeVector(p, x.low);
    storeVector(p + 2, x.high);
  }
  static Doubles three(const double* p) { return {Half{p[0], p[1]}, Half{p[2], 0}}; }
  template <int kLane>
  static Doubles lane(const Doubles& x) {
    return all(kLane < 2 ? x.low[kLane & 1] : x.high[kLane & 1]);
  }
  static Half root(Half x) {
#if defined(__SSE2__)
    return _mm_sqrt_pd(x);
#else
    return Half{__builtin_sqrt(x[0]), __builtin_sqrt(x[1])};
#endif
  }
  static Doubles root(const Doubles& x) { return {root(x.low), root(x.high)}; }
  /// Of min and max, b where one is NaN.
  static Doubles min(const Doubles& a, const Doubles& b) {
    return {a.low < b.low ? a.low : b.low, a.high < b.high ? a.high : b.high};
  }
  static Doubles max(const Doubles& a, const Doubles& b) {
    return {a.low > b.low ? a.low : b.low, a.high > b.high ? a.high : b.high};
  }
  static Half absolute(Half x) { return reinterpret_cast<Half>(reinterpret_cast<HalfBits>(x) & INT64_MAX); }
  static Doubles absolute(const Doubles& x) { return {absolute(x.low), absolute(x.high)}; }
  /// Of something positive.
  static Half withSignOf(Half x, Half sign) {
    return reinterpret_cast<Half>(reinterpret_cast<HalfBits>(x) | (reinterpret_cast<HalfBits>(sign) & INT64_MIN));
  }
  static Doubles withSignOf(const Doubles& x, const Doubles& sign) {
    return {withSignOf(x.low, sign.low), withSignOf(x.high, sign.high)};
  }
  static Float4 rounded(const Doubles& x) {
#if defined(__SSE2__)
    return _mm_movelh_ps(_mm_cvtpd_ps(x.low), _mm_cvtpd_ps(x.high));
#else
    return Float4{static_cast<float>(x.low[0]), static_cast<float>(x.low[1]), static_cast<float>(x.high[0]),
                  static_cast<float>(x.high[1])};
#endif
  }
  static double largest(const Doubles& x) {
    const Half a = max(absolute(x), {absolute(x).high, absolute(x).high}).low;
    return a[0] > a[1] ? a[0] : a[1];
  }
  static double sum(const Doubles& x) {
    const Half a = x.low + x.high;
    return a[0] + a[1];
  }

  static Floats load(const float* p) { return loadVector<Floats>(p); }
  static Floats all(float x) { return Floats{x, x, x, x}; }
  static void store(float* p, Floats x) { storeVector(p, x); }
  static Floats min(Floats a, Floats b) { return a < b ? a : b; }
  static Floats max(Floats a, Floats b) { return a > b ? a : b; }
  static Floats multiplySubtract(Floats a, Floats b, Floats c) { return a * b - c; }
  /// `value` where a > b, else 0.
  static Floats greaterOrNothing(Floats a, Floats b, Floats value) { return a > b ? value : Floats{}; }
  static Floats signOf(Floats x) { return reinterpret_cast<Floats>(reinterpret_cast<FloatBits>(x) & INT32_MIN); }
  static Floats flip(Floats x, Floats sign) {
    return reinterpret_cast<Floats>(reinterpret_cast<FloatBits>(x) ^ reinterpret_cast<FloatBits>(sign));
  }
  static unsigned lessEqual(Floats a, Floats b) { return bitsOf(a <= b); }
};

}  // namespace
}  // namespace util
