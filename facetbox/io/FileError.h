#pragma once

#include <stdexcept>

#include <facetbox/util/Export.h>

namespace facetbox {

/// A file cannot be read, or what it holds is wrong. what() is "name:line: ..." for text, "name: byte n: ..." for bytes
/// with n counted from 0, or "name: ...".
class FACETBOX_EXPORT ReadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  ~ReadError() override;  // out of line: one type information for host and library
  ReadError(const ReadError&) noexcept = default;
  ReadError& operator=(const ReadError&) noexcept = default;
};

/// A file cannot be written. What stood under its name before still does. what() is "name: ...".
class FACETBOX_EXPORT WriteError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  ~WriteError() override;
  WriteError(const WriteError&) noexcept = default;
  WriteError& operator=(const WriteError&) noexcept = default;
};

}  // namespace facetbox
