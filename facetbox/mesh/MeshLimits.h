#pragma once

namespace util {

/// The limits of operations that no caller hands in. As they stand, they are absolute numbers in the mesh's unit.
struct MeshLimits {
  double mHoleGapSq = 6.4e-7;  ///< square of the distance below which corners of a hole and of its outer face touch
  bool mIsHoleGapRelative = false;  ///< mHoleGapSq is a part of the squared diagonal of the outer face's box
  double mSliverArea = 1e-6;        ///< a collapse of edges deletes faces smaller than this
  double mLargeTolerance = 0.15;    ///< a weld with a larger tolerance guards faces against turning over

  /// Limits that are parts of what they are applied to. Scaling by a power of two scales them exactly.
  /// @param meshDiagonal  of the box around the mesh
  static MeshLimits relativeTo(double meshDiagonal) {
    return {1e-12, true, 1e-12 * (meshDiagonal * meshDiagonal), 3e-4 * meshDiagonal};
  }

  /// The square of the gap at an outer face, given the squared diagonal of the face's box.
  double holeGapSq(double outerDiagonalSq) const {
    return mIsHoleGapRelative ? mHoleGapSq * outerDiagonalSq : mHoleGapSq;
  }
};

}  // namespace util
