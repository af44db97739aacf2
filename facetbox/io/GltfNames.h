#pragma once

#include <string>
#include <string_view>

namespace facetbox {

/// Corners as integers: nothing has to be done for it.
inline constexpr std::string_view kQuantization = "KHR_mesh_quantization";

/// Whether an extension concerns nothing but how surfaces look; it is kept with the materials.
inline bool isMaterialExtension(std::string_view name) {
  return (name.starts_with("KHR_materials_") && name != "KHR_materials_variants") || name.starts_with("KHR_texture_") ||
         name.starts_with("EXT_texture_");
}

/// Whether geometry is read as meant in a file that requires the extension.
inline bool isUnderstoodExtension(std::string_view name) {
  return isMaterialExtension(name) || name == kQuantization || name == "KHR_lights_punctual";
}

/// Text of a file as messages show it: in quotes, short and printable.
std::string gltfQuoted(std::string_view text);

/// The name of a file that a relative URI stands for, and back: %20 is a space.
std::string fromUri(std::string_view uri);
std::string toUri(std::string_view name);

}  // namespace facetbox
