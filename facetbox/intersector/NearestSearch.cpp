#include <facetbox/intersector/NearestSearch.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <span>

#include <facetbox/intersector/ClipPolygon.h>
#include <facetbox/intersector/NearestTraversal.h>
#include <facetbox/math/Matrix4.h>
#include <facetbox/math/OverlapsBox.h>
#include <facetbox/triangles/ClipProjection.h>
#include <facetbox/triangles/FrustumCulling.h>
#include <facetbox/triangles/TriangleBvh.h>

namespace util {

namespace {

/// Below this many, the plain loop is as fast.
constexpr std::size_t kFewestForTraversal = 32;

/// Whether a triangle overlaps the clip cube as overlapsClipCube() of a mesh sees it.
bool overlapsClipCube(const double c[16], const double* const (&vertices)[3]) {
  double p[3][3];
  for (int k = 0; k < 3; ++k)
    if (!projectToClipSpace(c, vertices[k], p[k])) std::fill_n(p[k], 3, 0.0);
  return overlapsBox(p[0], p[1], p[2], kClipCubeCenter, kClipCubeHalf);
}

}  // namespace

NearestSearch::NearestSearch(const double view[16], const Vec3& eye, const Vec3& direction)
    : mEye(eye), mDirection(direction) {
  std::copy_n(view, 16, mView);
}

void NearestSearch::search(const TriangleMesh& mesh, const double* transform) {
  startMesh(transform);
  const TriangleBvh* hierarchy = mesh.hierarchy();
  const bool pays = hierarchy && hierarchy->isUsable() && hierarchy->triangleCount() >= kFewestForTraversal;
  if (!pays || !hierarchy->isComplete() || !Traversal(*this, *hierarchy).run()) testAll(mesh);
}

void NearestSearch::searchPlain(const TriangleMesh& mesh, const double* transform) {
  startMesh(transform);
  testAll(mesh);
}

void NearestSearch::startMesh(const double* transform) {
  mTransform = transform;
  mTriangle = 0;
  if (transform)
    multiply(mView, transform, mClip);
  else
    std::copy_n(mView, 16, mClip);
}

void NearestSearch::testAll(const TriangleMesh& mesh) {
  const std::span<const double> coordinates = mesh.vertexCoordinates();
  const std::span<const std::uint32_t> indices = mesh.indices();
  for (std::size_t i = 0; i + 2 < indices.size(); i += 3) {
    const auto at = [&](std::size_t k) { return &coordinates[3 * std::size_t{indices[i + k]}]; };
    const double* const vertices[3] = {at(0), at(1), at(2)};
    testTriangle(vertices, {placed(vertices[0]), placed(vertices[1]), placed(vertices[2])},
                 static_cast<std::uint32_t>(i / 3));
  }
}

void NearestSearch::testTriangle(const double* const (&vertices)[3], const Vec3 (&corners)[3], std::uint32_t triangle) {
  ClipPolygon polygon(mClip, vertices, corners);
  polygon.clip();
  double least = std::numeric_limits<double>::max();
  const ClipPoint* nearest = nullptr;
  for (const ClipPoint& point : polygon)
    if (const double depth = depthOf(point.world); depth < least) {
      least = depth;
      nearest = &point;
    }
  // The overlap test comes last: few triangles get as far.
  if (nearest && isNearer(least, triangle) && overlapsClipCube(mClip, vertices))
    take(least, nearest->world, corners, triangle);
}

void NearestSearch::take(double depth, const Vec3& point, const Vec3 (&corners)[3], std::uint32_t triangle) {
  mBest = depth;
  mTriangle = triangle;
  mHasHit = true;
  mHit = {point, {corners[0], corners[1], corners[2]}};
}

}  // namespace util
