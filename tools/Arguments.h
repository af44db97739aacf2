#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <tools/Vector.h>

namespace tool {

using Color = std::array<std::uint8_t, 3>;  ///< red, green, blue

/// A whole number of 0 or more. @throws InputError that names `option`
std::size_t parseCount(const std::string& text, const std::string& option);

/// `count` finite numbers between commas. @throws InputError that names `option`
std::vector<double> parseNumbers(const std::string& text, const std::string& option, std::size_t count);

/// Three of them. @throws InputError
Vector parseVector(const std::string& text, const std::string& option);

/// A picture's size as WIDTHxHEIGHT, each from 1 to 16384. @throws InputError
std::array<int, 2> parseSize(const std::string& text, const std::string& option);

/// "#rrggbb", "white" or "black". @throws InputError
Color parseColor(const std::string& text, const std::string& option);

}  // namespace tool
