// Rays, closest points and changes of scenes compared with other libraries, in turns within one process.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Options.h"

namespace {

struct Part {
  const char* name;
  void (*run)(const Options&);
};

constexpr Part kParts[] = {{"rays", compareRays},
                           {"threads", measureThreads},
                           {"instances", compareInstances},
                           {"nearest", compareNearest},
                           {"sharing", measureSharing}};

}  // namespace

/// @param arguments  [--pairs n] [--smallest n] [--largest n] [--instances n] names of parts; only those are run
int main(int argc, char** argv) {
  Options options;
  std::vector<std::string> asked;
  for (int i = 1; i < argc; ++i) {
    const auto isOption = [&](const char* name) { return std::strcmp(argv[i], name) == 0 && i + 1 < argc; };
    if (isOption("--pairs"))
      options.pairs = std::strtoull(argv[++i], nullptr, 10);
    else if (isOption("--smallest"))
      options.smallest = std::strtoull(argv[++i], nullptr, 10);
    else if (isOption("--largest"))
      options.largest = std::strtoull(argv[++i], nullptr, 10);
    else if (isOption("--instances"))
      options.instances = std::strtoull(argv[++i], nullptr, 10);
    else
      asked.emplace_back(argv[i]);
  }
  options.pairs = std::max<std::size_t>(options.pairs, 1);
  options.smallest = std::max<std::size_t>(options.smallest, 1);
  options.instances = std::max<std::size_t>(options.instances, 1);
  std::printf("CPU time unless it says otherwise, medians of %zu pairs; speed: how many times as fast as the other\n",
              options.pairs);
  for (const Part& part : kParts) {
    if (!asked.empty() && std::ranges::find(asked, part.name) == asked.end()) continue;
    double load = 0;
    getloadavg(&load, 1);
    std::printf("\n# load %.1f", load);
    part.run(options);
  }
}
