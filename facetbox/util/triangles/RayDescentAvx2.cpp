// Compiled for AVX2 and fused multiply-add where the target is x86-64; the caller asks the processor first.
#if defined(__AVX2__) && defined(__FMA__)

#include <immintrin.h>

#include <facetbox/util/triangles/RayDescent.h>

namespace util {
namespace {

struct Avx2 {
  using Floats = __m256;

  static Floats load(const float* p) { return _mm256_load_ps(p); }
  static Floats all(float x) { return _mm256_set1_ps(x); }
  static void store(float* p, Floats x) { _mm256_store_ps(p, x); }
  static Floats min(Floats a, Floats b) { return _mm256_min_ps(a, b); }
  static Floats max(Floats a, Floats b) { return _mm256_max_ps(a, b); }
  /// Fused: what it feeds has a margin for either rounding.
  static Floats multiplySubtract(Floats a, Floats b, Floats c) { return _mm256_fmsub_ps(a, b, c); }
  static Floats signOf(Floats x) { return _mm256_and_ps(x, _mm256_set1_ps(-0.0F)); }
  static Floats flip(Floats x, Floats sign) { return _mm256_xor_ps(x, sign); }
  static unsigned lessEqual(Floats a, Floats b) {
    return static_cast<unsigned>(_mm256_movemask_ps(_mm256_cmp_ps(a, b, _CMP_LE_OQ)));
  }
};

}  // namespace

void descendAvx2(const TriangleHierarchy::View& view, UnitRay ray, const ParameterMap& map, ExactSearch& search) {
  descend<Avx2>(view, ray, map, search);
}

}  // namespace util

#endif
