#pragma once

#include <cstdint>
#include <limits>

#include <facetbox/base/Processor.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/TriangleBvh.h>

namespace util {

/// A point as a hierarchy's boxes and triangles see it in unit coordinates: how far away they are, eight at a time.
///
/// Boxes, in floats. Let c be the point's closest one in the cube from -1 to 1, D what the point is away from it along
/// an axis, and e what a box is away from c. Then the box is D + e away from the point, and the squared distance
/// exceeds that of the cube by the sum of e (e + 2 D) over the axes. Only this excess is computed: so nothing is lost
/// however far the point is. Rounding: c is off by half an ulp of 1, and exact where D > 0; that moves the point by
/// less than sqrt(3) 2^-25. All terms are positive, and e, 2 D, their sum, the product and the sums round once each: an
/// excess is too large by less than 8 2^-24 of itself. excessLimit() allows for both, so what exceeds it is farther
/// away.
///
/// Triangles, in doubles. Their corners and edges are rounded to floats, which moves none of their points by more than
/// sqrt(3) (2^-25 + 2^-24). The least of the distances to the edges and of that to the plane, where the foot is inside,
/// is off by what the signs and the normal of a sliver are. With h its height, L <= 2 sqrt(3) its length, R the
/// distance to a corner and k a small number, the normal is off by k u L / h of itself, and so the foot by k u R L / h,
/// u = 2^-53; but then an edge is within h of it. So the foot is off by sqrt(k u R L) at most, and the distance d by
/// that or, far away where R is about d, by k u L. kTriangleError allows for k = 400.
class UnitPoint {
 public:
  static constexpr int kWidth = TriangleBvh::kWidth;

  /// Finite: a box without points exceeds it.
  static constexpr float kNoLimit = std::numeric_limits<float>::max();

  /// What the functions below read.
  struct Data {
    float inCube[3], twiceBeyond[3];
    double at[3];
  };

  /// @param point  finite
  explicit UnitPoint(const Vec3& point, Instructions instructions = Instructions::best);

  /// The largest excess of boxes that are at most so far away; kNoLimit at most.
  float excessLimit(double distance) const;
  /// The same for the squared distances of triangles.
  static double triangleLimit(double distance) {
    constexpr double kRounding = 0x1p-44;
    return (distance + kTriangleError) * (distance + kTriangleError) * (1 + kRounding);
  }

  /// The children of a node whose boxes are within the limit, as bits.
  /// @param excess  receives that of all
  unsigned childrenWithin(const TriangleBvh::Node& node, float limit, float excess[kWidth]) const {
    return mFunctions->childrenWithin(mData, node, limit, excess);
  }
  /// The child whose box is nearest; of a node that has one.
  int nearestChild(const TriangleBvh::Node& node) const { return mFunctions->nearestChild(mData, node); }
  /// The triangles of a block that may be within the limit, as bits.
  /// @param distanceSq  receives that of all, about
  unsigned trianglesWithin(const TriangleBvh::Block& block, double limit, double distanceSq[kWidth]) const {
    return mFunctions->trianglesWithin(mData, block, limit, distanceSq);
  }

  struct Functions {
    unsigned (*childrenWithin)(const Data&, const TriangleBvh::Node&, float, float*);
    int (*nearestChild)(const Data&, const TriangleBvh::Node&);
    unsigned (*trianglesWithin)(const Data&, const TriangleBvh::Block&, double, double*);
  };

 private:
  static constexpr double kTriangleError = 0x1p-20;

  Data mData;
  double mCubeDistanceSq = 0;
  const Functions* mFunctions;
};

/// For processors with AVX2 and fused multiply-add, and for any.
extern const UnitPoint::Functions kPointDistancesAvx2, kPointDistancesBase;

}  // namespace util
