#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include <facetbox/util/Export.h>

namespace util {

/// The library's own error: a runtime error that also carries the call stack of the place where it was created.
class FACETBOX_EXPORT RuntimeErrorST : public std::runtime_error {
 public:
  /// Records the call stack of the caller. Throws nothing but std::bad_alloc.
  explicit RuntimeErrorST(const std::string& what);
  RuntimeErrorST(const RuntimeErrorST&);
  RuntimeErrorST& operator=(const RuntimeErrorST&);
  ~RuntimeErrorST() override;

  /// One frame per line, innermost first, or "<Stacktrace not available>". Valid as long as the exception.
  const char* stacktrace() const noexcept;

 private:
  std::shared_ptr<const std::string>
      mStacktrace;  // never null; shared, so that copying an error in flight cannot throw
};

}  // namespace util
