#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/TriangleBvh.h>

namespace util {

/// The triangles of a mesh as scenes ask them, shared by all objects that are placed copies of it. Immutable.
///
/// Its coordinates are those of the mesh times a power of two that makes the largest about 1: nothing is rounded, and
/// no product overflows or vanishes whatever the mesh's unit.
class SceneMesh {
 public:
  /// @throws facetbox::InvalidMesh, std::length_error  as triangulate()
  explicit SceneMesh(std::shared_ptr<const facetbox::PolyMesh> mesh);
  /// The same triangles with other corners.
  /// @param points  x, y, z per vertex of `shape`, in the unit of the mesh
  SceneMesh(const SceneMesh& shape, std::vector<double> points);

  SceneMesh(const SceneMesh&) = delete;
  SceneMesh& operator=(const SceneMesh&) = delete;

  const facetbox::PolyMesh* source() const { return mSource.get(); }

  std::span<const double> coordinates() const { return mCoordinates; }
  std::span<const std::uint32_t> triangles() const { return mTriangles; }
  std::size_t triangleCount() const { return mTriangles.size() / 3; }
  std::uint32_t faceOf(std::uint32_t triangle) const { return mFaces[triangle]; }
  Vec3 corner(std::uint32_t triangle, int k) const {
    return toVec3(mCoordinates.data() +
                  3 * std::size_t{mTriangles[3 * std::size_t{triangle} + static_cast<std::size_t>(k)]});
  }

  /// Coordinates are those of the mesh times this.
  double scale() const { return mScale; }
  /// Around the corners of all triangles; empty where there are none.
  const Box& box() const { return mBox; }
  /// Not usable only where there are no triangles, or too many to number.
  const TriangleBvh& hierarchy() const { return *mHierarchy; }

 private:
  void scaleAndBuild();

  std::shared_ptr<const facetbox::PolyMesh> mSource;
  std::vector<double> mCoordinates;
  std::vector<std::uint32_t> mTriangles, mFaces;
  double mScale = 1;
  Box mBox;
  std::unique_ptr<const TriangleBvh> mHierarchy;
};

class Placement;
/// The triangles of a mesh with their corners where the placement has them.
std::shared_ptr<const SceneMesh> placedCopy(const SceneMesh& shape, const Placement& placement);

}  // namespace util
