#pragma once

#include <cstdint>
#include <span>

#include <facetbox/math/Vec3.h>

namespace util {

/// Twice the area vector of a polygon, by the right-hand rule. Turned by flipFace(), the polygon gives the same bits
/// with the other sign.
Vec3 doubleAreaOf(std::span<const Vec3> points, std::span<const std::uint32_t> corners);

/// Adds up what tells on which side of a piece of surface outside is.
///
/// A face counts as the cone from its outline to the mean of its corners, so the volumes of closed pieces are exact.
/// Everything that faces add is the same when they are turned but for the sign, bit for bit, and so are the sums.
class PieceMeasure {
 public:
  /// @param origin  a point of the piece, from which it is measured
  explicit PieceMeasure(const Vec3& origin) : mOrigin(origin) {}

  /// Adds to what closedVolumeSign() looks at, and to nothing else.
  /// @param isReversed  whether the face counts as if it were turned
  void addVolume(std::span<const Vec3> points, std::span<const std::uint32_t> corners, bool isReversed);
  /// The sign of a closed piece's volume, or 0 within the rounding of its sum.
  int closedVolumeSign() const;

  /// Adds to what the functions below look at.
  /// @param isHole       whether the face's area is taken off
  /// @param isReversed   whether the face counts as if it were turned, because it is a rim
  /// @param runsAgainst  whether its surface has to be turned to run like the first one
  void add(std::span<const Vec3> points, std::span<const std::uint32_t> corners, bool isHole, bool isReversed,
           bool runsAgainst);
  /// The sign of an open piece's volume around its center of gravity, or 0 where it does not tell clearly.
  int openVolumeSign() const;
  /// Whether no more of the area runs against the first face than like it.
  bool hasMajority() const;

 private:
  const Vec3 mOrigin;
  // All of twice the area, the volume six times, places relative to the origin.
  Vec3 mVectorArea{0, 0, 0}, mMoment{0, 0, 0};
  double mArea = 0, mSecondMoment = 0, mVolume = 0, mMajority = 0;
  double mTermSize = 0;  // of the volume's terms, before what cancels within them
  double mCount = 0;
};

}  // namespace util
