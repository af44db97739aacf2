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
/// The corners lie around the volume by as much as it takes for all of it to be found in spite of rounding to floats:
/// mostly less than a thousandth of its near and far face; but edges of these faces are at least 512 times as long as
/// rounding may move their ends, 2^-24 of the largest coordinate times sqrt(3). What passes too much fails the matrix.
///
/// Perspective or parallel, with depths in whatever direction. Some microseconds.
///
/// @param matrix   16 floats, column-major
/// @param corners  x, y, z per corner
/// @return false, and `corners` untouched, where there are no such corners: the matrix is singular or not finite, also
///         within the rounding of its floats; or a corner lies at infinity (a far plane there is none), behind the eye
///         or beyond the range of floats; or floats cannot enclose the volume
FACETBOX_EXPORT bool viewVolumeCorners(const float matrix[16], float corners[24]) noexcept;

}  // namespace facetbox
