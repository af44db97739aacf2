#pragma once

#include <string>

namespace tool {

/// The content of a file. @throws InputError where it cannot be read or is empty
std::string readFile(const std::string& path);

}  // namespace tool
