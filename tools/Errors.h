#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace tool {

/// What the program returns to the shell.
enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitBadInput = 2, kExitDefects = 3 };

/// A wrong file or argument: exit code 2. The text names file and line or face.
struct InputError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Any other failure, such as a full disk: exit code 1.
struct RunError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// What the program returns after an error.
ExitCode exitCodeOf(const std::exception& error) noexcept;

/// What it says of it.
const char* textOf(const std::exception& error) noexcept;

/// Says it on standard error, without a formatter that throws: the stream itself may be broken.
void complain(const char* text) noexcept;

/// The system's text for an errno value, such as "No such file or directory".
std::string systemErrorText(int errorNumber);

}  // namespace tool
