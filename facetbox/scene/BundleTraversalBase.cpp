#include <facetbox/scene/BundleTraversal.h>
#include <facetbox/triangles/RayLanesBase.h>

namespace util {

void castRaysBase(const RayScene& scene, RayMode mode, RayBundle& bundle) { castBundle<Base>(scene, mode, bundle); }

}  // namespace util
