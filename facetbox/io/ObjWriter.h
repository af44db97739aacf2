#pragma once

#include <facetbox/io/Model.h>
#include <facetbox/io/WriteContext.h>

namespace facetbox {

/// Writes OBJ and its material library, see docs/obj-files.md.
void writeObj(const Model& model, WriteContext& context);

}  // namespace facetbox
