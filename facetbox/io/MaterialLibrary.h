#pragma once

#include <functional>
#include <string>
#include <string_view>

#include <facetbox/io/Model.h>
#include <facetbox/io/Output.h>
#include <facetbox/io/ReadContext.h>

namespace facetbox {

/// Hands out the materials of a library (.mtl): `Kd` and `d` or `Tr` are the color, `map_Kd` is the texture, the
/// statements of a material make up its definition, a line each. A last line without an end is noted.
/// @param name  of the file in messages
/// @throws ReadError "name:line: ...", before any material is handed out; Cancelled
void parseMaterialLibrary(std::string_view text, const std::string& name, ReadContext& context,
                          const std::function<void(Material&&)>& add);

/// Writes a material into a library.
/// @param keepsDefinition  its definition is in the words of such a library: it is written as it stands, but for color
///   and texture where these have changed
void writeMaterial(const Material& material, bool keepsDefinition, Output& output);

}  // namespace facetbox
