#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include <tools/Vector.h>

namespace tool {

/// To standard output.
void print(const std::string& text);

/// As indented text with a final newline; bytes that are not UTF-8 are replaced.
std::string dumped(const nlohmann::ordered_json& json);

/// With six digits, for people: the library's queries return floats, so further digits mean little.
std::string shown(double value);
std::string shown(const Vector& v);

/// In full, for programs; never -0.
nlohmann::ordered_json inFull(double value);
nlohmann::ordered_json inFull(const Vector& v);

/// Rounds tiny coordinates to 0; they are only the rounding errors of floats.
/// @param scale  the length of a unit of `point` where the whole model is of size 1
Vector snapped(const Vector& point, double scale);

}  // namespace tool
