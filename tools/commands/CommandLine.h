#pragma once

#include <memory>

#include <CLI/App.hpp>

#include <tools/commands/Commands.h>

namespace tool {

/// All commands with their arguments and help. Parsing sets `action`, which has to outlive the result.
std::unique_ptr<CLI::App> makeCommandLine(Action& action);

/// Does what a command line asks for. @throws InputError, RunError, facetbox::ReadError, facetbox::WriteError
ExitCode runCommandLine(int argc, char** argv);

}  // namespace tool
