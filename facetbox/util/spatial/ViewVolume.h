#pragma once

#include <array>
#include <cstddef>

#include <facetbox/util/math/Box.h>
#include <facetbox/util/math/Vec3.h>

namespace util {

/// The volume that eight corners span, made ready for many questions.
///
/// Corners 0 to 3 follow each other along the near face, counter-clockwise seen from outside; 4 to 7 lie behind them
/// on the far face. Corners in another order do no harm, but then boxes deep inside are missed, or boxes that lie
/// inside all six planes are found far off.
class ViewVolume {
 public:
  explicit ViewVolume(const Vec3 corners[8]);

  /// Whether a box meets the volume: its inner sphere, of its smallest half-extent, lies strictly inside all six
  /// planes, or one of the twelve triangles of the volume's surface overlaps it.
  ///
  /// Only boxes near the surface are put to the triangles: where rounding cannot matter, the planes decide.
  bool meets(const Vec3& centre, const Vec3& half) const { return meeting(centre, half) != Meeting::none; }
  /// Likewise; a box that is empty on any axis meets nothing.
  bool meets(const Box& box) const { return meeting(box) != Meeting::none; }

  /// firm: the surface goes through the box, and so clearly that each box around it meets the volume as well, if its
  /// coordinates are not above firmSize().
  enum class Meeting { none, some, firm };
  Meeting meeting(const Vec3& centre, const Vec3& half) const;
  Meeting meeting(const Box& box) const;
  double firmSize() const { return 2 * mSize; }

  /// Whether the planes bound the volume, as they do for a proper one: what lies below all offsets by the margin is
  /// inside, and a box with one point there and another above a farthest one, by the margin, meets the volume firmly.
  bool isHull() const { return mIsHull; }
  /// Whether a box around another, which is well inside a hull, meets the volume firmly.
  bool reachesOut(const Vec3& centre, const Vec3& half) const;

  /// Coordinates of the unit outward normal of face i, of six; normal times the point that its plane goes through; and
  /// the largest of normal times any of the eight corners. Boxes whose inner sphere lies below all six offsets meet the
  /// volume; those wholly above a farthest one do not, but for rounding.
  Vec3 normal(std::size_t i) const {
    const TwoFaces& two = mPlanes[i / 2];
    return {two.normalX[i % 2], two.normalY[i % 2], two.normalZ[i % 2]};
  }
  double offset(std::size_t i) const { return mPlanes[i / 2].offset[i % 2]; }
  double farthest(std::size_t i) const { return mPlanes[i / 2].farthest[i % 2]; }
  /// The largest coordinate by absolute value; infinite where no conclusions must be drawn from the planes.
  double size() const { return mSize; }
  /// What must lie between two numbers for rounding not to matter, relative to the sum of the sizes of volume and box.
  static constexpr double kMargin = 0x1p-21;  // 4.8e-7
  static constexpr double kFirmMargin = 3 * kMargin;

 private:
  /// Two numbers at a time.
  using Pair = double __attribute__((vector_size(16)));
  static Pair largerOf(Pair a, Pair b) { return a > b ? a : b; }
  static Pair smallerOf(Pair a, Pair b) { return a < b ? a : b; }
  static Pair sizesOf(Pair a) { return largerOf(a, -a); }
  /// What two neighbouring faces have: coordinates of the unit outward normals and their sizes, normal times the point
  /// that the plane goes through, the largest of normal times any of the eight corners, and the bounds of normal times
  /// the face's own.
  struct TwoFaces {
    Pair normalX, normalY, normalZ, sizeX, sizeY, sizeZ, offset, farthest, low, high;

    Pair heightsOf(const Vec3& p) const { return normalX * p.x + normalY * p.y + normalZ * p.z; }
    Pair reachesOf(const Vec3& half) const { return sizeX * half.x + sizeY * half.y + sizeZ * half.z; }
  };
  /// Outward normals of two surface triangles, of any length, and the bounds of normal times a point behind them.
  struct TwoTriangles {
    Pair normalX, normalY, normalZ, sizes, offset;  // sizes: the sums of the normals' coordinates' sizes
  };

  void makePlanes();
  void makeTriangles();
  bool isBounded() const;
  double sizeOf(const Vec3& centre, const Vec3& half) const;
  bool isCertainlyBehindAllTriangles(const Vec3& p, double margin) const;
  bool holdsPointInside(const Vec3& centre, const Vec3& half, double margin) const;
  bool touchesSurface(const Vec3& centre, const Vec3& half, double margin) const;

  std::array<Vec3, 8> mCorners;
  Vec3 mAxisStart, mAxis;  // from the middle of the near face's corners to that of the far one's
  double mInverseAxisLengthSq;
  std::array<TwoFaces, 3> mPlanes;
  std::array<TwoTriangles, 6> mTriangles;
  bool mHasSlivers;  // triangles so thin that the direction of their normals is not certain
  bool mIsHull;
  double mSize;  // the largest coordinate by absolute value; infinite where shortcuts must not be taken
};

}  // namespace util
