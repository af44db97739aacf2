#pragma once

#include <facetbox/util/Export.h>

namespace facetbox {

/// The eight corners of the volume that a view-projection matrix shows, in the order that Picker::pickFrustum() wants:
/// 0 to 3 along the near face, counter-clockwise seen from outside, 4 to 7 behind them on the far face.
///
/// The volume is what the matrix maps into the cube from (-1, -1, -1) to (1, 1, 1) after division by w; near is -1.
/// For a window that is part of the view, multiply the matrix from the left by the scaling and translation that
/// stretch the window over the cube. Corner 0 is the one that shows at the lower left; with a matrix that mirrors,
/// the others run round the other way, so that they are still counter-clockwise in the world.
///
/// The matrix is inverted by cofactors in doubles.
///
/// @param matrix   16 floats, column-major
/// @param corners  x, y, z per corner
/// @return false, and `corners` untouched, where there are no such corners: the matrix is singular or not finite, or a
///         corner lies at infinity, behind the eye or beyond the range of floats
FACETBOX_EXPORT bool viewVolumeCorners(const float matrix[16], float corners[24]) noexcept;

}  // namespace facetbox
