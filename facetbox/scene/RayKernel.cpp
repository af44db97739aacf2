#include <facetbox/scene/RayKernel.h>

#include <facetbox/scene/LoneRays.h>
#include <facetbox/scene/SceneMesh.h>
#include <facetbox/triangles/RayLanesBase.h>

namespace util {
namespace {

/// Takes whatever it is given, up to a bound.
struct AllSurfaces {
  SurfaceRay ray;
  double best;  ///< the bound
  const RayTarget& target;
  std::uint32_t slot;
  std::vector<RayMeeting>& meetings;
};

void testSurface(const TriangleBvh::Exact& exact, AllSurfaces& search) {
  SurfaceMeeting m;
  if (meetSurface(search.ray, exact.corner, m) && m.t <= search.best)
    search.meetings.push_back({search.slot, search.target.id, exact.triangle, m.t, m.second, m.third, m.all,
                               toVec3(exact.corner + 3) - toVec3(exact.corner),
                               toVec3(exact.corner + 6) - toVec3(exact.corner)});
}

template <class Ops>
void testExact(const TriangleBvh::Exact& exact, AllSurfaces& search) {
  testSurface(exact, search);
}

TriangleBvh::Exact exactOf(const SceneMesh& mesh, std::uint32_t triangle) {
  TriangleBvh::Exact exact;
  exact.triangle = triangle;
  for (int k = 0; k < 3; ++k) {
    const Vec3 corner = mesh.corner(triangle, k);
    exact.corner[3 * k] = corner.x;
    exact.corner[3 * k + 1] = corner.y;
    exact.corner[3 * k + 2] = corner.z;
  }
  return exact;
}

}  // namespace

void castRayPlain(const RayTarget& target, RayMode mode, std::uint32_t slot, int ray, RayBundle& bundle) noexcept {
  double origin[3], direction[3];
  toMesh(target, bundle, ray, origin, direction);
  SurfaceSearch search;
  startSearch(target, mode, bundle, ray, origin, direction, search);
  TriangleBvh::Exact hit;
  bool isHit = false;
  for (std::uint32_t t = 0; t < target.mesh->triangleCount(); ++t) {
    const TriangleBvh::Exact exact = exactOf(*target.mesh, t);
    search.hit = nullptr;
    testSurface(exact, search);
    if (search.hit == nullptr) continue;
    hit = exact;
    isHit = true;
  }
  search.hit = isHit ? &hit : nullptr;
  keep(search, target, slot, ray, bundle);
}

std::vector<RayMeeting> collectHits(const RayScene& scene, int ray, const RayBundle& bundle) {
  std::vector<RayMeeting> meetings;
  visitObjects<Base>(scene, ray, bundle, [&](std::uint32_t slot) {
    const RayTarget& target = scene.targets[slot];
    MeshRay at;
    toMeshUnit(target, bundle, ray, at);
    AllSurfaces all{makeSurfaceRay(at.origin, at.direction), bundle.best[ray], target, slot, meetings};
    if (!target.hasHierarchy || at.unit.isOdd(0)) {
      for (std::uint32_t t = 0; t < target.mesh->triangleCount(); ++t) testSurface(exactOf(*target.mesh, t), all);
    } else if (!at.unit.isAway(0)) {
      search<Base, false>(target.view, unitRayOf(at.unit, 0), ParameterMap{at.unit.scale[0], at.unit.offset[0]}, all);
    }
  });
  return meetings;
}

}  // namespace util
