#include <cstdio>
#include <exception>
#include <limits>
#include <new>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <facetbox/version.h>
#include <tools/CleanCommand.h>
#include <tools/Errors.h>
#include <tools/InfoCommand.h>
#include <tools/Steps.h>

namespace {

using tool::CleanOptions;
using tool::InfoOptions;
using tool::Step;
using tool::StepKind;
using tool::StepRequest;

constexpr float kAnyLength = std::numeric_limits<float>::max();
constexpr float kLargestAngle = 180;

constexpr const char* kCleanFooter =
    R"(Steps run in the order in which they are given, each as often as it is given. Lengths and areas are in
the units of the model. The switches act on the steps behind them.

--all LENGTH stands for: --merge-vertices LENGTH, --remove-zero-edges LENGTH (left out below 0.001, as
it also drops every face below 1e-6 square units), --remove-zero-area LENGTH^2, --remove-double,
--conform-normals, --remove-coplanar ANGLE, --remove-colinear ANGLE. ANGLE is that at which a tenth of
the bounding-box diagonal moves its end by LENGTH, but at least 0.01 and at most 1 degree.

Groups ('g') mark faces as materials do: they survive, and count as attributes.
Holes are read from and written to comment lines '# facetbox:holes OUTER HOLE...', which name faces
counted from 1 over the whole file.

Exit codes: 0 done, 1 failed (nothing left, cannot write), 2 bad model or bad arguments.)";

void addInfo(CLI::App& app, InfoOptions& options) {
  CLI::App* info = app.add_subcommand("info", "Tell what is in a model: counts, materials, defects");
  info->add_option("MODEL", options.mModel, "File to read: .obj, .ply, .off, .stl, .gltf or .glb")->required();
  info->add_flag("--json", options.mJson, "Print JSON instead of a table");
}

// Collects the steps in the order of the command line; switches hold for the steps behind them.
class StepCollector {
 public:
  StepCollector(CLI::App& clean, CleanOptions& options) : mClean(clean), mOptions(options) {}

  void addAll() {
    addStep("--merge-vertices", "LENGTH", "Weld vertices up to LENGTH apart", StepKind::mergeVertices, kAnyLength);
    addStep("--remove-colinear", "DEGREES", "Remove corners that are straight up to DEGREES", StepKind::removeColinear,
            kLargestAngle);
    addStep("--remove-coplanar", "DEGREES", "Merge neighbouring faces whose planes differ by up to DEGREES",
            StepKind::removeCoplanar, kLargestAngle);
    addStep("--remove-double", "Remove faces that repeat another face", StepKind::removeDouble);
    addStep("--remove-zero-area", "AREA", "Remove faces smaller than AREA", StepKind::removeZeroArea, kAnyLength);
    addStep("--remove-zero-edges", "LENGTH", "Collapse edges shorter than LENGTH; drops faces below 1e-6 square units",
            StepKind::removeZeroEdges, kAnyLength);
    addStep("--conform-normals", "Orient neighbouring faces alike, closed parts outward", StepKind::conformNormals);
    addValue("--all", "LENGTH", "All steps in a sensible order, see below", kAnyLength, "Steps", [this](float length) {
      add({true, {StepKind::mergeVertices, length}, mKeepTextureMapping, mCompareAttributes});
    });
    addSwitch("--keep-texture-mapping", "--remove-colinear keeps corners that bend the texture (default)",
              mKeepTextureMapping, true);
    addSwitch("--ignore-texture-mapping", "--remove-colinear looks at positions alone", mKeepTextureMapping, false);
    addSwitch("--compare-attributes",
              "--remove-coplanar and --remove-double take only faces of like material, group and texture (default)",
              mCompareAttributes, true);
    addSwitch("--ignore-attributes", "--remove-coplanar and --remove-double look at positions alone",
              mCompareAttributes, false);
  }

 private:
  void add(const StepRequest& request) { mOptions.mRequests.push_back(request); }

  void addStep(StepKind kind, float value) {
    const bool flag = kind == StepKind::removeColinear ? mKeepTextureMapping : mCompareAttributes;
    add({false, Step{kind, value, flag}, mKeepTextureMapping, mCompareAttributes});
  }

  void addStep(const std::string& name, const std::string& unit, const std::string& help, StepKind kind,
               float largest) {
    addValue(name, unit, help, largest, "Steps", [this, kind](float value) { addStep(kind, value); });
  }

  void addStep(const std::string& name, const std::string& help, StepKind kind) {
    mClean
        .add_flag_callback(
            name, [this, kind] { addStep(kind, 0); }, help)
        ->trigger_on_parse()
        ->group("Steps");
  }

  template <typename Action>
  void addValue(const std::string& name, const std::string& unit, const std::string& help, float largest,
                const std::string& group, Action action) {
    const auto parse = [name, largest, action](const std::string& text) {
      action(tool::parseTolerance(text, name, largest));
    };
    mClean.add_option_function<std::string>(name, parse, help)->type_name(unit)->trigger_on_parse()->group(group);
  }

  void addSwitch(const std::string& name, const std::string& help, bool& target, bool value) {
    mClean
        .add_flag_callback(
            name, [&target, value] { target = value; }, help)
        ->trigger_on_parse()
        ->group("Switches");
  }

  CLI::App& mClean;
  CleanOptions& mOptions;
  bool mKeepTextureMapping = true;
  bool mCompareAttributes = true;
};

CLI::App* addClean(CLI::App& app, CleanOptions& options) {
  CLI::App* clean = app.add_subcommand("clean", "Clean a model and write the result as OBJ");
  clean->add_option("MODEL", options.mModel, "File to read: .obj, .ply, .off, .stl, .gltf or .glb")->required();
  clean->add_option("-o,--output", options.mOutput, "File to write: .obj")->required()->type_name("OUT");
  clean->add_flag("--join", options.mJoin, "Clean all objects as one; else each on its own");
  clean->footer(kCleanFooter);
  return clean;
}

int runProgram(int argc, char** argv) {
  CLI::App app("Looks at polygon models and cleans them", "facetbox");
  app.set_version_flag("--version", std::string("facetbox ") + facetbox::version());
  app.require_subcommand(1);
  InfoOptions infoOptions;
  CleanOptions cleanOptions;
  addInfo(app, infoOptions);
  StepCollector steps(*addClean(app, cleanOptions), cleanOptions);
  steps.addAll();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? tool::kExitOk : tool::kExitBadInput;
  }
  if (app.got_subcommand("info"))
    tool::runInfo(infoOptions);
  else
    tool::runClean(cleanOptions);
  if (std::fflush(stdout) != 0) throw tool::RunError("standard output: cannot be written");
  return tool::kExitOk;
}

// Not by a formatter that throws: the stream may be what is broken.
int fail(const char* what, tool::ExitCode code) {
  std::fputs("facetbox: ", stderr);
  std::fputs(what, stderr);
  std::fputc('\n', stderr);
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return runProgram(argc, argv);
  } catch (const tool::InputError& error) {
    return fail(error.what(), tool::kExitBadInput);
  } catch (const std::bad_alloc&) {
    return fail("out of memory", tool::kExitFailure);
  } catch (const std::exception& error) {
    return fail(error.what(), tool::kExitFailure);
  }
}
