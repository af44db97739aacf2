// Compiled for AVX2 and fused multiply-add where the target is x86-64; the caller asks the processor first.
#if defined(__AVX2__) && defined(__FMA__)

#include <facetbox/scene/BundleTraversal.h>
#include <facetbox/triangles/RayLanesAvx2.h>

namespace util {

void castRaysAvx2(const RayScene& scene, RayMode mode, RayBundle& bundle) { castBundle<Avx2>(scene, mode, bundle); }

}  // namespace util

#endif
