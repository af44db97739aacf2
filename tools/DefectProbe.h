#pragma once

#include <tools/MeshFacts.h>
#include <tools/Model.h>

namespace tool {

/// Vertices closer than this part of the bounding box's diagonal count as nearly the same.
constexpr double kNearlySame = 1e-4;

/// Fills in the facts that the library's own operations know best, by running them on records made for the question:
/// mDuplicateVertices, mNearlyDuplicateVertices and mDoubleFaces. The other facts must be there already.
/// The model must have passed checkModel().
void probeDefects(const Model& model, MeshFacts& facts);

}  // namespace tool
