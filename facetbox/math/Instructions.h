#pragma once

namespace util {

/// The vector instructions that a function may use: the best that the processor has, or those that each one has. The
/// results are the same.
enum class Instructions { best, base };

}  // namespace util
