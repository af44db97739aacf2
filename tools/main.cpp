#include <array>
#include <cstdio>
#include <exception>
#include <limits>
#include <map>
#include <new>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <signal.h>
#include <CLI/CLI.hpp>

#include <facetbox/io/files.h>
#include <facetbox/version.h>
#include <tools/Arguments.h>
#include <tools/CleanCommand.h>
#include <tools/Errors.h>
#include <tools/InfoCommand.h>
#include <tools/PickCommands.h>
#include <tools/QueryCommand.h>
#include <tools/RenderCommand.h>
#include <tools/Steps.h>

namespace {

using tool::CameraOptions;
using tool::CleanOptions;
using tool::Coloring;
using tool::Grouping;
using tool::InfoOptions;
using tool::PickOptions;
using tool::QueryOptions;
using tool::RenderOptions;
using tool::SelectOptions;
using tool::StepList;
using tool::ViewOptions;

constexpr double kAnyLength = std::numeric_limits<double>::max();
constexpr double kLargestAngle = 180;

constexpr const char* kCleanFooter =
    R"(Steps run in the order given; a step may be given several times. Lengths and areas are in the units of the
model. A switch affects the steps after it, up to the next such switch; one without such a step is an error.

--all LENGTH stands for: --merge-vertices LENGTH, --remove-zero-edges LENGTH, --remove-zero-area AREA,
--remove-double, --conform-normals, --remove-coplanar ANGLE, --remove-colinear ANGLE, and the same again
where there is more to do. AREA is 1e-12 of the squared bounding-box diagonal. ANGLE is the angle that moves
the end of a line by LENGTH if the line is a tenth of the diagonal long; it is at least 0.01 and at most 1
degree. Unlike the same steps one by one, it keeps faces without which a closed model would be open.

The report shows what each step changes; '.' is nothing. Open edges have one face only. A volume is shown
where all objects are closed and oriented. 'changes of input' is what was no face or no hole from the start.
Notes tell what to look at. Face numbers count from 1 over the whole file.

Groups ('g') mark faces, as materials do. They are kept and count as attributes.
Holes are read from and written to comment lines '# facetbox:holes OUTER HOLE...'. The numbers are face
numbers, counted from 1 over the whole file.

Exit codes: 0 done, 1 failed (nothing left, cannot write), 2 bad model or bad arguments.)";

constexpr const char* kSelectFooter =
    R"(--volume gives a block or a frustum: corners 1 to 4 go around the near face, corners 5 to 8 lie behind them
in the same order. Without --volume, the volume is what `facetbox render` would show with the same --eye,
--look-at, --up, --fov and --size, or the part of it that --window cuts out.

An object is listed if one of its faces touches the volume.)";

constexpr const char* kQueryFooter =
    R"(Answers one question about each object separately:
--raster       do all vertices and edges of its triangles lie on pixels of the picture that are not black, and
               between the near and the far plane?
--ray          where does the ray hit it?
--nearest      which of its points in the view volume is nearest, and on which triangle?
none of these  does it touch the view volume? With --inside: does it lie in it completely?

The view volume is given as for `facetbox select`. With --raster, it is what `facetbox render` would show with
the same --eye, --look-at, --up and --fov, in a picture of the size of the raster.)";

void addModel(CLI::App& command, std::string& model) {
  command.add_option("MODEL", model, "File to read: .obj, .ply, .off, .stl, .gltf or .glb")->required();
}

void addInfo(CLI::App& app, InfoOptions& options) {
  CLI::App* info = app.add_subcommand("info", "Show what is in a model: counts, materials, defects");
  addModel(*info, options.mModel);
  info->add_flag("--json", options.mJson, "Print JSON instead of a table");
}

// Collects the steps in the order of the command line.
class StepCollector {
 public:
  StepCollector(CLI::App& clean, StepList& steps) : mClean(clean), mSteps(steps) {}

