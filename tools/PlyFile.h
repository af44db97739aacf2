#pragma once

#include <string>
#include <string_view>

#include <tools/Model.h>

namespace tool {

/// Reads PLY 1.0, as text and as bytes of either order: polygons of any size, coordinates as doubles.
///
/// - Properties come in any order, with types of either family of names (uchar, uint8). Faces may come before vertices.
/// - Texture coordinates are the face list `texcoord`, two numbers per corner, or else the vertex properties s and t,
///   u and v, texture_u and texture_v, or texture_s and texture_t. A face with an empty list has none.
/// - Other elements and properties are read over and counted in Model::mIgnored.
/// - A line of text holds one vertex, face or other element; blank lines are allowed. Numbers are read in full,
/// whatever
///   type is declared for them. The last one must be followed by white space: without, it may have lost digits.
///
/// It takes memory of less than ten times the size of the file, whatever the file declares.
///
/// @param text  the whole file
/// @param name  name of the file in messages
/// @throws InputError "name:line: ..." (header and text) or "name: byte n: ..." with n counted from 0: a file that is
///   cut short or goes on after its last element, indices out of range, faces without corners, numbers that are not
///   finite, whatever the header lacks; "name: ..." when there is no face at all
Model parsePly(std::string_view text, const std::string& name);

}  // namespace tool
