// Rays, selections and changes of scenes compared with other libraries, in turns within one process.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "../Parts.h"
#include "Turns.h"

namespace {

constexpr Part<Options> kParts[] = {{"rays", compareRays},
                                    {"hierarchies", compareHierarchies},
                                    {"selections", compareSelections},
                                    {"changes", compareChanges},
                                    {"differences", countRayDifferences}};

}  // namespace

/// @param arguments  [--pairs n] [--rays n] [--smallest n] [--largest n] names of parts; only those are run
int main(int argc, char** argv) {
  Options options;
  const std::vector<std::string> asked = parseNumbers(argc, argv,
                                                      {{"--pairs", &options.pairs},
                                                       {"--rays", &options.rays},
                                                       {"--smallest", &options.smallest},
                                                       {"--largest", &options.largest}});
  options.pairs = std::max<std::size_t>(options.pairs, 1);
  options.smallest = std::max<std::size_t>(options.smallest, 1);
  std::printf("CPU time, medians of %zu pairs; speed: how many times as fast as the other\n", options.pairs);
  runParts(kParts, asked, options);
}
