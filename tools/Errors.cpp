#include <tools/Errors.h>

#include <cstdio>
#include <new>
#include <system_error>

#include <facetbox/io/FileError.h>

namespace tool {

ExitCode exitCodeOf(const std::exception& error) noexcept {
  const bool isInput = dynamic_cast<const InputError*>(&error) || dynamic_cast<const facetbox::ReadError*>(&error);
  return isInput ? kExitBadInput : kExitFailure;
}

const char* textOf(const std::exception& error) noexcept {
  return dynamic_cast<const std::bad_alloc*>(&error) ? "out of memory" : error.what();
}

void complain(const char* text) noexcept {
  std::fputs("facetbox: ", stderr);
  std::fputs(text, stderr);
  std::fputc('\n', stderr);
}

std::string systemErrorText(int errorNumber) { return std::generic_category().message(errorNumber); }

}  // namespace tool
