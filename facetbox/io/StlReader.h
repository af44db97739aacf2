#pragma once

#include <string_view>

#include <facetbox/io/Model.h>
#include <facetbox/io/ReadContext.h>

namespace facetbox {

/// Reads STL in text and in bytes, see docs/stl-files.md. Bytes are known by the size of the file, since these may
/// begin with "solid" too.
///
/// Corners at the same position become one vertex per object. Normals are noted where they do not fit the corners, and
/// attributes where they are not zero.
/// @throws ReadError
Model parseStl(std::string_view bytes, ReadContext& context);

}  // namespace facetbox
