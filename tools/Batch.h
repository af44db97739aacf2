#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <tools/Errors.h>

namespace tool {

/// What became of one model.
struct Outcome {
  ExitCode mCode = kExitOk;
  std::string mSummary = {};          ///< a line about it, for the end of several
  nlohmann::ordered_json mJson = {};  ///< all about it, where JSON is asked for
};

struct BatchOptions {
  std::vector<std::string> mModels;
  bool mJson = false;
  std::FILE* mStream = stdout;  ///< for the summary or the JSON
};

/// Works on each model. One that fails does not stop the others: its error is printed, and is its JSON. Prints a line
/// for each of several models at the end; or the JSON, which is an array for several models.
/// @return the code of the first model that failed; if none did, kExitDefects where a model has defects
ExitCode runOnEach(const BatchOptions& options, const std::function<Outcome(const std::string& model)>& work);

}  // namespace tool
