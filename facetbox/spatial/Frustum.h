#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>

namespace util {

/// The volume that eight corners span, made ready for many questions.
///
/// Corners 0 to 3 follow each other along the near face, counter-clockwise seen from outside; 4 to 7 lie behind them
/// on the far face. Corners in another order do no harm, but then boxes deep inside are missed, or boxes that lie
/// inside all six planes are found far off.
///
/// For one thread at a time: what few questions need is worked out when one comes.
class Frustum {
 public:
  explicit Frustum(const Vec3 corners[8]);

  /// Whether a box meets the volume: its inner sphere, of its smallest half-extent, lies strictly inside all six
  /// planes, or one of the twelve triangles of the volume's surface overlaps it.
  ///
  /// Only boxes near the surface are put to the triangles: where rounding cannot matter, the planes decide.
  bool meets(const Vec3& center, const Vec3& half) const;
  /// Likewise; a box that is empty on any axis meets nothing.
  bool meets(const Box& box) const;

  /// Whether the volume's surface is known to have a point that is deeper in the box than the margin: then it meets
  /// this box, and each box around it whose own margin is no larger. False where that is not known.
  bool certainlyTouches(const Vec3& center, const Vec3& half, double margin) const;
  /// The same, for a point of one face, and a box that is known to lie below kClear of all planes but that of the face.
  bool certainlyCrosses(std::size_t face, const Vec3& center, const Vec3& half, double margin) const;
  /// How far a box must lie below a plane to be clear of it, relative to the volume's size. Corners that were rounded
  /// to floats, and moved outward because of it, leave faces that are flat to a tenth of this.
  static constexpr double kClear = 0x1p-17;  // 7.6e-6
  /// More than all that rounding can do with this box.
  double marginFor(const Vec3& center, const Vec3& half) const;

  /// inside: certainly of all planes, and so meets the volume; beyond: of a plane, and meets nothing.
  enum class Side { inside, unsure, beyond };
  Side sideOf(const Box& box) const;

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

 private:
  /// Two numbers at a time.
  using Pair = double __attribute__((vector_size(16)));
  static Pair largerOf(Pair a, Pair b) { return a > b ? a : b; }
  static Pair sizesOf(Pair a) { return largerOf(a, -a); }
  /// What two neighbouring faces have: coordinates of the unit outward normals and their sizes, normal times the point
  /// that the plane goes through, the largest of normal times any of the eight corners, the bounds of normal times the
  /// face's own, and the largest of normal times the others.
  struct TwoFaces {
    Pair normalX, normalY, normalZ, sizeX, sizeY, sizeZ, offset, farthest, low, high, behind;

    Pair heightsOf(const Vec3& p) const { return normalX * p.x + normalY * p.y + normalZ * p.z; }
    Pair reachesOf(const Vec3& half) const { return sizeX * half.x + sizeY * half.y + sizeZ * half.z; }
  };

  /// A surface triangle, for finding the point of it that is next to another; to be worked out, of no use, or known.
  struct Triangle {
    enum class State : unsigned char { unknown, sliver, known } state = State::unknown;
    Vec3 start, first, second;   // its corner, and two edges from there
    Vec3 firstPart, secondPart;  // by which a point is told in parts of the edges
  };

  void makePlanes();
  bool isProper() const;
  void make(Triangle& triangle, const std::array<std::size_t, 3>& corners) const;
  bool hasPointIn(std::size_t face, const Vec3& center, const Vec3& half, double margin) const;
  bool touchesSurface(const Vec3& center, const Vec3& half, double margin) const;

  std::array<Vec3, 8> mCorners;
  std::array<TwoFaces, 3> mPlanes;
  mutable std::array<std::array<Triangle, 2>, 6> mTriangles;
  mutable enum class Proper : unsigned char { unknown, yes, no } mProper = Proper::unknown;
  double mSize;  // the largest coordinate by absolute value; infinite where shortcuts must not be taken
};

}  // namespace util
