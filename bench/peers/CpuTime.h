#pragma once

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <vector>

/// Of the whole process: a library that starts threads pays for them.
inline double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

inline double median(std::vector<double> values) {
  std::ranges::nth_element(values, values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2));
  return values[values.size() / 2];
}
