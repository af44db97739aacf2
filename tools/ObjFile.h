#pragma once

#include <string>
#include <string_view>

#include <tools/Model.h>

namespace tool {

/// Reads Wavefront OBJ: polygons of any size, with separate texture indices, objects, groups and material runs.
///
/// - `o` starts an object. `g` marks faces, as `usemtl` does; it does not split an object.
/// - Names are the rest of their line, byte for byte; bare `usemtl`, `g` and `g default` mean none.
/// - Negative indices, lines continued by a backslash, CRLF, comments after a statement and indices of vertices that
///   follow later are supported. Only the first three numbers of `v` and the first two of `vt` are used.
/// - `# facetbox:holes OUTER HOLE...` makes faces holes of face OUTER; faces are counted from 1 over the whole file.
/// - A face with texture coordinates on some corners only is read as one without.
/// - Normals and smoothing groups are dropped. Other statements are skipped and counted in Model::mIgnored.
///
/// @param text  the whole file
/// @param name  name of the file in messages
/// @throws InputError "name:line: what is wrong, what to do": malformed or non-finite numbers, indices that are zero or
///   out of range, faces without corners, malformed hole lines; "name: ..." when there is no face at all
Model parseObj(std::string_view text, const std::string& name);

/// The model as OBJ text, numbers in the shortest form that reads back as the same double.
/// Objects are written one after the other. Each has the vertices from its first one up to the next object's first.
std::string formatObj(const Model& model);

}  // namespace tool
