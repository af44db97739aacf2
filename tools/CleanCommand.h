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
  bool mTriangulate = false;  ///< as the last of all
};

/// Cleans a model and writes the result; tells on standard output, step by step, what it changed. When the model itself
/// goes to a device or a pipe, which may be standard output, the report goes to standard error.
/// @throws InputError, RunError: nothing has been written then
void runClean(const CleanOptions& options);

}  // namespace tool
