#include <tools/commands/Commands.h>

#include <memory>

#include <CLI/CLI.hpp>

#include <tools/InfoCommand.h>
#include <tools/commands/Options.h>

namespace tool {

void addInfo(CLI::App& app, Action& action) {
  const auto shared = std::make_shared<InfoOptions>();
  InfoOptions& options = *shared;
  CLI::App* info = app.add_subcommand("info", "Show what is in a model: counts, materials, defects");
  addModels(*info, options.mModels, options.mFrom);
  info->add_flag("--json", options.mJson, "Print JSON instead of a table");
  info->callback([&action, shared] { action = [shared] { return runInfo(*shared); }; });
}

}  // namespace tool
