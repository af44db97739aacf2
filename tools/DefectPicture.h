#pragma once

#include <cstdint>
#include <string>

#include <tools/Arguments.h>
#include <tools/Camera.h>
#include <tools/DefectMarks.h>
#include <tools/FacePool.h>
#include <tools/PngFile.h>
#include <tools/SampleGrid.h>

namespace tool {

/// The color of edges of faces under defects.
inline constexpr Color kDimEdge{150, 154, 160};

/// The model with kinds of defects in place of its materials, so that a scene by material has an entry for each kind.
FacePool withDefectKinds(FacePool model, const DefectMarks& marks);

/// The color of faces of such an entry. Sound faces are gray, so that defects stand out.
/// @param id  of the entry
Color faceColorOf(std::uint32_t id, bool isBack);

/// Draws the marks over the picture of a scene. What faces hide shows faintly: a defect is nowhere lost.
void paintDefects(Picture& picture, const DefectMarks& marks, const Frame& scene, const SampleGrid& grid,
                  const Camera& camera);

/// What the marks mean, and how many there are of each kind.
/// @param width        of the result
/// @param entryWidth   at least legendEntryWidth() of what is drawn beside each other
/// @param intersections  whether these were looked for
Picture drawLegend(const DefectMarks& marks, int width, int entryWidth, bool intersections, const Color& background);

/// The width of one entry of the legend, in pixels.
int legendEntryWidth(const DefectMarks& marks);

}  // namespace tool
