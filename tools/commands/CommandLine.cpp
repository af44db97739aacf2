#include <tools/commands/CommandLine.h>

#include <cstdio>
#include <string>

#include <CLI/CLI.hpp>

#include <facetbox/version.h>
#include <tools/commands/ParseErrors.h>

namespace tool {

std::unique_ptr<CLI::App> makeCommandLine(Action& action) {
  auto app = std::make_unique<CLI::App>("Inspects, cleans and draws polygon models", "facetbox");
  app->set_version_flag("--version", std::string("facetbox ") + facetbox::version());
  app->require_subcommand(1);
  for (const auto add : {addInfo, addCheck, addClean, addConvert, addRender, addPick, addSelect, addQuery})
    add(*app, action);
  return app;
}

ExitCode runCommandLine(int argc, char** argv) {
  Action action;
  const std::unique_ptr<CLI::App> app = makeCommandLine(action);
  try {
    app->parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return static_cast<ExitCode>(app->exit(error));  // help was asked for
    throw InputError(sentenceOf(error, *app));
  }
  const ExitCode code = action();
  if (std::fflush(stdout) != 0) throw RunError("standard output: cannot be written");
  return code;
}

}  // namespace tool
