#include <tools/commands/Commands.h>

#include <memory>

#include <CLI/CLI.hpp>

#include <tools/QueryCommand.h>
#include <tools/commands/ViewOptions.h>

namespace tool {

namespace {

constexpr const char* kQueryFooter =
    R"(Answers one question about each object separately:
--raster       do all vertices and edges of its triangles lie on pixels of the picture that are not black, and
               between the near and the far plane?
--ray          where does the ray hit it?
--nearest      which of its points in the view volume is nearest, and on which triangle?
none of these  does it touch the view volume? With --inside: does it lie in it completely?

The view volume is given as for `facetbox select`. With --raster, it is what `facetbox render` would show with
the same --eye, --look-at, --up and --fov, in a picture of the size of the raster.)";

}  // namespace

void addQuery(CLI::App& app, Action& action) {
  const auto shared = std::make_shared<QueryOptions>();
  QueryOptions& options = *shared;
  CLI::App* query = app.add_subcommand("query", "Test each object separately against a mask, a view volume or a ray");
  addModel(*query, options.mModel, options.mFrom);
  CLI::Option* const raster =
      query->add_option("--raster", options.mRaster, "The mask: pixels that are not black are set")
          ->type_name("MASK.png");
  query->add_option("-o,--output", options.mOutput, "Draw the answer: edges outside the mask are red")
      ->type_name("OUT.png")
      ->needs(raster);
  const auto takeRay = [&options](const Vector& origin, const Vector& direction) {
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
  query->callback([&action, shared] {
    action = [shared] {
      runQuery(*shared);
      return kExitOk;
    };
  });
}

}  // namespace tool
