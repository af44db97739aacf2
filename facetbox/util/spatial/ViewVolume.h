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
  bool meets(const Vec3& centre, const Vec3& half) const;
  /// Likewise; a box that is empty on any axis meets nothing.
  bool meets(const Box& box) const;

  /// The unit outward normal of face i, of six; normal times the point that its plane goes through; and the largest of
  /// normal times any of the eight corners. Boxes whose inner sphere lies below all six offsets meet the volume; those
  /// wholly above a farthest one do not, but for rounding.
  Vec3 normal(std::size_t i) const { return mFaces[i].normal; }
  double offset(std::size_t i) const { return mPlanes[i / 2].offset[i % 2]; }
  double farthest(std::size_t i) const { return mPlanes[i / 2].farthest[i % 2]; }
  /// The largest coordinate by absolute value; infinite where no conclusions must be drawn from the planes.
  double size() const { return mSize; }

 private:
  /// Two numbers at a time.
  using Pair = double __attribute__((vector_size(16)));
  /// What two neighbouring faces have: coordinates of the unit outward normals and their sizes, normal times the point
  /// that the plane goes through, the largest of normal times any of the eight corners.
  struct TwoFaces {
    Pair normalX, normalY, normalZ, sizeX, sizeY, sizeZ, offset, farthest;
  };
  struct Face {
    Vec3 normal, size;
    double low, high;  // of normal times the face's corners
  };

  /// Outward normals of two surface triangles, of any length, and the bounds of normal times a point behind them.
  struct TwoTriangles {
    Pair normalX, normalY, normalZ, sizes, offset;  // sizes: the sums of the normals' coordinates' sizes
  };

  double marginFor(const Vec3& centre, const Vec3& half) const;
  bool isCertainlyBehindAllTriangles(const Vec3& p, double margin) const;
  bool certainlyTouchesSurface(const Vec3& centre, const Vec3& half, double margin) const;
  bool touchesSurface(const Vec3& centre, const Vec3& half, double margin) const;

  std::array<Vec3, 8> mCorners;
  std::array<TwoFaces, 3> mPlanes;
  std::array<Face, 6> mFaces;
  std::array<TwoTriangles, 6> mTriangles;
  bool mHasSlivers;  // triangles so thin that the direction of their normals is not certain
  double mSize;      // the largest coordinate by absolute value; infinite where shortcuts must not be taken
};

}  // namespace util
