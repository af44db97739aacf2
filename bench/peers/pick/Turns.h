#pragma once

#include <cstddef>

#include "../Turns.h"

/// The program's options.
struct Options {
  std::size_t pairs = 21;
  std::size_t rays = 1'000'000;                      ///< of each kind whose answers are compared
  std::size_t smallest = 1000, largest = 1'000'000;  ///< triangles, and objects in windows
};

void compareRays(const Options& options);
void compareHierarchies(const Options& options);
void countRayDifferences(const Options& options);
void compareSelections(const Options& options);
void compareChanges(const Options& options);
