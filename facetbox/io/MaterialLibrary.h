#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <facetbox/io/Model.h>
#include <facetbox/io/Output.h>

namespace facetbox {

/// The materials of a library (.mtl): `Kd` and `d` or `Tr` are the color, `map_Kd` is the texture, the statements of a
/// material make up its definition, a line each.
/// @param name  of the file in messages
/// @throws ReadError "name:line: ..."
std::vector<Material> parseMaterialLibrary(std::string_view text, const std::string& name);

/// Writes a material into a library.
/// @param keepsDefinition  its definition is in the words of such a library: it is written as it stands, but for color
///   and texture where these have changed
void writeMaterial(const Material& material, bool keepsDefinition, Output& output);

}  // namespace facetbox
