#pragma once

#include <cstddef>

/// The program's options.
struct Options {
  std::size_t pairs = 11;
  std::size_t smallest = 1000, largest = 1'000'000;  ///< triangles
  std::size_t instances = 100'000;
};

void compareRays(const Options& options);
void compareInstances(const Options& options);
void compareNearest(const Options& options);
void measureThreads(const Options& options);
void measureSharing(const Options& options);
