#pragma once

#include <cstddef>

/// What the process has allocated through operator new, which this program replaces to count it.
struct AllocationCount {
  std::size_t calls;      ///< number of allocations since the last reset
  std::size_t bytes;      ///< bytes allocated and not yet freed
  std::size_t peakBytes;  ///< the largest `bytes` since the last reset
};

AllocationCount allocationCount();

/// Starts counting calls and the peak anew, from the bytes that are allocated now.
void resetAllocationCount();
