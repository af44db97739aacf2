#pragma once

#include <facetbox/io/Model.h>
#include <facetbox/io/WriteContext.h>

namespace facetbox {

/// Writes PLY: bytes in the order of this machine, or text where the options say so. See docs/ply-files.md.
void writePly(const Model& model, WriteContext& context);

}  // namespace facetbox
