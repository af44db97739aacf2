#pragma once

#include <immintrin.h>

#include <facetbox/math/Lanes.h>

namespace util {
// Each file has its own copy: the linker must not hand one for newer processors to others.
namespace {

/// Vector operations for processors with AVX2 and fused multiply-add.
struct Avx2 {
  static constexpr int kLanes = 8;
  using Floats = __m256;
  using Doubles = __m256d;

  static Floats load(const float* p) { return _mm256_load_ps(p); }
  static Doubles load(const double* p) { return _mm256_loadu_pd(p); }
  static Doubles all(double x) { return _mm256_set1_pd(x); }
  static void store(double* p, Doubles x) { _mm256_store_pd(p, x); }
  static Floats all(float x) { return _mm256_set1_ps(x); }
  static void store(float* p, Floats x) { _mm256_store_ps(p, x); }
  static Floats min(Floats a, Floats b) { return _mm256_min_ps(a, b); }
  static Floats max(Floats a, Floats b) { return _mm256_max_ps(a, b); }
  /// Fused: what it feeds has a margin for either rounding.
  static Floats multiplySubtract(Floats a, Floats b, Floats c) { return _mm256_fmsub_ps(a, b, c); }
  /// `value` where a > b, else 0.
  static Floats greaterOrNothing(Floats a, Floats b, Floats value) {
    return _mm256_and_ps(_mm256_cmp_ps(a, b, _CMP_GT_OQ), value);
  }
  static Floats signOf(Floats x) { return _mm256_and_ps(x, _mm256_set1_ps(-0.0F)); }
  static Floats flip(Floats x, Floats sign) { return _mm256_xor_ps(x, sign); }

  static Doubles three(const double* p) { return _mm256_set_pd(0, p[2], p[1], p[0]); }
  template <int kLane>
  static Doubles lane(Doubles x) {
    return _mm256_permute4x64_pd(x, kLane * 0x55);
  }
  static Doubles root(Doubles x) { return _mm256_sqrt_pd(x); }
  /// Of min and max, b where one is NaN.
  static Doubles min(Doubles a, Doubles b) { return _mm256_min_pd(a, b); }
  static Doubles max(Doubles a, Doubles b) { return _mm256_max_pd(a, b); }
  static Doubles absolute(Doubles x) { return _mm256_andnot_pd(_mm256_set1_pd(-0.0), x); }
  /// Of something positive.
  static Doubles withSignOf(Doubles x, Doubles sign) {
    return _mm256_or_pd(x, _mm256_and_pd(sign, _mm256_set1_pd(-0.0)));
  }
  static Float4 rounded(Doubles x) { return _mm256_cvtpd_ps(x); }
  static double largest(Doubles x) {
    const __m256d a = absolute(x);
    const __m128d b = _mm_max_pd(_mm256_castpd256_pd128(a), _mm256_extractf128_pd(a, 1));
    return _mm_cvtsd_f64(_mm_max_sd(b, _mm_unpackhi_pd(b, b)));
  }
  static double sum(Doubles x) {
    const __m128d b = _mm_add_pd(_mm256_castpd256_pd128(x), _mm256_extractf128_pd(x, 1));
    return _mm_cvtsd_f64(_mm_add_sd(b, _mm_unpackhi_pd(b, b)));
  }

  static unsigned lessEqual(Floats a, Floats b) {
    return static_cast<unsigned>(_mm256_movemask_ps(_mm256_cmp_ps(a, b, _CMP_LE_OQ)));
  }
};

}  // namespace
}  // namespace util
