// Compiled for AVX2 where the target is x86-64; the caller asks the processor first. Nothing in here may call an inline
// function of a library, since the linker would be free to keep the copy that an older processor cannot run.
#if defined(__AVX2__)

#include <immintrin.h>

#include <facetbox/triangles/ClipProjection.h>
#include <facetbox/triangles/ClipVertices.h>

namespace util {

void toClipVerticesAvx2(const double c[16], const double* points, std::size_t count, ClipVertex* out) {
  const __m256d c0 = _mm256_loadu_pd(c), c1 = _mm256_loadu_pd(c + 4), c2 = _mm256_loadu_pd(c + 8),
                c3 = _mm256_loadu_pd(c + 12), sign = _mm256_set1_pd(-0.0);
  for (std::size_t i = 0; i < count; ++i) {
    const double* point = points + 3 * i;
    const __m256d x = _mm256_mul_pd(c0, _mm256_set1_pd(point[0])), y = _mm256_mul_pd(c1, _mm256_set1_pd(point[1])),
                  z = _mm256_mul_pd(c2, _mm256_set1_pd(point[2]));
    const __m256d sums = _mm256_add_pd(_mm256_add_pd(_mm256_add_pd(x, y), z), c3);
    const __m256d w = _mm256_andnot_pd(sign, _mm256_permute4x64_pd(sums, 0xFF));
    const double size = _mm256_cvtsd_f64(w);
    if (!(size > kSmallestW && size <= 0x1.fffffffffffffp1023)) {
      toClipVerticesBase(c, point, 1, out + i);
      continue;
    }
    // Not below, not above: where a number is NaN, so are these.
    const int above = _mm256_movemask_pd(_mm256_cmp_pd(sums, w, _CMP_NLE_UQ)),
              below = _mm256_movemask_pd(_mm256_cmp_pd(sums, _mm256_or_pd(w, sign), _CMP_NGE_UQ));
    _mm256_storeu_pd(&out[i].x, _mm256_blend_pd(sums, w, 8));
    out[i].beyond = static_cast<std::uint32_t>((above & 7) | (below & 7) << 3);
  }
}

}  // namespace util

#endif
