#include <cstdint>
#include <limits>

#include <facetbox/base/Processor.h>
#include <facetbox/triangles/ClipProjection.h>
#include <facetbox/triangles/ClipVertices.h>

namespace util {

namespace {

ClipVertex toClipVertex(const double c[16], const double* point) {
  using Bits = std::int64_t __attribute__((vector_size(16)));
  ClipSums sums(c, point);
  if (!(sums.w > kSmallestW)) return {0, 0, 0, 1, 0};
  if (sums.w == std::numeric_limits<double>::infinity()) {
    sums.xy /= sums.w;
    sums.z /= sums.w;
    sums.w = 1;
  }
  const Double2 w{sums.w, sums.w}, z{sums.z, -sums.z};
  const Bits beyond = (~(sums.xy <= w) & Bits{1, 2}) | (~(sums.xy >= -w) & Bits{8, 16}) | (~(z <= w) & Bits{4, 32});
  return {sums.xy[0], sums.xy[1], sums.z, sums.w, static_cast<std::uint32_t>(beyond[0] | beyond[1])};
}

}  // namespace

void toClipVerticesBase(const double c[16], const double* points, std::size_t count, ClipVertex* out) {
  for (std::size_t i = 0; i < count; ++i) out[i] = toClipVertex(c, points + 3 * i);
}

ToClipVertices& clipVerticesFor([[maybe_unused]] Instructions instructions) {
#if defined(FACETBOX_HAS_AVX2)
  if (mayUseAvx2(instructions)) return toClipVerticesAvx2;
#endif
  return toClipVerticesBase;
}

}  // namespace util
