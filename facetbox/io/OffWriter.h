#pragma once

#include <facetbox/io/Model.h>
#include <facetbox/io/WriteContext.h>

namespace facetbox {

/// Writes OFF as text, see docs/off-files.md.
void writeOff(const Model& model, WriteContext& context);

}  // namespace facetbox
