#include <tools/commands/Commands.h>

#include <array>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include <tools/Arguments.h>
#include <tools/RenderCommand.h>
#include <tools/commands/ViewOptions.h>

namespace tool {

void addRender(CLI::App& app, Action& action) {
  const auto shared = std::make_shared<RenderOptions>();
  RenderOptions& options = *shared;
  const auto size = std::make_shared<std::array<int, 2>>();
  *size = {options.mSettings.mWidth, options.mSettings.mHeight};
  CLI::App* render = app.add_subcommand("render", "Draw a model into a PNG picture; the backs of faces are red");
  addModel(*render, options.mModel);
  render->add_option("-o,--output", options.mOutput, "File to write: .png")->required()->type_name("OUT");
  addCamera(*render, options.mCamera, *size);
  const auto chooseColors = [&options](const std::string& by) {
    options.mSettings.mColoring = by == "normal" ? Coloring::normals : Coloring::entries;
    options.mGrouping = by == "face" ? Grouping::face : by == "material" ? Grouping::material : Grouping::object;
  };
  render->add_option_function<std::string>("--by", chooseColors, "Color by object (default), face, material or normal")
      ->type_name("WHAT")
      ->check(CLI::IsMember({"object", "face", "material", "normal"}).description(""));
  render->add_flag("--wireframe", options.mSettings.mWireframe, "Draw the edges of all faces");
  addParsed(*render, "--background", "COLOR", "#rrggbb, white (default) or black", options.mSettings.mBackground,
            parseColor);
  render->add_option("--samples", options.mSettings.mSamples, "Rays per pixel, in each direction: 1 to 4 (default: 2)")
      ->type_name("N")
      ->check(CLI::Range(1, 4).description(""));
  render->callback([&action, shared, size] {
    shared->mSettings.mWidth = (*size)[0];
    shared->mSettings.mHeight = (*size)[1];
    action = [shared] {
      runRender(*shared);
      return kExitOk;
    };
  });
}

}  // namespace tool
