#pragma once

#include <string_view>

#include <facetbox/io/Model.h>
#include <facetbox/io/ReadContext.h>

namespace facetbox {

/// Reads glTF 2.0, as JSON or GLB: the bytes tell which. See docs/gltf-files.md.
/// @throws ReadError with the byte
Model parseGltf(std::string_view bytes, ReadContext& context);

}  // namespace facetbox
