// Compiled for AVX2 and fused multiply-add where the target is x86-64; the caller asks the processor first.
#if defined(__AVX2__) && defined(__FMA__)

#include <facetbox/triangles/RayLanesAvx2.h>
#include <facetbox/triangles/RayTraversal.h>

namespace util {

bool traverseAvx2(const TriangleBvh::View& view, const RayTransform& transform, ExactSearch& search) {
  return traverse<Avx2>(view, transform, search);
}

}  // namespace util

#endif
