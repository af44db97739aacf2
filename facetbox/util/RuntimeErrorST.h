#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include <facetbox/util/Export.h>

namespace util {

/// The library's own error: a runtime error that also carries the call stack of the place where it was made.
class FACETBOX_EXPORT RuntimeErrorST : public std::runtime_error {
 public:
  /// Takes the call stack of the caller. Does not throw beyond std::bad_alloc.
  explicit RuntimeErrorST(const std::string& what);
  RuntimeErrorST(const RuntimeErrorST&);
  RuntimeErrorST& operator=(const RuntimeErrorST&);
  ~RuntimeErrorST() override;

  /// One frame per line, innermost first, or "<Stacktrace not available>". Lives as long as the exception.
  const char* stacktrace() const noexcept;

 private:
  std::shared_ptr<const std::string>
      mStacktrace;  // never null; shared, so that copying an error in flight cannot throw
};

}  // namespace util
