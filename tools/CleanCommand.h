#pragma once

#include <optional>
#include <string>
#include <vector>

#include <facetbox/io/Format.h>
#include <tools/Errors.h>
#include <tools/Steps.h>

namespace tool {

struct CleanOptions {
  std::vector<std::string> mModels;  ///< "-" is standard input
  std::optional<facetbox::Format> mFrom, mTo;
  std::string mOutput;  ///< a file, "-" for standard output, or a folder for all results
  std::vector<StepRequest> mRequests;
  bool mJoin = false;
  bool mTriangulate = false;  ///< after all steps
  bool mJson = false;
};

/// Cleans models and writes the results. Reports the changes of each step on standard output, or on standard error when
/// the model itself goes to a device or a pipe, which may be standard output. Of a model that fails nothing is written.
/// @throws InputError where nothing can be done at all
ExitCode runClean(const CleanOptions& options);

}  // namespace tool
