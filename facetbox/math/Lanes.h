#pragma once

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace util {

// Several numbers at a time, in the compiler's vector types: each processor has registers of this size.
typedef float Float4 __attribute__((vector_size(16)));
typedef std::int32_t Int4 __attribute__((vector_size(16)));
typedef double Double2 __attribute__((vector_size(16)));

// Static: each file has its own copy, also one that is compiled for a newer processor.

/// Two neighbors in memory.
static inline Double2 loadTwo(const double* values) {
  Double2 two;
  std::memcpy(&two, values, sizeof two);
  return two;
}

/// One bit per lane of a comparison's result.
static inline unsigned bitsOf(Int4 mask) {
#if defined(__SSE2__)
  return static_cast<unsigned>(_mm_movemask_ps(reinterpret_cast<__m128>(mask)));
#else
  return (mask[0] & 1U) | (mask[1] & 2U) | (mask[2] & 4U) | (mask[3] & 8U);
#endif
}

}  // namespace util
