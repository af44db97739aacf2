#include <facetbox/scene/SceneMesh.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include <facetbox/scene/Placement.h>
#include <facetbox/triangulate.h>

namespace util {

SceneMesh::SceneMesh(std::shared_ptr<const facetbox::PolyMesh> mesh) : mSource(std::move(mesh)) {
  if (!mSource) throw std::invalid_argument("Scene: the mesh is null");
  facetbox::Triangulation cut = facetbox::triangulate(*mSource);
  mTriangles = std::move(cut.triangles);
  mFaces = std::move(cut.faces);
  mCoordinates.reserve(mSource->points.size() + cut.madePoints.size());
  mCoordinates = mSource->points;
  mCoordinates.insert(mCoordinates.end(), cut.madePoints.begin(), cut.madePoints.end());
  scaleAndBuild();
}

SceneMesh::SceneMesh(const SceneMesh& shape, std::vector<double> points)
    : mSource(shape.mSource), mCoordinates(std::move(points)), mTriangles(shape.mTriangles), mFaces(shape.mFaces) {
  scaleAndBuild();
}

void SceneMesh::scaleAndBuild() {
  double largest = 0;
  for (const std::uint32_t v : mTriangles)
    for (std::size_t a = 0; a < 3; ++a) largest = std::max(largest, std::fabs(mCoordinates[3 * std::size_t{v} + a]));
  constexpr int kMostExponent = 1020;  // neither the scale nor its inverse overflows
  int exponent = 0;
  std::frexp(largest, &exponent);
  mScale = std::ldexp(1.0, std::clamp(-exponent, -kMostExponent, kMostExponent));
  // A vertex that no triangle uses may be far away: it must not overflow, for a plain reader's sake.
  constexpr double kFarthest = 1e100;
  for (double& x : mCoordinates) x = std::clamp(x * mScale, -kFarthest, kFarthest);
  for (const std::uint32_t v : mTriangles) mBox.extend(toVec3(mCoordinates.data() + 3 * std::size_t{v}));
  mHierarchy = std::make_unique<TriangleBvh>(mCoordinates, mTriangles, 1);
}

std::shared_ptr<const SceneMesh> placedCopy(const SceneMesh& shape, const Placement& placement) {
  std::vector<double> points;
  points.reserve(shape.coordinates().size());
  for (std::size_t i = 0; i < shape.coordinates().size(); i += 3) {
    const Vec3 p = placement.toWorld(toVec3(shape.coordinates().data() + i));
    points.insert(points.end(), {p.x, p.y, p.z});
  }
  return std::make_shared<const SceneMesh>(shape, std::move(points));
}

}  // namespace util
