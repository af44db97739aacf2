#pragma once

#include <facetbox/util/Export.h>

namespace facetbox {

/// Computes the eight corners of the view volume of a view-projection matrix, in the order that Picker::pickFrustum()
/// expects: 0 to 3 along the near face, counter-clockwise seen from outside, 4 to 7 behind them on the far face.
///
/// The matrix maps the volume onto the cube from (-1, -1, -1) to (1, 1, 1), after division by w; the near plane is at
/// -1. For a window that is part of the view, multiply the matrix from the left by the scaling and translation that
/// stretch the window over the cube. Corner 0 appears at the lower left. If the matrix mirrors, the other corners run
/// the other way around, so that they are still counter-clockwise in the world.
///
/// The corners enclose the volume: they are moved outward so that rounding to floats loses no part of it, usually by
/// less than a thousandth of the near or far face. However, the edges of these faces are at least 512 times as long as
/// the distance by which rounding may move their ends, which is 2^-24 of the largest coordinate times sqrt(3). The
/// picker rejects the extra space again when it tests an object with the matrix.
///
/// Works for perspective and parallel views, with any depth direction. Takes a few microseconds.
///
/// @param matrix   16 floats, column-major
/// @param corners  x, y, z per corner
/// @return false, with `corners` untouched, if there are no such corners: the matrix is not finite, or singular within
///         the rounding of its floats; a corner lies at infinity (there is no far plane), behind the eye or beyond the
///         range of floats; or floats cannot enclose the volume
FACETBOX_EXPORT bool viewVolumeCorners(const float matrix[16], float corners[24]) noexcept;

}  // namespace facetbox
