#include <tests/support/FailingMemory.h>

#include <cstdlib>
#include <new>

thread_local long support::gAllocationsLeft = -1;

// For the whole test program; without a limit they do what the standard ones do. On their own: where the compiler sees
// both ends, it takes them for a mismatch.
void* operator new(std::size_t size) {
  long& left = support::gAllocationsLeft;
  if (left == 0) throw std::bad_alloc();
  if (left > 0) --left;
  if (void* memory = std::malloc(size != 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
