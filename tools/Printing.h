#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include <tools/Vector.h>

namespace tool {

/// To standard output.
void print(const std::string& text);

/// As text, indented, with a line's end; bytes that are not UTF-8 replaced.
std::string dumped(const nlohmann::ordered_json& json);

/// With six digits: the library's queries count in floats, and more would say nothing.
std::string shown(double value);
std::string shown(const Vector& v);
nlohmann::ordered_json rounded(double value);
nlohmann::ordered_json rounded(const Vector& v);

/// Without what floats round off, which would show as odd numbers near 0.
/// @param scale  the length of a unit of `point` where the whole model is of size 1
Vector snapped(const Vector& point, double scale);

}  // namespace tool
