#pragma once

#include <string>

namespace tool {

/// All that is in a file. @throws InputError where it cannot be read, or holds nothing
std::string readFile(const std::string& path);

}  // namespace tool
