#include <tools/commands/Commands.h>

#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include <tools/Arguments.h>
#include <tools/RenderCommand.h>
#include <tools/commands/ViewOptions.h>

namespace tool {

namespace {

constexpr const char* kRenderFooter =
    R"(--show defects draws faces gray, and over them in colors and shapes of their own: edges of one face only (open),
of more than two (overused), and of two that both run in one direction; faces that --conform-normals of
`facetbox clean` would turn, that repeat another one, that have no area; holes that are none; edges without
length; vertices inside open edges (T-corners) and at the place of another one. What is hidden shows faintly. A
legend with counts is added below the picture; objects are looked at each on its own, as by `facetbox check`.)";

// Returns --show.
CLI::Option* addDefects(CLI::App& render, RenderOptions& options) {
  const auto show = [&options](const std::string&) {
    options.mDefects = true;
    options.mSettings.mColoring = Coloring::defects;
  };
  CLI::Option* const option =
      render.add_option_function<std::string>("--show", show, "Draw what is wrong with the model")
          ->type_name("defects")
          ->check(CLI::IsMember({"defects"}).description(""));
  render
      .add_flag("--self-intersections", options.mIntersections,
                "With --show defects: also faces that intersect, which takes longer")
      ->needs(option);
  return option;
}

}  // namespace

void addRender(CLI::App& app, Action& action) {
  const auto shared = std::make_shared<RenderOptions>();
  RenderOptions& options = *shared;
  CLI::App* render = app.add_subcommand("render", "Draw a model into a PNG picture; the backs of faces are red");
  addModel(*render, options.mModel, options.mFrom);
  render->add_option("-o,--output", options.mOutput, "File to write: .png; - is standard output")
      ->required()
      ->type_name("OUT");
  addCamera(*render, options.mCamera, options.mSettings.mSize);
  const auto chooseColors = [&options](const std::string& by) {
    options.mSettings.mColoring = by == "normal" ? Coloring::normals : Coloring::entries;
    options.mGrouping = by == "face" ? Grouping::face : by == "material" ? Grouping::material : Grouping::object;
  };
  CLI::Option* const by =
      render->add_option_function<std::string>("--by", chooseColors, "What colors tell apart (default: object)")
          ->type_name("object|face|material|normal")
          ->check(CLI::IsMember({"object", "face", "material", "normal"}).description(""));
  render->add_flag("--wireframe", options.mSettings.mWireframe, "Draw the edges of all faces");
  addParsed(*render, "--background", "white|black|#RRGGBB", "Color of the background (default: white)",
            options.mSettings.mBackground, parseColor);
  render->add_option("--samples", options.mSettings.mSamples, "Rays per pixel, in each direction: 1 to 4 (default: 2)")
      ->type_name("N")
      ->check(CLI::Range(1, 4).description(""));
  render->add_flag("--axes", options.mSettings.mAxes, "Draw the directions of x, y and z");
  render->add_flag("--scale-bar", options.mSettings.mScaleBar,
                   "Draw a bar with its length, which holds at the point looked at");
  addDefects(*render, options)->excludes(by);
  render
      ->add_option("--compare", options.mOther,
                   "Another model, drawn to the right with the same camera; each has the --size asked for")
      ->type_name("OTHER");
  render->add_flag("--json", options.mJson, "Print JSON: what was drawn, and from where");
  render->footer(kRenderFooter);
  render->callback([&action, shared] { action = [shared] { return runRender(*shared); }; });
}

}  // namespace tool