  void addAll() {
    using namespace facetbox;
    addStep("--merge-vertices", "LENGTH", "Weld vertices that are up to LENGTH apart", kAnyLength,
            [](double length) { return MergeVertices{length}; });
    addStep("--remove-colinear", "DEGREES", "Remove corners that are straight within DEGREES", kLargestAngle,
            [](double degrees) { return RemoveColinear{degrees}; });
    addStep("--remove-coplanar", "DEGREES", "Merge adjacent faces whose planes differ by up to DEGREES", kLargestAngle,
            [](double degrees) { return MergeCoplanar{degrees}; });
    addStep("--remove-double", "Remove faces that repeat another face", RemoveDoubleFaces{});
    addStep("--remove-zero-area", "AREA", "Remove faces with an area below AREA", kAnyLength,
            [](double area) { return RemoveZeroFaces{area}; });
    addStep("--remove-zero-edges", "LENGTH", "Collapse edges shorter than LENGTH", kAnyLength,
            [](double length) { return RemoveZeroEdges{length}; });
    addStep("--conform-normals", "Orient adjacent faces alike and closed parts outward", ConformNormals{});
    addValue("--all", "LENGTH", "All steps in a sensible order, see below", kAnyLength,
             [this](double length) { mSteps.addPreset(length); });
    using Switch = StepList::Switch;
    addSwitch("--keep-texture-mapping", "--remove-colinear keeps corners where the texture bends (default)",
              Switch::keepTextureMapping, true);
    addSwitch("--ignore-texture-mapping", "--remove-colinear compares positions only", Switch::keepTextureMapping,
              false);
    addSwitch("--compare-attributes",
              "--remove-coplanar and --remove-double need equal material, group and texture (default)",
              Switch::compareAttributes, true);
    addSwitch("--ignore-attributes", "--remove-coplanar and --remove-double compare positions only",
              Switch::compareAttributes, false);
  }

 private:
  template <typename Make>
  void addStep(const std::string& name, const std::string& unit, const std::string& help, double largest, Make make) {
    addValue(name, unit, help, largest, [this, make](double value) { mSteps.add(make(value)); });
  }

  void addStep(const std::string& name, const std::string& help, const facetbox::Step& step) {
    mClean
        .add_flag_callback(
            name, [this, step] { mSteps.add(step); }, help)
        ->trigger_on_parse()
        ->group("Steps");
  }

  template <typename Action>
  void addValue(const std::string& name, const std::string& unit, const std::string& help, double largest,
                Action action) {
    const auto parse = [name, largest, action](const std::string& text) {
      action(tool::parseTolerance(text, name, largest));
    };
    mClean.add_option_function<std::string>(name, parse, help)->type_name(unit)->trigger_on_parse()->group("Steps");
  }

  void addSwitch(const std::string& name, const std::string& help, StepList::Switch which, bool value) {
    mClean
        .add_flag_callback(
            name, [this, which, value, name] { mSteps.set(which, value, name); }, help)
        ->trigger_on_parse()
        ->group("Switches");
  }

  CLI::App& mClean;
  StepList& mSteps;
};

CLI::App* addClean(CLI::App& app, CleanOptions& options) {
  CLI::App* clean = app.add_subcommand("clean", "Clean a model and write the result as OBJ");
  addModel(*clean, options.mModel);
  clean->add_option("-o,--output", options.mOutput, "File to write: .obj")->required()->type_name("OUT");
  clean->add_flag("--join", options.mJoin, "Clean all objects as one, instead of each on its own");
  clean->add_flag("--triangulate", options.mTriangulate,
                  "At the end, turn all faces into triangles, for programs that cannot read holes");
  clean->footer(kCleanFooter);
  return clean;
}

// An option whose text `parse` reads.
template <typename Value, typename Parse>
CLI::Option* addParsed(CLI::App& command, const std::string& name, const std::string& unit, const std::string& help,
                       Value& target, Parse parse) {
  const auto take = [name, &target, parse](const std::string& text) { target = parse(text, name); };
  return command.add_option_function<std::string>(name, take, help)->type_name(unit);
}

void addGrouping(CLI::App& command, Grouping& grouping) {
  const std::map<std::string, Grouping> names = {
      {"object", Grouping::object}, {"face", Grouping::face}, {"material", Grouping::material}};
  command.add_option("--by", grouping, "What counts as one object: object (default), face or material")
      ->type_name("WHAT")
      ->transform(CLI::CheckedTransformer(names).description(""));
}

// Returns the --size option.
CLI::Option* addCamera(CLI::App& command, CameraOptions& options, std::array<int, 2>& size) {
  addParsed(command, "--eye", "X,Y,Z", "Where to look from (default: a point that sees the whole model)", options.mEye,
            tool::parseVector);
  addParsed(command, "--look-at", "X,Y,Z", "What to look at (default: the center)", options.mLookAt, tool::parseVector);
  addParsed(command, "--up", "X,Y,Z", "Up direction (default: 0,1,0)", options.mUp, tool::parseVector);
  command.add_option("--fov", options.mFieldOfView, "Angle from the lower to the upper edge (default: 40)")
      ->type_name("DEGREES")
      ->check(CLI::Range(1.0, 150.0).description(""));
  return addParsed(command, "--size", "WxH", "Size of the picture in pixels (default: 640x480)", size, tool::parseSize);
}

