#pragma once

#include <barrier>
#include <thread>
#include <vector>

namespace support {

constexpr int kThreads = 4;

/// Calls work(number of the thread) on kThreads threads that start together, and waits for them.
template <class Work>
void onAllThreads(Work work) {
  std::barrier start(kThreads);
  std::vector<std::jthread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      work(t);
    });
}

}  // namespace support
