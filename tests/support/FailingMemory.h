#pragma once

#include <new>

/// Memory that ends when a test wants it to.
namespace support {

/// For the allocation functions of the test program: how many more of this thread succeed; below 0 any number.
extern thread_local long gAllocationsLeft;

/// How many blocks of this thread are in use; taken and released ones count on the thread that does it.
extern thread_local long gBlocksInUse;

/// Runs `call` with memory for so many allocations of this thread only.
/// @return whether it came through; false where it threw std::bad_alloc
template <class Call>
bool succeedsWith(long allocations, Call call) {
  gAllocationsLeft = allocations;
  try {
    call();
    gAllocationsLeft = -1;
    return true;
  } catch (const std::bad_alloc&) {
    gAllocationsLeft = -1;
    return false;
  }
}

}  // namespace support
