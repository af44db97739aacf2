#pragma once

#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace util {

typedef std::int32_t FourInts __attribute__((vector_size(16)));

/// One bit per lane of a comparison's result.
inline unsigned bitsOf(FourInts mask) {
#if defined(__SSE2__)
  return static_cast<unsigned>(_mm_movemask_ps(reinterpret_cast<__m128>(mask)));
#else
  return (mask[0] & 1U) | (mask[1] & 2U) | (mask[2] & 4U) | (mask[3] & 8U);
#endif
}

}  // namespace util
