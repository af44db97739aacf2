#include "AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>

#include <malloc.h>

namespace {

std::atomic<std::size_t> callCount, byteCount, peakByteCount;

/// Makes large blocks come fresh from the system and go back to it. By default the allocator keeps them after the first
/// call, so that every later call would be measured on warm memory, which the first call of a host does not get.
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

/// Stands before an aligned block.
struct Origin {
  void* block;
  std::size_t size;
};

/// Aligned blocks count what was asked for: the rest of what is taken to get there is never touched.
void* countedAlloc(std::size_t size, std::align_val_t alignment) {
  std::size_t room = size + static_cast<std::size_t>(alignment);
  void* const block = std::malloc(sizeof(Origin) + room);
  if (!block) throw std::bad_alloc();
  void* data = static_cast<Origin*>(block) + 1;
  std::align(static_cast<std::size_t>(alignment), size, data, room);
  static_cast<Origin*>(data)[-1] = {block, size};
  return count(data, size);
}

void countedAlignedFree(void* data) noexcept {
  if (!data) return;
  const Origin origin = static_cast<Origin*>(data)[-1];
  byteCount -= origin.size;
  std::free(origin.block);
}

}  // namespace

void* operator new(std::size_t size) { return countedAlloc(size); }
void* operator new[](std::size_t size) { return countedAlloc(size); }
void operator delete(void* data) noexcept { countedFree(data); }
void operator delete[](void* data) noexcept { countedFree(data); }
void operator delete(void* data, std::size_t) noexcept { countedFree(data); }
void operator delete[](void* data, std::size_t) noexcept { countedFree(data); }
void* operator new(std::size_t size, std::align_val_t alignment) { return countedAlloc(size, alignment); }
void operator delete(void* data, std::align_val_t) noexcept { countedAlignedFree(data); }
void operator delete(void* data, std::size_t, std::align_val_t) noexcept { countedAlignedFree(data); }

AllocationCount allocationCount() { return {callCount, byteCount, peakByteCount}; }

void resetAllocationCount() {
  callCount = 0;
  peakByteCount = byteCount.load();
}
