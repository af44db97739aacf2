#pragma once

#include <string_view>

#include <facetbox/io/Model.h>
#include <facetbox/io/ReadContext.h>

namespace facetbox {

/// Reads OFF with what may stand before these letters, in text and in bytes, see docs/off-files.md.
///
/// - Faces have any number of corners. The color of a face becomes its material.
/// - Vertices may have normals, which are noted, colors and texture coordinates.
/// - In text, a vertex or a face is a line; '#' begins a comment; a last face without a line end is noted. In bytes,
/// the
///   highest comes first.
/// @throws ReadError
Model parseOff(std::string_view bytes, ReadContext& context);

}  // namespace facetbox
