#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include <facetbox/math/Box.h>
#include <facetbox/math/Lanes.h>
#include <facetbox/math/Vec3.h>

namespace util {

/// A view volume, spanned by eight corners, for frustum culling of many axis-aligned boxes.
///
/// Corners 0 to 3 follow each other along the near face, counter-clockwise seen from outside; corner k + 4 lies behind
/// corner k on the far face. Corners in another order do no harm, but the answers are those of the formula for meets().
///
/// Not thread-safe, not even its const functions: they compute what few questions need on demand.
class Frustum {
 public:
  explicit Frustum(const Vec3 corners[8]);

  /// Whether a box meets the volume: its inner sphere, whose radius is the smallest half-extent, lies strictly inside
  /// all six planes, or one of the twelve triangles of the volume's surface overlaps it (overlapsBox()).
  ///
  /// The planes decide where rounding cannot matter. Only boxes near the surface are put to the triangles.
  bool meets(const Vec3& center, const Vec3& half) const;
  /// The same. A box that is empty on an axis meets nothing.
  bool meets(const Box& box) const;

  /// Whether the corners span a convex hexahedron, well away from all that rounding can make of it. Then the surface
  /// passes through each box that holds, by a margin, a point that is below all planes by kDeviation times the volume's
  /// magnitude, and one that is above a plane by as much. This box meets the volume, and so does each box around it
  /// whose own margin is no larger.
  bool isConvex() const { return mIsConvex; }
  /// viewVolumeCorners(), which rounds corners to floats, leaves faces flat to a fifth of this.
  static constexpr double kDeviation = 0x1p-18;  // 3.8e-6
  /// Whether a box holds a point above a plane, in this sense.
  bool reachesOut(const Vec3& center, const Vec3& half, double margin) const;
  /// Whether the volume is convex and the box holds points of both kinds. A search, which may miss them.
  bool surfacePassesThrough(const Vec3& center, const Vec3& half, double margin) const;

  /// More than all that rounding can do with this box.
  double marginFor(const Vec3& center, const Vec3& half) const;
  /// That margin, relative to the sum of the magnitudes of volume and box. Derived in Frustum.cpp.
  static constexpr double kMargin = 0x1p-21;  // 4.8e-7

  /// The largest margin of a box, in magnitudes of the volume, that a box inside counts for: a box around it, smaller
  /// by this margin on all sides, still holds a point below all planes in the sense of isConvex().
  static constexpr double kLargestMargin = 4 * kMargin;
  /// inside: of all planes, so that the box meets the volume; outside: of one plane, so that it does not.
  enum class Side { inside, unsure, outside };
  Side sideOf(const Box& box) const;

  /// The unit outward normal of face i, of six.
  Vec3 normal(std::size_t i) const {
    const FacePair& pair = mFaces[i / 2];
    return {pair.normalX[i % 2], pair.normalY[i % 2], pair.normalZ[i % 2]};
  }
  /// The height of a face's plane: the product of its normal and its first corner. A box whose inner sphere lies below
  /// all six offsets meets the volume.
  double offset(std::size_t i) const { return mFaces[i / 2].offset[i % 2]; }
  /// The largest height of all eight corners along the normal. A box above it does not meet the volume, but for
  /// rounding.
  double farthest(std::size_t i) const { return mFaces[i / 2].farthest[i % 2]; }
  /// The largest coordinate by absolute value; infinite where rounding is not under control, so that nothing may be
  /// concluded from the planes.
  double magnitude() const { return mMagnitude; }

 private:
  static Double2 max(Double2 a, Double2 b) { return a > b ? a : b; }
  static Double2 magnitudesOf(Double2 a) { return max(a, -a); }
  /// Two opposite faces. Their unit outward normals, the magnitudes of these, and heights along them: of the plane, of
  /// the highest of all corners, of the face's lowest and highest corner, and of the opposite face's highest.
  struct FacePair {
    Double2 normalX, normalY, normalZ, magnitudeX, magnitudeY, magnitudeZ;
    Double2 offset, farthest, low, high, opposite;

    Double2 heightsOf(const Vec3& p) const { return normalX * p.x + normalY * p.y + normalZ * p.z; }
    /// How far a box reaches from its center, up and down.
    Double2 reachesOf(const Vec3& half) const {
      return magnitudeX * half.x + magnitudeY * half.y + magnitudeZ * half.z;
    }
  };

  /// A triangle of the surface, prepared for the search of its point that is nearest to another.
  struct Triangle {
    enum class State : unsigned char { unprepared, sliver, prepared } state = State::unprepared;
    Vec3 start, edgeU, edgeV;
    Vec3 gradientU, gradientV;  // of the barycentric coordinates: p = start + u edgeU + v edgeV
  };

  void prepareFaces();
  void measureFaces();
  void prepare(Triangle& triangle, const std::array<std::size_t, 3>& corners) const;
  bool findsPointIn(std::size_t face, const Vec3& center, const Vec3& half, double margin) const;
  bool surfaceOverlaps(const Vec3& center, const Vec3& half, double margin) const;

  std::array<Vec3, 8> mCorners;
  Vec3 mAxisStart, mAxis, mAxisPart;  // from the middle of the near face to that of the far one; by its squared length
  std::array<FacePair, 3> mFaces;
  mutable std::array<std::array<Triangle, 2>, 6> mTriangles;
  double mMagnitude;
  double mDeviation;  // the largest of a corner from the plane of its face
  bool mIsConvex;
};

}  // namespace util
