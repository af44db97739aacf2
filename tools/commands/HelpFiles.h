#pragma once

#include <string>

#include <CLI/App.hpp>

namespace tool {

// What --help says, in other forms. All are made from the definitions of the commands, so none can fall behind.

/// The page for `man`, in the macros of man(7).
std::string manPage(const CLI::App& app, const std::string& version);

/// Completes commands, options and file names in bash.
std::string bashCompletion(const CLI::App& app);

/// The same in zsh, with descriptions.
std::string zshCompletion(const CLI::App& app);

}  // namespace tool
