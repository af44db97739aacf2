#include <facetbox/util/RuntimeErrorST.h>

#include <boost/stacktrace.hpp>

namespace util {

RuntimeErrorST::RuntimeErrorST(const std::string& what) : std::runtime_error(what) {
  // Without this constructor's own frame: the first line is the place that made the error.
  const boost::stacktrace::stacktrace frames(1, static_cast<std::size_t>(-1));
  mStacktrace = std::make_shared<const std::string>(frames.empty() ? "<Stacktrace not available>" : to_string(frames));
}

RuntimeErrorST::RuntimeErrorST(const RuntimeErrorST&) = default;
RuntimeErrorST& RuntimeErrorST::operator=(const RuntimeErrorST&) = default;
RuntimeErrorST::~RuntimeErrorST() = default;

const char* RuntimeErrorST::stacktrace() const noexcept { return mStacktrace->c_str(); }

}  // namespace util
