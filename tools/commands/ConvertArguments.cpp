#include <tools/commands/Commands.h>

#include <memory>

#include <CLI/CLI.hpp>

#include <tools/ConvertCommand.h>
#include <tools/commands/Options.h>

namespace tool {
namespace {

constexpr const char* kFooter =
    R"(What is skipped in the file that is read, and what the other format cannot carry, is counted and said. When the
model goes to standard output, it is said on standard error.

Exit codes: 0 done, 1 failed (cannot write), 2 bad model or bad arguments.)";

}  // namespace

void addConvert(CLI::App& app, Action& action) {
  const auto options = std::make_shared<ConvertOptions>();
  CLI::App* convert = app.add_subcommand("convert", "Write a model in another format");
  convert
      ->add_option("IN", options->mInput,
                   "File to read: .obj, .ply, .off, .stl, .gltf, .glb, .json; - is standard input")
      ->required();
  convert
      ->add_option("OUT", options->mOutput,
                   "File to write: .obj, .ply, .off, .stl, .gltf, .glb, .json; - is standard output")
      ->required();
  addFormat(*convert, "--from", "Format of IN, whatever its name", options->mFrom);
  addFormat(*convert, "--to", "Format of OUT, likewise", options->mTo);
  convert->add_flag("--json", options->mJson, "Print JSON");
  convert->footer(kFooter);
  convert->callback([&action, options] { action = [options] { return runConvert(*options); }; });
}

}  // namespace tool
