#include <tests/support/FailingMemory.h>

#include <cstdlib>
#include <new>

thread_local long support::gAllocationsLeft = -1;
thread_local long support::gBlocksInUse = 0;

// For the whole test program; without a limit they do what the standard ones do. On their own: where the compiler sees
// both ends, it takes them for a mismatch.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  long& left = support::gAllocationsLeft;
  if (left == 0) return nullptr;
  if (left > 0) --left;
  ++support::gBlocksInUse;
  return std::malloc(size != 0 ? size : 1);
}
void* operator new(std::size_t size) {
  if (void* memory = operator new(size, std::nothrow)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  if (memory) --support::gBlocksInUse;
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }
