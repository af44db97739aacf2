#include <tools/Batch.h>

#include <algorithm>

#include <fmt/format.h>

#include <tools/ModelFile.h>
#include <tools/Printing.h>

namespace tool {
namespace {

using nlohmann::ordered_json;

Outcome failed(const std::string& model, const std::exception& error) {
  std::fflush(stdout);
  complain(textOf(error));
  const ExitCode code = exitCodeOf(error);
  return {code,
          fmt::format("failed: {}", textOf(error)),
          {{"file", model}, {"error", textOf(error)}, {"exitCode", static_cast<int>(code)}}};
}

// Failures before defects, and the first of each.
ExitCode worstOf(const std::vector<Outcome>& outcomes) {
  ExitCode worst = kExitOk;
  for (const Outcome& outcome : outcomes) {
    if (outcome.mCode == kExitFailure || outcome.mCode == kExitBadInput) return outcome.mCode;
    if (outcome.mCode != kExitOk) worst = outcome.mCode;
  }
  return worst;
}

std::string summaryOf(const std::vector<std::string>& models, const std::vector<Outcome>& outcomes) {
  std::size_t width = 0;
  for (const std::string& model : models) width = std::max(width, shownInput(model).size());
  const auto done = static_cast<std::size_t>(std::count_if(outcomes.begin(), outcomes.end(), [](const Outcome& o) {
    return o.mCode == kExitOk || o.mCode == kExitDefects;
  }));
  std::string text = fmt::format("\n{} models, {} failed\n", models.size(), models.size() - done);
  for (std::size_t i = 0; i < models.size(); ++i)
    text += fmt::format("  {:<{}}  {}\n", shownInput(models[i]), width, outcomes[i].mSummary);
  return text;
}

std::string jsonText(std::vector<Outcome> outcomes) {
  if (outcomes.size() == 1) return dumped(outcomes[0].mJson);
  ordered_json all = ordered_json::array();
  for (Outcome& outcome : outcomes) all.push_back(std::move(outcome.mJson));
  return dumped(all);
}

}  // namespace

ExitCode runOnEach(const BatchOptions& options, const std::function<Outcome(const std::string& model)>& work) {
  std::vector<Outcome> outcomes;
  for (const std::string& model : options.mModels) {
    if (!options.mJson && !outcomes.empty()) std::fputc('\n', options.mStream);
    try {
      outcomes.push_back(work(model));
    } catch (const std::exception& error) {
      outcomes.push_back(failed(model, error));
    }
  }
  const ExitCode code = worstOf(outcomes);
  std::string text;
  if (options.mJson)
    text = jsonText(std::move(outcomes));
  else if (options.mModels.size() > 1)
    text = summaryOf(options.mModels, outcomes);
  std::fwrite(text.data(), 1, text.size(), options.mStream);
  return code;
}

}  // namespace tool
