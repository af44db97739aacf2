#pragma once

#include <facetbox/io/Model.h>
#include <facetbox/io/WriteContext.h>

namespace facetbox {

/// Writes STL: bytes, or text where the options say so. See docs/stl-files.md.
void writeStl(const Model& model, WriteContext& context);

}  // namespace facetbox