// The options of a view that do not belong to its camera.
struct ViewArguments {
  CLI::Option *mVolume, *mSize, *mWindow;
};

ViewArguments addView(CLI::App& command, ViewOptions& options) {
  const auto parseVolume = [](const std::string& text, const std::string& name) {
    const std::vector<double> n = tool::parseNumbers(text, name, 24);
    std::array<tool::Vector, 8> corners;
    for (std::size_t k = 0; k < corners.size(); ++k) corners[k] = {n[3 * k], n[3 * k + 1], n[3 * k + 2]};
    return corners;
  };
  const auto parseWindow = [](const std::string& text, const std::string& name) {
    const std::vector<double> n = tool::parseNumbers(text, name, 4);
    return std::array{n[0], n[1], n[2], n[3]};
  };
  CLI::Option* const volume =
      addParsed(command, "--volume", "X,Y,Z,...", "Eight corners of a block or a frustum: see `facetbox select --help`",
                options.mVolume, parseVolume);
  CLI::Option* const size = addCamera(command, options.mCamera, options.mSize);
  CLI::Option* const window =
      addParsed(command, "--window", "LEFT,TOP,RIGHT,BOTTOM", "Part of the picture (default: 0,0,1,1, all of it)",
                options.mWindow, parseWindow);
  return {volume, size, window};
}

void addRender(CLI::App& app, RenderOptions& options, std::array<int, 2>& size) {
  CLI::App* render = app.add_subcommand("render", "Draw a model into a PNG picture; the backs of faces are red");
  addModel(*render, options.mModel);
  render->add_option("-o,--output", options.mOutput, "File to write: .png")->required()->type_name("OUT");
  addCamera(*render, options.mCamera, size);
  const auto chooseColors = [&options](const std::string& by) {
    options.mSettings.mColoring = by == "normal" ? Coloring::normals : Coloring::entries;
    options.mGrouping = by == "face" ? Grouping::face : by == "material" ? Grouping::material : Grouping::object;
  };
  render->add_option_function<std::string>("--by", chooseColors, "Color by object (default), face, material or normal")
      ->type_name("WHAT")
      ->check(CLI::IsMember({"object", "face", "material", "normal"}).description(""));
  render->add_flag("--wireframe", options.mSettings.mWireframe, "Draw the edges of all faces");
  addParsed(*render, "--background", "COLOR", "#rrggbb, white (default) or black", options.mSettings.mBackground,
            tool::parseColor);
  render->add_option("--samples", options.mSettings.mSamples, "Rays per pixel, in each direction: 1 to 4 (default: 2)")
      ->type_name("N")
      ->check(CLI::Range(1, 4).description(""));
}

template <typename Take>
CLI::Option* addRay(CLI::App& command, const std::string& help, Take take) {
  const auto parse = [take](const std::string& text) {
    const std::vector<double> n = tool::parseNumbers(text, "--ray", 6);
    take(tool::Vector{n[0], n[1], n[2]}, tool::Vector{n[3], n[4], n[5]});
  };
  return command.add_option_function<std::string>("--ray", parse, help)->type_name("X,Y,Z,DX,DY,DZ");
}

void addPick(CLI::App& app, PickOptions& options) {
  CLI::App* pick = app.add_subcommand("pick", "Show what a ray hits first");
  addModel(*pick, options.mModel);
  const auto takeRay = [&options](const tool::Vector& origin, const tool::Vector& direction) {
    options.mOrigin = origin;
    options.mDirection = direction;
  };
  addRay(*pick, "Where the ray starts, and its direction", takeRay)->required();
  addGrouping(*pick, options.mGrouping);
  pick->add_flag("--json", options.mJson, "Print JSON");
}

void addSelect(CLI::App& app, SelectOptions& options) {
  CLI::App* select = app.add_subcommand("select", "List what lies in a view volume");
  addModel(*select, options.mModel);
  addView(*select, options.mView);
  select->add_flag("--inside", options.mWholeInside, "Only what lies in the volume completely");
  addGrouping(*select, options.mGrouping);
  select->add_flag("--json", options.mJson, "Print JSON");
  select->footer(kSelectFooter);
}

