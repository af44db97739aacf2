#pragma once

#include <cstdint>
#include <limits>

#include <facetbox/math/Matrix4.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/util/TriangleMesh.h>

namespace util {

/// A point of a triangle that is visible in a view volume.
struct NearestHit {
  Vec3 mPoint;
  Vec3 mCorners[3];  ///< of the triangle, in its order
};

/// Looks for the point of least depth, (P - eye) . direction, that meshes have in a view volume.
///
/// A triangle takes part when it overlaps the clip cube as overlapsClipCube() sees it. Then it is cut off in
/// homogeneous coordinates, by w > 1e-25, x <= w, x >= -w, and so on for y and z, and the corners of what is left, from
/// its first on, are candidates. Their places in the world are cut off by the same parameters as their coordinates.
/// Every comparison with NaN fails: such a corner is cut off and such a depth never the least. Of equal depths the
/// first counts, by the order of the meshes, of their triangles, and of the corners.
class NearestSearch {
 public:
  NearestSearch(const double view[16], const Vec3& eye, const Vec3& direction);

  const double* view() const { return mView; }

  /// Searches one more mesh, by its hierarchy where it has one: O(log triangles) while few are as near as the nearest.
  /// @param transform  places it in the world, without division by w; null: it lies there
  void search(const TriangleMesh& mesh, const double* transform);
  /// The same by looking at every triangle.
  void searchPlain(const TriangleMesh& mesh, const double* transform);

  /// The nearest point so far, null while there is none.
  const NearestHit* hit() const { return mHasHit ? &mHit : nullptr; }

 private:
  class Traversal;

  void startMesh(const double* transform);
  void testAll(const TriangleMesh& mesh);
  void testTriangle(const double* const (&vertices)[3], const Vec3 (&corners)[3], std::uint32_t triangle);
  void take(double depth, const Vec3& point, const Vec3 (&corners)[3], std::uint32_t triangle);

  Vec3 placed(const double* vertex) const {
    const Vec3 p{vertex[0], vertex[1], vertex[2]};
    return mTransform ? transformPoint(mTransform, p) : p;
  }
  double depthOf(const Vec3& p) const { return dot(p - mEye, mDirection); }
  bool isNearer(double depth, std::uint32_t triangle) const {
    return depth < mBest || (depth == mBest && triangle < mTriangle);
  }

  double mView[16];
  Vec3 mEye, mDirection;

  const double* mTransform = nullptr;  ///< of the mesh at hand; may be null
  double mClip[16];                    ///< its whole way into clip space

  double mBest = std::numeric_limits<double>::max();
  std::uint32_t mTriangle = 0;  ///< of the mesh at hand, with the least depth; 0 while that is an earlier mesh's
  bool mHasHit = false;
  NearestHit mHit{};
};

}  // namespace util
