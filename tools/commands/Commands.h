#pragma once

#include <functional>

#include <CLI/App.hpp>

#include <tools/Errors.h>

namespace tool {

/// What the command line asks for. Returns the exit code.
using Action = std::function<ExitCode()>;

// Each adds a command with its arguments and its help. When the command is chosen, it sets `action`.

void addInfo(CLI::App& app, Action& action);
void addCheck(CLI::App& app, Action& action);
void addClean(CLI::App& app, Action& action);
void addConvert(CLI::App& app, Action& action);
void addRender(CLI::App& app, Action& action);
void addPick(CLI::App& app, Action& action);
void addSelect(CLI::App& app, Action& action);
void addQuery(CLI::App& app, Action& action);

}  // namespace tool