void addQuery(CLI::App& app, QueryOptions& options) {
  CLI::App* query = app.add_subcommand("query", "Test each object separately against a mask, a view volume or a ray");
  addModel(*query, options.mModel);
  CLI::Option* const raster =
      query->add_option("--raster", options.mRaster, "The mask: pixels that are not black are set")
          ->type_name("MASK.png");
  query->add_option("-o,--output", options.mOutput, "Draw the answer: edges outside the mask are red")
      ->type_name("OUT.png")
      ->needs(raster);
  const auto takeRay = [&options](const tool::Vector& origin, const tool::Vector& direction) {
    options.mRay = {origin, direction};
  };
  CLI::Option* const ray = addRay(*query, "Where the ray starts, and its direction", takeRay);
  CLI::Option* const nearest = query->add_flag("--nearest", options.mWantsNearest, "The nearest point in the volume");
  CLI::Option* const inside =
      query->add_flag("--inside", options.mWholeInside, "Whether the object lies in the volume completely");
  CLI::Option* const writeMask =
      query->add_option("--write-mask", options.mWriteMask, "Only draw the model as a mask for --raster")
          ->type_name("OUT.png");
  const ViewArguments view = addView(*query, options.mView);
  for (CLI::Option* const other : {ray, nearest, inside, writeMask, view.mVolume, view.mWindow, view.mSize})
    raster->excludes(other);
  for (CLI::Option* const other : {nearest, inside, writeMask, view.mVolume, view.mWindow, view.mSize})
    ray->excludes(other);
  for (CLI::Option* const other : {nearest, inside, view.mVolume, view.mWindow}) writeMask->excludes(other);
  nearest->excludes(inside);
  addGrouping(*query, options.mGrouping);
  query->add_flag("--json", options.mJson, "Print JSON");
  query->footer(kQueryFooter);
}

int runProgram(int argc, char** argv) {
  CLI::App app("Inspects, cleans and draws polygon models", "facetbox");
  app.set_version_flag("--version", std::string("facetbox ") + facetbox::version());
  app.require_subcommand(1);
  InfoOptions infoOptions;
  CleanOptions cleanOptions;
  RenderOptions renderOptions;
  PickOptions pickOptions;
  SelectOptions selectOptions;
  QueryOptions queryOptions;
  addInfo(app, infoOptions);
  StepList steps;
  StepCollector collector(*addClean(app, cleanOptions), steps);
  collector.addAll();
  std::array<int, 2> size{renderOptions.mSettings.mWidth, renderOptions.mSettings.mHeight};
  addRender(app, renderOptions, size);
  addPick(app, pickOptions);
  addSelect(app, selectOptions);
  addQuery(app, queryOptions);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? tool::kExitOk : tool::kExitBadInput;
  }
  renderOptions.mSettings.mWidth = size[0];
  renderOptions.mSettings.mHeight = size[1];
  if (app.got_subcommand("info")) tool::runInfo(infoOptions);
  if (app.got_subcommand("clean")) {
    cleanOptions.mRequests = steps.finish();
    tool::runClean(cleanOptions);
  }
  if (app.got_subcommand("render")) tool::runRender(renderOptions);
  if (app.got_subcommand("pick")) tool::runPick(pickOptions);
  if (app.got_subcommand("select")) tool::runSelect(selectOptions);
  if (app.got_subcommand("query")) tool::runQuery(queryOptions);
  if (std::fflush(stdout) != 0) throw tool::RunError("standard output: cannot be written");
  return tool::kExitOk;
}

extern "C" void removeUnfinishedAndEnd(int signalNumber) {
  facetbox::removeUnfinishedFiles();
  // The handler runs only once: now the signal has its default effect.
  raise(signalNumber);
}

void catchEndingSignals() {
  for (const int signalNumber : {SIGHUP, SIGINT, SIGTERM}) {
    struct sigaction old = {}, action = {};
    sigaction(signalNumber, nullptr, &old);
    // A signal that was ignored at the start stays ignored, as nohup expects.
    if (old.sa_handler == SIG_IGN) continue;
    action.sa_handler = removeUnfinishedAndEnd;
    action.sa_flags = SA_RESETHAND;
    sigaction(signalNumber, &action, nullptr);
  }
}

// Without a formatter that throws: the stream itself may be broken.
int fail(const char* what, tool::ExitCode code) {
  std::fputs("facetbox: ", stderr);
  std::fputs(what, stderr);
  std::fputc('\n', stderr);
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  catchEndingSignals();
  try {
    return runProgram(argc, argv);
  } catch (const tool::InputError& error) {
    return fail(error.what(), tool::kExitBadInput);
  } catch (const facetbox::ReadError& error) {
    return fail(error.what(), tool::kExitBadInput);
  } catch (const std::bad_alloc&) {
    return fail("out of memory", tool::kExitFailure);
  } catch (const std::exception& error) {
    return fail(error.what(), tool::kExitFailure);
  }
}
