#pragma once

#include <facetbox/Scene.h>
#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>

namespace util {

class SceneMesh;

/// How an object of a scene is placed: the way from a mesh's scaled coordinates into the world, and back.
///
/// The way back is that of the inverse which is computed here, and no other: it defines what a ray hits. Its error is
/// bounded, so that the box around an object in the world holds whatever a ray hits in it.
class Placement {
 public:
  Placement() = default;
  /// @param transform  finite
  /// @param meshScale  SceneMesh::scale()
  Placement(const facetbox::Transform& transform, double meshScale);

  /// Whether there is an inverse that is good enough. Without one, corners have to be placed themselves.
  bool isInvertible() const { return mIsInvertible; }

  Vec3 toWorld(const Vec3& p) const {
    return {mRows[0].x * p.x + mRows[0].y * p.y + mRows[0].z * p.z + mTranslation.x,
            mRows[1].x * p.x + mRows[1].y * p.y + mRows[1].z * p.z + mTranslation.y,
            mRows[2].x * p.x + mRows[2].y * p.y + mRows[2].z * p.z + mTranslation.z};
  }
  Vec3 directionToWorld(const Vec3& d) const {
    return {mRows[0].x * d.x + mRows[0].y * d.y + mRows[0].z * d.z,
            mRows[1].x * d.x + mRows[1].y * d.y + mRows[1].z * d.z,
            mRows[2].x * d.x + mRows[2].y * d.y + mRows[2].z * d.z};
  }
  Vec3 toMesh(const Vec3& p) const { return directionToMesh(p - mTranslation); }
  Vec3 directionToMesh(const Vec3& d) const {
    return {mInverse[0].x * d.x + mInverse[0].y * d.y + mInverse[0].z * d.z,
            mInverse[1].x * d.x + mInverse[1].y * d.y + mInverse[1].z * d.z,
            mInverse[2].x * d.x + mInverse[2].y * d.y + mInverse[2].z * d.z};
  }
  const Vec3* rows() const { return mRows; }
  const Vec3* inverse() const { return mInverse; }
  const Vec3& translation() const { return mTranslation; }

  /// A box in the world that holds what a box in the mesh's coordinates does, and what rays from near it hit there.
  Box worldBox(const Box& meshBox) const;
  /// By how much more a hit may lie outside of it, per unit of the largest coordinate of the ray's origin.
  double originError() const { return mOriginError; }
  /// Coordinates in the world may not be larger.
  static constexpr double kFarthest = 1e150;

  /// What a distance in the mesh's coordinates is at least worth in the world, per unit.
  double leastStretch() const { return mLeastStretch; }
  /// By how much a component of the inverse times the transform's linear part may be off.
  double inverseError() const { return mInverseError; }

 private:
  Vec3 mRows[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  Vec3 mInverse[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  Vec3 mTranslation{0, 0, 0};
  double mInverseError = 0, mOriginError = 0x1p-46, mLeastStretch = 1;
  bool mIsInvertible = true;
};

}  // namespace util
