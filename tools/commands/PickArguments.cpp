#include <tools/commands/Commands.h>

#include <memory>

#include <CLI/CLI.hpp>

#include <tools/PickCommands.h>
#include <tools/commands/ViewOptions.h>

namespace tool {

namespace {

constexpr const char* kSelectFooter =
    R"(--volume gives a block or a frustum: corners 1 to 4 go around the near face, corners 5 to 8 lie behind them
in the same order. Without --volume, the volume is what `facetbox render` would show with the same --eye,
--look-at, --up, --fov and --size, or the part of it that --window cuts out.

An object is listed if one of its faces touches the volume.)";

}  // namespace

void addPick(CLI::App& app, Action& action) {
  const auto shared = std::make_shared<PickOptions>();
  PickOptions& options = *shared;
  CLI::App* pick = app.add_subcommand("pick", "Show what a ray hits first");
  addModel(*pick, options.mModel, options.mFrom);
  const auto takeRay = [&options](const Vector& origin, const Vector& direction) {
    options.mOrigin = origin;
    options.mDirection = direction;
  };
  addRay(*pick, "Where the ray starts, and its direction", takeRay)->required();
  addGrouping(*pick, options.mGrouping);
  pick->add_flag("--json", options.mJson, "Print JSON");
  pick->callback([&action, shared] {
    action = [shared] {
      runPick(*shared);
      return kExitOk;
    };
  });
}

void addSelect(CLI::App& app, Action& action) {
  const auto shared = std::make_shared<SelectOptions>();
  SelectOptions& options = *shared;
  CLI::App* select = app.add_subcommand("select", "List what lies in a view volume");
  addModel(*select, options.mModel, options.mFrom);
  addView(*select, options.mView);
  select->add_flag("--inside", options.mWholeInside, "Only what lies in the volume completely");
  addGrouping(*select, options.mGrouping);
  select->add_flag("--json", options.mJson, "Print JSON");
  select->footer(kSelectFooter);
  select->callback([&action, shared] {
    action = [shared] {
      runSelect(*shared);
      return kExitOk;
    };
  });
}

}  // namespace tool
