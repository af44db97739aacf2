#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/RayTest.h>
#include <facetbox/util/TriangleMesh.h>

namespace util {

/// One object of a picker: triangle meshes, the matrix that places them, and what queries keep of both.
class Pickable {
 public:
  using Meshes = std::vector<std::shared_ptr<TriangleMesh>>;

  /// Call measure() before anything else.
  /// @param matrix  16 doubles, column-major
  Pickable(std::int32_t id, const double matrix[16], Meshes meshes);

  std::int32_t id() const { return mId; }

  /// Measures the meshes, and returns the object's box in the world. O(vertices).
  Box measure();
  /// Moves the object, and returns its box in the world: the same bits as measure() would, mostly without looking at
  /// the vertices.
  Box move(const Vec3& offset);

  bool hasTriangles() const { return mHasTriangles; }
  /// As ClipPlanes::sideOf() wants it. Infinite where the object's box in the world does not tell its clip side.
  double magnitude() const;

  /// Whether a triangle of the object overlaps the clip cube, or, for `wholeInside`, all its vertices lie in it.
  bool isInClipVolume(const double viewProjection[16], bool wholeInside) const;

  struct RayHit {
    bool isHit;
    double t;          ///< FLT_MAX without a hit
    double normal[3];  ///< zeros without a hit, and where nobody wants it
  };
  /// The nearest hit of a ray. The earlier mesh wins a tie.
  RayHit intersectRay(const double origin[3], const double direction[3], bool wantsNormal);

 private:
  bool hasBoundedReach() const;
  double largestReach() const;
  void prepareForRays();

  double mMatrix[16];
  Box mUntranslated;  // of all vertices by the matrix, before its translation is added
  double mReach;      // largestReach(), or infinite without a bound
  std::int32_t mId;
  bool mHasTriangles = false;
  bool mIsSmall = true;    // all meshes have few vertices, so that bounds are not worth a look
  bool mIsFinite = true;   // all vertices are, in the world
  bool mWasAsked = false;  // by a ray, since the last change
  Box mLocalBox;           // of all vertices; empty on all axes where one of them is not finite
  Meshes mMeshes;
  std::vector<RayTransform> mRayTransforms;  // one per mesh, made by the second ray after a change
};

}  // namespace util
