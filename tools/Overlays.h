#pragma once

#include <tools/Arguments.h>
#include <tools/Camera.h>
#include <tools/PngFile.h>

namespace tool {

/// Draws the directions of x, y and z into the lower left corner.
void paintAxes(Picture& picture, const Camera& camera, const Color& background);

/// Draws a bar of a round length into the lower right corner. In the picture it is as long as one that lies at the
/// point looked at, across the view.
/// @param scale  length of a unit of the model in the scene
void paintScaleBar(Picture& picture, const Camera& camera, double scale, const Color& background);

/// The largest of 1, 2 and 5 times a power of ten that is not above `length`, which is positive.
double roundLengthBelow(double length);

}  // namespace tool
