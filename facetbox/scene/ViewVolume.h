#pragma once

#include <cmath>

#include <facetbox/Scene.h>
#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/scene/Placement.h>

namespace util {

/// Where a matrix takes a point, before the division by w.
struct ClipPoint {
  double x, y, z, w;

  bool isInside() const { return w > 0 && x >= -w && x <= w && y >= -w && y <= w && z >= -w && z <= w; }
};

enum class VolumeSide { inside, outside, unsure };

/// The view volume of a matrix, seen from coordinates that a placement leads into the world from.
class ViewVolume {
 public:
  static constexpr int kPlanes = 6;

  /// @param placement  null: coordinates are the world's
  ViewVolume(const facetbox::Matrix& viewProjection, const Placement* placement);

  ClipPoint place(const Vec3& p) const {
    const Vec3 world = mPlacement != nullptr ? mPlacement->toWorld(p) : p;
    return {at(0, world), at(1, world), at(2, world), at(3, world)};
  }

  /// What can be told of all points of a box, whatever place() rounds.
  VolumeSide sideOf(const Box& box) const;

 private:
  double at(int row, const Vec3& p) const {
    const auto r = static_cast<std::size_t>(row);
    return mMatrix[r] * p.x + mMatrix[4 + r] * p.y + mMatrix[8 + r] * p.z + mMatrix[12 + r];
  }

  facetbox::Matrix mMatrix;
  const Placement* mPlacement;
  // Of the whole way: coefficients of x, y, z and 1 by rows, and the sums of the magnitudes of what they are made of.
  double mRows[4][4], mSizes[4][4];
};

/// The value of w - x, w + x, w - y, ... at a point.
inline double planeAt(int plane, const ClipPoint& p) {
  const double x = plane < 2 ? p.x : plane < 4 ? p.y : p.z;
  return plane % 2 == 0 ? p.w - x : p.w + x;
}

/// Whether a triangle has a point in the volume.
bool touchesVolume(const ClipPoint (&corners)[3]);

}  // namespace util
