#pragma once

#include <string_view>

#include <facetbox/io/Model.h>
#include <facetbox/io/ReadContext.h>

namespace facetbox {

/// Reads PLY 1.0, as text and as bytes of either order: polygons of any size, coordinates as doubles.
///
/// - Properties come in any order, with types of either family of names (uchar, uint8). Faces may come before vertices.
/// - Texture coordinates are the face list `texcoord`, two numbers per corner, or else the vertex properties s and t,
///   u and v, texture_u and texture_v, or texture_s and texture_t. A face with an empty list has none.
/// - The vertex properties red, green, blue and alpha are colors: bytes to 255, shorts to 65535, floats to 1.
/// - Other elements and properties are read over and noted.
/// - A line of text holds one vertex, face or other element; blank lines are allowed. Numbers are read in full,
/// whatever
///   type is declared for them. The last one must be followed by white space: without, it may have lost digits.
/// @throws ReadError: a file that is cut short or goes on after its last element, indices out of range, faces without
///   corners, numbers that are not finite, whatever the header lacks
Model parsePly(std::string_view bytes, ReadContext& context);

}  // namespace facetbox
