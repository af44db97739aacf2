#pragma once

#include <tools/MeshFacts.h>
#include <tools/Model.h>

namespace tool {

/// Vertices closer than this fraction of the bounding box's diagonal count as nearly the same.
constexpr double kNearlySame = 1e-4;

/// Fills in mDuplicateVertices, mNearlyDuplicateVertices and mDoubleFaces by running the library's own operations on
/// records made for this purpose. The other facts must be present.
/// The model must have passed checkModel().
void probeDefects(const Model& model, MeshFacts& facts);

}  // namespace tool
