#include <facetbox/triangles/RayLanesBase.h>
#include <facetbox/triangles/RayTraversal.h>

namespace util {

bool traverseBase(const TriangleBvh::View& view, const RayTransform& transform, ExactSearch& search) {
  return traverse<Base>(view, transform, search);
}

}  // namespace util
