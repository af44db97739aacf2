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

void* count(void* data, std::size_t bytes) {
  if (!data) throw std::bad_alloc();
  ++callCount;
  const std::size_t now = byteCount += bytes;
  if (now > peakByteCount) peakByteCount = now;
  return data;
}

void* countedAlloc(std::size_t size) {
  void* data = std::malloc(size ? size : 1);
  return count(data, malloc_usable_size(data));
}

void countedFree(void* data) noexcept {
  if (data) byteCount -= malloc_usable_size(data);
  std::free(data);
}

/// Aligned blocks count what was asked for: what lies around them to get there is address space that nobody touches.
void* countedAlloc(std::size_t size, std::align_val_t alignment) {
  const auto step = static_cast<std::size_t>(alignment);
  return count(std::aligned_alloc(step, (size + step - 1) / step * step), size);
}

void countedFree(void* data, std::size_t size) noexcept {
  byteCount -= data ? size : 0;
  std::free(data);
}

}  // namespace

void* operator new(std::size_t size) { return countedAlloc(size); }
void* operator new[](std::size_t size) { return countedAlloc(size); }
void operator delete(void* data) noexcept { countedFree(data); }
void operator delete[](void* data) noexcept { countedFree(data); }
void operator delete(void* data, std::size_t) noexcept { countedFree(data); }
void operator delete[](void* data, std::size_t) noexcept { countedFree(data); }
void* operator new(std::size_t size, std::align_val_t alignment) { return countedAlloc(size, alignment); }
void operator delete(void* data, std::size_t size, std::align_val_t) noexcept { countedFree(data, size); }

AllocationCount allocationCount() { return {callCount, byteCount, peakByteCount}; }

void resetAllocationCount() {
  callCount = 0;
  peakByteCount = byteCount.load();
}
