#pragma once

#include <string_view>

#include <facetbox/io/Model.h>
#include <facetbox/io/ReadContext.h>

namespace facetbox {

/// Reads OBJ, see docs/obj-files.md.
/// @throws ReadError with the line or byte
Model parseObj(std::string_view bytes, ReadContext& context);

}  // namespace facetbox
