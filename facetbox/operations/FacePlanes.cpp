#include <facetbox/operations/FacePlanes.h>

#include <facetbox/mesh/PolygonArea.h>

namespace util {
namespace {

bool findPlane(const MeshStorage& m, std::size_t face) {
  const Vec3& normal = m.mFaces.normal(face);
  // A normal of overflowed length is none.
  if (!(std::fabs(lengthSq(normal) - 1.0) < 1e-6)) return false;
  if (normal != Vec3{0.0, 1.0, 0.0}) return true;
  // It may be the stand-in for a face without area.
  Vec3 computed;
  return computeFaceNormal(m.mVertices, m.mFaces.corners(face), computed);
}

}  // namespace

FacePlanes::FacePlanes(const MeshStorage& m) : mAreas(m.mFaces.size()) {
  for (Monitor::Blocks blocks(m.mMonitor.get(), mAreas.size()); blocks.next();)
    for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) measure(m, face);
}

void FacePlanes::remeasure(const MeshStorage& m, std::span<const std::uint32_t> faces) {
  mAreas.resize(m.mFaces.size());
  for (const std::uint32_t face : faces) measure(m, face);
}

void FacePlanes::measure(const MeshStorage& m, std::size_t face) {
  const double area = computePolygonArea(m.mVertices, m.mFaces.corners(face), m.mFaces.normal(face));
  // So that areas can be ordered: one that is no number comes last.
  const double ordered = area >= 0.0 ? area : 0.0;
  mAreas[face] = findPlane(m, face) ? ordered : -ordered;
}

}  // namespace util
