// Rays, selections and changes of scenes compared with other libraries, in turns within one process.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Turns.h"

namespace {

struct Part {
  const char* name;
  void (*run)(const Options&);
};

constexpr Part kParts[] = {{"rays", compareRays},
                           {"hierarchies", compareHierarchies},
                           {"selections", compareSelections},
                           {"changes", compareChanges},
                           {"differences", countRayDifferences}};

}  // namespace

/// @param arguments  [--pairs n] [--rays n] [--smallest n] [--largest n] names of parts; only those are run
int main(int argc, char** argv) {
  Options options;
  std::vector<std::string> asked;
  for (int i = 1; i < argc; ++i) {
    const auto isOption = [&](const char* name) { return std::strcmp(argv[i], name) == 0 && i + 1 < argc; };
    if (isOption("--pairs"))
      options.pairs = std::strtoull(argv[++i], nullptr, 10);
    else if (isOption("--rays"))
      options.rays = std::strtoull(argv[++i], nullptr, 10);
    else if (isOption("--smallest"))
      options.smallest = std::strtoull(argv[++i], nullptr, 10);
    else if (isOption("--largest"))
      options.largest = std::strtoull(argv[++i], nullptr, 10);
    else
      asked.emplace_back(argv[i]);
  }
  options.pairs = std::max<std::size_t>(options.pairs, 1);
  options.smallest = std::max<std::size_t>(options.smallest, 1);
  std::printf("CPU time, medians of %zu pairs; speed: how many times as fast as the other\n", options.pairs);
  for (const Part& part : kParts) {
    if (!asked.empty() && std::ranges::find(asked, part.name) == asked.end()) continue;
    double load = 0;
    getloadavg(&load, 1);
    std::printf("\n# load %.1f", load);
    part.run(options);
  }
}
