#pragma once

#include <filesystem>

#include <facetbox/io/Model.h>
#include <facetbox/io/ReadContext.h>

namespace facetbox {

/// Reads a format that only the import library knows. Its post-processing is off, so polygons stay polygons. It keeps
/// coordinates as floats, which is noted.
/// @throws ReadError
Model importModel(const std::filesystem::path& path, ReadContext& context);

}  // namespace facetbox
