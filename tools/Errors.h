#pragma once

#include <stdexcept>
#include <string>

namespace tool {

/// What the program returns to the shell.
enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitBadInput = 2 };

/// A wrong file or argument: exit code 2. The text names file and line or face.
struct InputError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Any other failure, such as a full disk: exit code 1.
struct RunError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The system's text for an errno value, such as "No such file or directory".
std::string systemErrorText(int errorNumber);

}  // namespace tool
