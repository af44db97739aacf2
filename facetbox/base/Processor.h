#pragma once

namespace util {

/// The vector instructions that a function may use: the best that the processor has, or those that each one has. The
/// results are the same.
enum class Instructions { best, base };

/// Whether functions compiled for AVX2 with fused multiply-add exist and may run.
inline bool mayUseAvx2([[maybe_unused]] Instructions instructions) {
#if defined(FACETBOX_HAS_AVX2)
  static const bool hasAvx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  return instructions == Instructions::best && hasAvx2;
#else
  return false;
#endif
}

}  // namespace util
