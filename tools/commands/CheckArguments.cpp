#include <tools/commands/Commands.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <tools/Arguments.h>
#include <tools/CheckCommand.h>
#include <tools/Tolerance.h>
#include <tools/commands/Options.h>

namespace tool {
namespace {

constexpr const char* kFooter =
    R"(Each object is checked by itself. Faces are numbered from 1 over the whole file, vertices as in the file, from 1.
A face with holes is one surface; the rims of its holes are edges of it.

Names for --allow, for surfaces that are meant to be open, say:
  short-faces            faces with fewer than 3 corners
  repeated-corners       faces that repeat a vertex
  zero-faces             faces of zero area: up to AREA
  zero-edges             edges of zero length: up to LENGTH
  double-faces           faces that repeat another face, in either direction
  open-edges             edges used once
  overused-edges         edges used more than twice
  same-direction-edges   edges used twice, both times in one direction
  t-corners              vertices inside an edge used once; looked for with --t-corners
  same-vertices          vertices at the position of an earlier one
  unused-vertices        vertices that no face uses
  bad-holes              holes that do not lie inside their face, or touch its outline or another hole
  self-intersections     faces that meet elsewhere than in what they share; looked for with --self-intersections

LENGTH and AREA are in the units of the model, or with % relative to the diagonal of the bounding box of each object
and to its square.

Exit codes: 0 no defects but those that are allowed, 3 defects; 1 failed, 2 bad model or bad arguments. Of several
models, the code of the first that failed; if none did, 3 if any has defects.)";

std::vector<DefectKind> parseKinds(const std::string& text, const std::string& option) {
  std::vector<DefectKind> kinds;
  std::string_view rest = text;
  while (true) {
    const std::size_t comma = rest.find(',');
    const std::string_view name = rest.substr(0, comma);
    const std::optional<DefectKind> kind = defectNamed(name);
    if (!kind)
      throw InputError(
          fmt::format("{}: '{}' is no kind of defect; see facetbox check --help for their names", option, name));
    kinds.push_back(*kind);
    if (comma == std::string_view::npos) return kinds;
    rest.remove_prefix(comma + 1);
  }
}

void addWhat(CLI::App& check, DefectOptions& what) {
  check.add_flag("--self-intersections", what.mSelfIntersections, "Look for faces that intersect; takes longer");
  check.add_flag("--t-corners", what.mTCorners, "Look for vertices inside edges used once");
  addParsed(check, "--zero-edges", "LENGTH", "Edges are zero up to LENGTH (default: 0)", what.mZeroEdges,
            parseTolerance);
  addParsed(check, "--zero-area", "AREA", "Faces are zero up to AREA (default: 1e-10%)", what.mZeroArea,
            parseTolerance);
  addParsed(check, "--t-corner-distance", "LENGTH",
            "Vertices lie inside an edge up to LENGTH from it (default: 0.0001%)", what.mTCornerDistance,
            parseTolerance);
}

}  // namespace

void addCheck(CLI::App& app, Action& action) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App* check = app.add_subcommand("check", "List the defects of models, and where they are");
  addModels(*check, options->mModels, options->mFrom);
  CLI::Option* const limit =
      addParsed(*check, "--limit", "N", "Places shown of each kind of defect; 0: all (default: 10, with --json: all)",
                options->mWhat.mLimit, parseCount);
  addWhat(*check, options->mWhat);
  addParsed(*check, "--allow", kDefectKindList, "Kinds of defects that do not count, see below", options->mAllowed,
            parseKinds);
  check->add_flag("--join", options->mJoin, "Check all objects as one, instead of each on its own");
  check->add_flag("--json", options->mJson, "Print JSON");
  check->footer(kFooter);
  check->callback([&action, options, limit] {
    constexpr std::size_t kShown = 10;
    if (limit->count() == 0 && !options->mJson) options->mWhat.mLimit = kShown;
    if (options->mWhat.mTCornerDistance) options->mWhat.mTCorners = true;
    action = [options] { return runCheck(*options); };
  });
}

}  // namespace tool
