// Rays, closest points and changes of scenes compared with other libraries, in turns within one process.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "../Parts.h"
#include "Options.h"

namespace {

constexpr Part<Options> kParts[] = {{"rays", compareRays},
                                    {"threads", measureThreads},
                                    {"instances", compareInstances},
                                    {"nearest", compareNearest},
                                    {"sharing", measureSharing}};

}  // namespace

/// @param arguments  [--pairs n] [--smallest n] [--largest n] [--instances n] names of parts; only those are run
int main(int argc, char** argv) {
  Options options;
  const std::vector<std::string> asked = parseNumbers(argc, argv,
                                                      {{"--pairs", &options.pairs},
                                                       {"--instances", &options.instances},
                                                       {"--smallest", &options.smallest},
                                                       {"--largest", &options.largest}});
  options.pairs = std::max<std::size_t>(options.pairs, 1);
  options.smallest = std::max<std::size_t>(options.smallest, 1);
  options.instances = std::max<std::size_t>(options.instances, 1);
  std::printf("CPU time unless it says otherwise, medians of %zu pairs; speed: how many times as fast as the other\n",
              options.pairs);
  runParts(kParts, asked, options);
}
