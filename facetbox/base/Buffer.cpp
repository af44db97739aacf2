#include <facetbox/base/Buffer.h>

#include <cstdint>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace util {
namespace {

constexpr std::size_t kLargePage = std::size_t{2} << 20;

/// A large block that all but fills its last large page gets all of it: that costs at most a quarter of a page more,
/// and saves filling it by hundreds of small ones.
std::size_t roomFor(std::size_t bytes) {
  const std::size_t missing = (kLargePage - bytes % kLargePage) % kLargePage;
  return missing < kLargePage / 4 ? bytes + missing : bytes;
}

}  // namespace

void* allocateBlock(std::size_t bytes, std::size_t alignment) {
  if (bytes >= kLargePage) {
    void* data = ::operator new(roomFor(bytes), std::align_val_t(kLargePage));
    adviseLargePages(data, roomFor(bytes));
    return data;
  }
  if (alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__) return ::operator new(bytes, std::align_val_t(alignment));
  return ::operator new(bytes);
}

void deallocateBlock(void* data, std::size_t bytes, std::size_t alignment) noexcept {
  if (bytes >= kLargePage)
    ::operator delete(data, std::align_val_t(kLargePage));
  else if (alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__)
    ::operator delete(data, std::align_val_t(alignment));
  else
    ::operator delete(data);
}

void adviseLargePages([[maybe_unused]] void* data, [[maybe_unused]] std::size_t bytes) noexcept {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  if (bytes < kLargePage) return;
  const auto begin = (reinterpret_cast<std::uintptr_t>(data) + kLargePage - 1) & ~(kLargePage - 1);
  const auto end = (reinterpret_cast<std::uintptr_t>(data) + bytes) & ~(kLargePage - 1);
  // Refusal is fine: it stays a hint.
  if (begin < end) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#endif
}

void populatePages([[maybe_unused]] void* data, [[maybe_unused]] std::size_t bytes) noexcept {
#if defined(__linux__) && defined(MADV_POPULATE_WRITE)
  constexpr std::size_t kPage = 4096, kWorthACall = std::size_t{1} << 18;
  if (bytes < kWorthACall) return;
  const auto begin = (reinterpret_cast<std::uintptr_t>(data) + kPage - 1) & ~(kPage - 1);
  const auto end = (reinterpret_cast<std::uintptr_t>(data) + bytes) & ~(kPage - 1);
  // Likewise a hint: older systems refuse.
  ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE);
#endif
}

}  // namespace util
