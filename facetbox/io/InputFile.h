#pragma once

#include <filesystem>

#include <facetbox/base/Buffer.h>

namespace facetbox {

/// As readFile(), into memory that nothing has filled before.
util::Buffer<char> readBytes(const std::filesystem::path& path);

}  // namespace facetbox
