#include <tools/CleanCommand.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <tools/Batch.h>
#include <tools/CleanReport.h>
#include <tools/CleanResults.h>
#include <tools/Cleaner.h>
#include <tools/Join.h>
#include <tools/Json.h>
#include <tools/ModelFile.h>
#include <tools/Progress.h>

namespace tool {
namespace {

namespace fs = std::filesystem;
using facetbox::Model;

bool isFolder(const std::string& output) {
  std::error_code ignored;
  return output.ends_with('/') || fs::is_directory(output, ignored);
}

const char* endingOf(facetbox::Format format) {
  return format == facetbox::Format::cityJson ? "json" : facetbox::nameOf(format);
}

std::string outputFor(const std::string& model, const CleanOptions& options) {
  if (!isFolder(options.mOutput)) return options.mOutput;
  if (model == kStandardStream)
    throw InputError("standard input: has no name that a file in a folder could have; give -o a file");
  fs::path name = fs::path(model).filename();
  if (options.mTo) name.replace_extension(endingOf(*options.mTo));
  return (fs::path(options.mOutput) / name).string();
}

/// Where each model goes.
std::map<std::string, std::string> outputsOf(const CleanOptions& options) {
  if (options.mModels.size() > 1 && !isFolder(options.mOutput))
    throw InputError(fmt::format("--output: '{0}' is one file, but there are {1} models; give a folder, such as {0}/",
                                 options.mOutput, options.mModels.size()));
  std::map<std::string, std::string> outputs, models;
  for (const std::string& model : options.mModels) {
    const std::string output = outputFor(model, options);
    const auto [other, isNew] = models.try_emplace(output, model);
    if (!isNew)
      throw InputError(fmt::format("--output: {} and {} would both be written as {}", other->second, model, output));
    outputs[model] = output;
  }
  if (isFolder(options.mOutput)) {
    std::error_code error;
    fs::create_directories(options.mOutput, error);
    if (error) throw RunError(fmt::format("{}: the folder cannot be made: {}", options.mOutput, error.message()));
  } else {
    checkOutput(options.mOutput, options.mTo);
  }
  return outputs;
}

Outcome cleanOne(const CleanOptions& options, const std::string& name, const std::string& output, std::FILE* stream) {
  checkOutput(output, options.mTo);
  Progress progress;
  CleanReport report(options.mJson ? nullptr : stream, progress);
  if (options.mModels.size() > 1) report.line(shownInput(name));

  Model model = readInput(name, options.mFrom, progress);
  if (!model.notes.empty()) report.note(fmt::format("skipped in {}: {}", shownInput(name), listed(model.notes)));
  const std::vector<facetbox::Note> skipped = model.notes;

  progress.begin(Stage::working, "cleaning " + shownInput(name));
  std::optional<Joined> joined;
  if (options.mJoin) joined.emplace(std::move(model));
  CleanedModel cleaned = cleanModel(joined ? joined->model() : model,
                                    {shownInput(name), options.mRequests, options.mTriangulate, !joined}, progress);
  printResults(cleaned, shownInput(name), report);
  report.flush();
  if (joined) cleaned.mModel = joined->split(std::move(cleaned.mModel));

  progress.begin(Stage::writing, "writing " + shownOutput(output));
  const std::vector<facetbox::Note> lost = writeOutput(cleaned.mModel, output, options.mTo);
  if (!lost.empty()) report.note(fmt::format("not in {}: {}", shownOutput(output), listed(lost)));

  const Figures& before = cleaned.mInput.mBefore;
  const Figures& after = cleaned.mIsTriangulated ? cleaned.mTriangles.mAfter : cleaned.mAfter;
  Outcome outcome{.mSummary = fmt::format("{} -> {} vertices, {} -> {} faces", before.mVertices, after.mVertices,
                                          before.mFaces, after.mFaces)};
  if (!options.mJson) return outcome;
  outcome.mJson = {{"file", name}, {"output", output}, {"isJoined", options.mJoin}};
  outcome.mJson.update(jsonOf(cleaned));
  outcome.mJson["passedOver"] = jsonOf(skipped);
  outcome.mJson["notWritten"] = jsonOf(lost);
  outcome.mJson["seconds"] = jsonOf(progress.seconds(), "cleaning");
  return outcome;
}

}  // namespace

ExitCode runClean(const CleanOptions& options) {
  checkInputs(options.mModels, options.mFrom);
  const std::map<std::string, std::string> outputs = outputsOf(options);
  std::FILE* const stream = isStream(options.mOutput) ? stderr : stdout;
  return runOnEach({options.mModels, options.mJson, stream},
                   [&](const std::string& name) { return cleanOne(options, name, outputs.at(name), stream); });
}

}  // namespace tool
