#pragma once

#include <string>
#include <vector>

#include <tools/Steps.h>

namespace tool {

struct CleanOptions {
  std::string mModel;
  std::string mOutput;  ///< ends in .obj, or is a device or a pipe
  std::vector<StepRequest> mRequests;
  bool mJoin = false;
  bool mTriangulate = false;  ///< after all steps
};

/// Cleans a model and writes the result. Reports the changes of each step on standard output, or on standard error when
/// the model itself goes to a device or a pipe, which may be standard output.
/// @throws InputError, RunError: nothing has been written then
void runClean(const CleanOptions& options);

}  // namespace tool
