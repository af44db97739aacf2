#pragma once

#include <string>

#include <CLI/App.hpp>

namespace tool {

/// What is wrong with a command line, as a plain sentence that names the argument, and the nearest one where a name was
/// mistyped.
/// @param app  that has thrown it
std::string sentenceOf(const CLI::ParseError& error, const CLI::App& app);

}  // namespace tool
