#pragma once

#include <facetbox/io/Model.h>
#include <facetbox/io/WriteContext.h>

namespace facetbox {

/// Writes glTF 2.0, see docs/gltf-files.md: a node and a mesh per object, all in one file.
/// @param isBinary  GLB, else JSON with the numbers as base64
void writeGltf(const Model& model, bool isBinary, WriteContext& context);

}  // namespace facetbox
