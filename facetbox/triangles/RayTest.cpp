#include <facetbox/triangles/RayTest.h>

#include <cassert>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/Processor.h>
#include <facetbox/math/Angle.h>
#include <facetbox/math/Matrix4.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/RayTraversal.h>
#include <facetbox/triangles/TriangleBvh.h>

namespace util {
namespace {

/// The test itself, on one triangle with the edges e1 and e2 from the corner that the origin lies s away from. A hit
/// replaces an equal one where `winsTies` says so.
template <class WinsTies>
inline void testTriangle(const Vec3& e1, const Vec3& e2, const Vec3& s, const Vec3& direction, std::uint32_t triangle,
                         WinsTies winsTies, ExactSearch& search) {
  const Vec3 pvec = cross(direction, e2);
  const double det = dot(e1, pvec);
  if (-kSmallestDeterminant < det && det < kSmallestDeterminant) return;
  const double inverse = 1.0 / det;
  const double u = dot(s, pvec) * inverse;
  if (!(0.0 <= u && u <= 1.0)) return;
  const Vec3 qvec = cross(s, e1);
  const double v = dot(direction, qvec) * inverse;
  if (v < 0.0 || u + v > 1.0) return;
  const double t = dot(e2, qvec) * inverse;
  if (!(t >= 0.0 && (t < search.best || (t == search.best && winsTies())))) return;
  search.best = t;
  search.triangle = triangle;
  search.edge1 = e1;
  search.edge2 = e2;
}

bool report(const ExactSearch& search, double* t, double* normalOut) {
  if (!(search.best < kFarthestHit)) return false;
  *t = search.best;
  if (normalOut != nullptr) {
    const Vec3 normal = normalized(cross(search.edge1, search.edge2));
    normalOut[0] = normal.x;
    normalOut[1] = normal.y;
    normalOut[2] = normal.z;
  }
  return true;
}

RayTraversal& traversalFor([[maybe_unused]] Instructions instructions) {
#if defined(FACETBOX_HAS_AVX2)
  if (mayUseAvx2(instructions)) return traverseAvx2;
#endif
  return traverseBase;
}

}  // namespace

void testPlaced(const double vectors[12], std::uint32_t triangle, ExactSearch& search) {
  testTriangle(
      toVec3(vectors), toVec3(vectors + 4), toVec3(vectors + 8), toVec3(search.direction), triangle,
      [&] { return triangle < search.triangle; }, search);
}

bool intersectRay(const TriangleMesh& mesh, const RayTransform& transform, const double matrix[16],
                  const double origin[3], const double direction[3], double* t, double* normalOut,
                  Instructions instructions) {
  if (!transform.isUsable) return intersectRayPlain(mesh, matrix, origin, direction, t, normalOut);
  assert(mesh.hierarchy() != nullptr && mesh.hierarchy()->isUsable());
  ExactSearch search{matrix, origin, direction, kFarthestHit, 0, {}, {}};
  if (!traversalFor(instructions)(mesh.hierarchy()->view(), transform, search))
    return intersectRayPlain(mesh, matrix, origin, direction, t, normalOut);
  return report(search, t, normalOut);
}

bool intersectRay(const TriangleMesh& mesh, const double matrix[16], const double origin[3], const double direction[3],
                  double* t, double* normalOut) {
  return intersectRay(mesh, RayTransform(mesh, matrix), matrix, origin, direction, t, normalOut);
}

bool intersectRayPlain(const TriangleMesh& mesh, const double matrix[16], const double origin[3],
                       const double direction[3], double* t, double* normalOut) {
  const std::span<const std::uint32_t> indices = mesh.indices();
  const std::span<const double> coordinates = mesh.vertexCoordinates();
  constexpr std::size_t kOnStack = 32;  // no memory is asked for
  const std::size_t count = coordinates.size() / 3;
  Vec3 few[kOnStack];
  Buffer<Vec3> many;
  Vec3* world = few;
  if (count > kOnStack) {
    many.resize(count);
    world = many.data();
  }
  for (std::size_t v = 0; v < count; ++v) world[v] = transformPoint(matrix, toVec3(coordinates.data() + 3 * v));
  ExactSearch search{matrix, origin, direction, kFarthestHit, 0, {}, {}};
  for (std::size_t i = 0; i + 2 < indices.size(); i += 3) {
    const Vec3& p0 = world[indices[i]];
    testTriangle(
        world[indices[i + 1]] - p0, world[indices[i + 2]] - p0, toVec3(origin) - p0, toVec3(direction),
        static_cast<std::uint32_t>(i / 3), [] { return false; }, search);
  }
  return report(search, t, normalOut);
}

}  // namespace util
