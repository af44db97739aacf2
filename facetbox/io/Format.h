#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include <facetbox/util/Export.h>

namespace facetbox {

/// A file format that is read and written.
enum class Format { obj, ply, off, stl, gltf, glb, cityJson };

/// The format that the end of a name stands for, in letters of either case: .obj, .ply, .off, .stl, .gltf, .glb,
/// .json and .cityjson.
FACETBOX_EXPORT std::optional<Format> formatOf(const std::filesystem::path& path);

/// The format of that name: obj, ply, off, stl, gltf, glb, cityjson.
FACETBOX_EXPORT std::optional<Format> formatNamed(std::string_view name);

/// Its name, as formatNamed() takes it.
FACETBOX_EXPORT const char* nameOf(Format format);

}  // namespace facetbox
