#include "AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include <malloc.h>

namespace {

std::atomic<std::size_t> callCount, byteCount, peakByteCount;

/// Large blocks always come fresh from the system and go back to it. By default the allocator would start to keep them
/// after the first call, and every later one would be measured on warm memory, which no first call of a host gets.
const bool freshMemory = mallopt(M_MMAP_THRESHOLD, 1 << 20) != 0;

void* countedAlloc(std::size_t size) {
  void* data = std::malloc(size ? size : 1);
  if (!data) throw std::bad_alloc();
  ++callCount;
  const std::size_t now = byteCount += malloc_usable_size(data);
  if (now > peakByteCount) peakByteCount = now;
  return data;
}

void countedFree(void* data) noexcept {
  if (data) byteCount -= malloc_usable_size(data);
  std::free(data);
}

}  // namespace

void* operator new(std::size_t size) { return countedAlloc(size); }
void* operator new[](std::size_t size) { return countedAlloc(size); }
void operator delete(void* data) noexcept { countedFree(data); }
void operator delete[](void* data) noexcept { countedFree(data); }
void operator delete(void* data, std::size_t) noexcept { countedFree(data); }
void operator delete[](void* data, std::size_t) noexcept { countedFree(data); }

AllocationCount allocationCount() { return {callCount, byteCount, peakByteCount}; }

void resetAllocationCount() {
  callCount = 0;
  peakByteCount = byteCount.load();
}
