#include <tools/commands/Commands.h>

#include <memory>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

#include <tools/CleanCommand.h>
#include <tools/Steps.h>
#include <tools/Tolerance.h>
#include <tools/commands/Options.h>

namespace tool {

namespace {

constexpr double kLargestAngle = 180;

constexpr const char* kCleanFooter =
    R"(Steps run in the order given; a step may be given several times. Lengths and areas are in the units of the
model. With % they are parts of the diagonal of the bounding box of each object, and of its square: 0.1% of a
diagonal of 20 is 0.02. A switch affects the steps after it, up to the next such switch; one without such a step
is an error.

--all LENGTH stands for: --merge-vertices LENGTH, --remove-zero-edges LENGTH, --remove-zero-area AREA,
--remove-double, --conform-normals, --remove-coplanar ANGLE, --remove-colinear ANGLE, and the same again
where there is more to do. AREA is 1e-12 of the squared bounding-box diagonal. ANGLE is the angle that moves
the end of a line by LENGTH if the line is a tenth of the diagonal long; it is at least 0.01 and at most 1
degree. Unlike the same steps one by one, it keeps faces without which a closed model would be open.

The report shows what each step changes; '.' is nothing. Open edges have one face only. A volume is shown
where all objects are closed and oriented. 'changes of input' is what was no face or no hole from the start.
Notes tell what to look at. Face numbers count from 1 over the whole file. When the model goes to standard
output, the report goes to standard error.

Objects are cleaned each on its own: vertices of different objects stay apart. The report tells how many more
--join would weld. With --join, faces keep their objects: they are split again on writing.

With several models, OUT is a folder: each result has the name of its model, with the ending that --to asks
for. A folder that is not there is made; that of the models themselves replaces them. A model that fails does
not stop the others.

Groups ('g') mark faces, as materials do. They are kept and count as attributes.
In OBJ, holes are read from and written to comment lines '# facetbox:holes OUTER HOLE...'. The numbers are face
numbers, counted from 1 over the whole file.

Exit codes: 0 done, 1 failed (nothing left, cannot write), 2 bad model or bad arguments. Of several models, the
code of the first that failed.)";

// Collects the steps in the order of the command line.
class StepCollector {
 public:
  StepCollector(CLI::App& clean, std::shared_ptr<StepList> steps) : mClean(clean), mSteps(std::move(steps)) {}

  void addAll() {
    using namespace facetbox;
    addStep("--merge-vertices", "LENGTH", "Weld vertices that are up to LENGTH apart",
            [](double length) { return MergeVertices{length}; });
    addAngle("--remove-colinear", "Remove corners that are straight within DEGREES",
             [](double degrees) { return RemoveColinear{degrees}; });
    addAngle("--remove-coplanar", "Merge adjacent faces whose planes differ by up to DEGREES",
             [](double degrees) { return MergeCoplanar{degrees}; });
    addStep("--remove-double", "Remove faces that repeat another face", RemoveDoubleFaces{});
    addStep("--remove-zero-area", "AREA", "Remove faces with an area below AREA",
            [](double area) { return RemoveZeroFaces{area}; });
    addStep("--remove-zero-edges", "LENGTH", "Collapse edges shorter than LENGTH",
            [](double length) { return RemoveZeroEdges{length}; });
    addStep("--conform-normals", "Orient adjacent faces alike and closed parts outward", ConformNormals{});
    addValue("--all", "LENGTH", "All steps in a sensible order, see below",
             [steps = mSteps](const std::string& text, const std::string& name) {
               steps->addPreset(parseTolerance(text, name));
             });
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
  // `make` takes a length or an area.
  template <typename Make>
  void addStep(const std::string& name, const std::string& unit, const std::string& help, Make make) {
    addValue(name, unit, help, [steps = mSteps, make](const std::string& text, const std::string& option) {
      const Tolerance tolerance = parseTolerance(text, option);
      steps->add(make(tolerance.mValue), tolerance.mIsRelative);
    });
  }

  template <typename Make>
  void addAngle(const std::string& name, const std::string& help, Make make) {
    addValue(name, "DEGREES", help, [steps = mSteps, make](const std::string& text, const std::string& option) {
      steps->add(make(parseNumber(text, option, kLargestAngle)));
    });
  }

  void addStep(const std::string& name, const std::string& help, const facetbox::Step& step) {
    mClean
        .add_flag_callback(
            name, [steps = mSteps, step] { steps->add(step); }, help)
        ->trigger_on_parse()
        ->group("Steps");
  }

  template <typename Take>
  void addValue(const std::string& name, const std::string& unit, const std::string& help, Take take) {
    const auto parse = [name, take](const std::string& text) { take(text, name); };
    mClean.add_option_function<std::string>(name, parse, help)->type_name(unit)->trigger_on_parse()->group("Steps");
  }

  void addSwitch(const std::string& name, const std::string& help, StepList::Switch which, bool value) {
    mClean
        .add_flag_callback(
            name, [steps = mSteps, which, value, name] { steps->set(which, value, name); }, help)
        ->trigger_on_parse()
        ->group("Switches");
  }

  CLI::App& mClean;
  std::shared_ptr<StepList> mSteps;
};

}  // namespace

void addClean(CLI::App& app, Action& action) {
  const auto options = std::make_shared<CleanOptions>();
  CLI::App* clean = app.add_subcommand("clean", "Clean models and write the results");
  addModels(*clean, options->mModels, options->mFrom);
  clean
      ->add_option("-o,--output", options->mOutput,
                   "File to write: .obj, .ply, .off, .stl, .gltf, .glb, .json; - is standard output; or a folder")
      ->required()
      ->type_name("OUT");
  addFormat(*clean, "--to", "Format of what is written, whatever its name", options->mTo);
  clean->add_flag("--join", options->mJoin, "Clean all objects as one, instead of each on its own");
  clean->add_flag("--triangulate", options->mTriangulate,
                  "At the end, turn all faces into triangles, for programs that cannot read holes");
  clean->add_flag("--json", options->mJson, "Print JSON instead of a table");
  clean->footer(kCleanFooter);
  const auto steps = std::make_shared<StepList>();
  StepCollector(*clean, steps).addAll();
  clean->callback([&action, options, steps] {
    options->mRequests = steps->finish();
    action = [options] { return runClean(*options); };
  });
}

}  // namespace tool
