// Compiled for AVX2 and fused multiply-add where the target is x86-64; the caller asks the processor first.
#if defined(__AVX2__) && defined(__FMA__)

#include <immintrin.h>

#include <facetbox/scene/PointDistanceKernel.h>

namespace util {
namespace {

struct Avx2 {
  typedef float Floats __attribute__((vector_size(32)));
  typedef double Doubles __attribute__((vector_size(32)));

  static Floats max(Floats a, Floats b) { return _mm256_max_ps(a, b); }
  static Floats min(Floats a, Floats b) { return _mm256_min_ps(a, b); }
  static float least(Floats x) {
    const __m128 four = _mm_min_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1));
    const __m128 two = _mm_min_ps(four, _mm_movehl_ps(four, four));
    return _mm_cvtss_f32(_mm_min_ss(two, _mm_shuffle_ps(two, two, 1)));
  }
  static Doubles max(Doubles a, Doubles b) { return _mm256_max_pd(a, b); }
  static Doubles min(Doubles a, Doubles b) { return _mm256_min_pd(a, b); }
  static Doubles widened(const float* p) { return _mm256_cvtps_pd(_mm_loadu_ps(p)); }
  // Of comparisons, whose types differ from compiler to compiler.
  template <class Mask>
  static unsigned floatBits(Mask mask) {
    return static_cast<unsigned>(_mm256_movemask_ps(reinterpret_cast<__m256>(mask)));
  }
  template <class Mask>
  static unsigned doubleBits(Mask mask) {
    return static_cast<unsigned>(_mm256_movemask_pd(reinterpret_cast<__m256d>(mask)));
  }
};

}  // namespace

const UnitPoint::Functions kPointDistancesAvx2 = PointDistanceKernel<Avx2>::kFunctions;

}  // namespace util

#endif
