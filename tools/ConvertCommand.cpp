#include <tools/ConvertCommand.h>

#include <cstdio>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <tools/Batch.h>
#include <tools/CleanReport.h>
#include <tools/Json.h>
#include <tools/ModelFile.h>
#include <tools/Printing.h>
#include <tools/Progress.h>

namespace tool {
namespace {

using nlohmann::ordered_json;

ordered_json formatName(std::optional<facetbox::Format> format) {
  return format ? ordered_json(facetbox::nameOf(*format)) : ordered_json();
}

Outcome convert(const ConvertOptions& options, std::FILE* stream) {
  Progress progress;
  const facetbox::Model model = readInput(options.mInput, options.mFrom, progress);
  progress.begin(Stage::writing, "writing " + shownOutput(options.mOutput));
  const std::vector<facetbox::Note> lost = writeOutput(model, options.mOutput, options.mTo);
  const Seconds seconds = progress.seconds();
  std::size_t vertices = 0, faces = 0;
  for (const facetbox::Object& object : model.objects) {
    vertices += object.mesh.points.size() / 3;
    faces += object.mesh.counts.size();
  }
  if (options.mJson)
    return {.mJson = {{"file", options.mInput},
                      {"format", formatName(model.format)},
                      {"output", options.mOutput},
                      {"outputFormat", formatName(outputFormat(options.mOutput, options.mTo))},
                      {"objects", model.objects.size()},
                      {"vertices", vertices},
                      {"faces", faces},
                      {"passedOver", jsonOf(model.notes)},
                      {"notWritten", jsonOf(lost)},
                      {"seconds", jsonOf(seconds, nullptr)}}};
  fmt::print(stream, "{}: {}, {}, {}\n", shownOutput(options.mOutput), counted(model.objects.size(), "object"),
             counted(faces, "face"), vertices == 1 ? "1 vertex" : fmt::format("{} vertices", vertices));
  if (!model.notes.empty())
    fmt::print(stream, "  note: skipped in {}: {}\n", shownInput(options.mInput), listed(model.notes));
  if (!lost.empty()) fmt::print(stream, "  note: not in {}: {}\n", shownOutput(options.mOutput), listed(lost));
  return {};
}

}  // namespace

ExitCode runConvert(const ConvertOptions& options) {
  checkInputs({options.mInput}, options.mFrom);
  checkOutput(options.mOutput, options.mTo);
  std::FILE* const stream = isStream(options.mOutput) ? stderr : stdout;
  return runOnEach({{options.mInput}, options.mJson, stream},
                   [&](const std::string&) { return convert(options, stream); });
}

}  // namespace tool
