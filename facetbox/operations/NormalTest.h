#pragma once

#include <algorithm>
#include <cmath>

#include <facetbox/math/Angle.h>
#include <facetbox/math/Vec3.h>

namespace util {

/// Whether two unit normals differ by no more than an angle: angleBetween() decides, but only near the limit does it
/// have to be asked.
class NormalTest {
 public:
  explicit NormalTest(double toleranceDegrees)
      : mLimitDegrees(std::min(toleranceDegrees, kLargestTolerance) + kAngleSlack) {
    const double halfChord = std::sin(mLimitDegrees / kDegreesPerRadian / 2.0);
    mLimitChordSq = 4.0 * halfChord * halfChord;
    mLimitSine = std::sin(mLimitDegrees / kDegreesPerRadian);
  }

  /// Whether no normal at all is accepted beside both: by the triangle inequality, their chords would add up to theirs.
  bool areFarApart(const Vec3& a, const Vec3& b) const { return lengthSq(b - a) > 4.0 * mLimitChordSq * (1.0 + 1e-6); }

  bool accepts(const Vec3& a, const Vec3& b) const {
    // The chord grows with the angle; its square carries a relative error of a few parts in 2^53.
    const double chordSq = lengthSq(b - a);
    if (chordSq < mLimitChordSq * (1.0 - kChordError)) return true;
    if (chordSq > mLimitChordSq * (1.0 + kChordError)) return false;
    return angleBetween(a, b) * kDegreesPerRadian <= mLimitDegrees;
  }

  /// Whether a direction, of any length, leaves the plane of a normal by no more than the angle.
  bool staysInPlane(const Vec3& direction, const Vec3& normal) const {
    return std::fabs(dot(direction, normal)) <= mLimitSine * length(direction);
  }

 private:
  static constexpr double kLargestTolerance = 89.0;
  static constexpr double kAngleSlack = 1e-6;  // degrees; covers the rounding of normals that are equal on paper
  static constexpr double kDegreesPerRadian = 57.29577951308232;
  static constexpr double kChordError = 1e-9;  // relative, of the square; far above what rounding gives

  double mLimitDegrees;
  double mLimitChordSq;
  double mLimitSine;
};

}  // namespace util
