#pragma once

#include <pmmintrin.h>
#include <xmmintrin.h>

/// Sets the mode that Embree recommends to its callers: tiny numbers count as zero.
class TinyIsZero {
 public:
  TinyIsZero() : mBefore(_mm_getcsr()) { _mm_setcsr(mBefore | _MM_FLUSH_ZERO_ON | _MM_DENORMALS_ZERO_ON); }
  ~TinyIsZero() { _mm_setcsr(mBefore); }
  TinyIsZero(const TinyIsZero&) = delete;
  TinyIsZero& operator=(const TinyIsZero&) = delete;

 private:
  unsigned mBefore;
};
