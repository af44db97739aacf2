#include <facetbox/util/Buffer.h>

#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace util {

void adviseLargePages([[maybe_unused]] void* data, [[maybe_unused]] std::size_t bytes) noexcept {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  constexpr std::uintptr_t kLargePage = std::uintptr_t{2} << 20;
  if (bytes < kLargePage) return;
  const auto begin = (reinterpret_cast<std::uintptr_t>(data) + kLargePage - 1) & ~(kLargePage - 1);
  const auto end = (reinterpret_cast<std::uintptr_t>(data) + bytes) & ~(kLargePage - 1);
  // Refusal is fine: it stays a hint.
  if (begin < end) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#endif
}

}  // namespace util
