#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

/// A part of a program of comparisons, by name.
template <class Options>
struct Part {
  const char* name;
  void (*run)(const Options&);
};

struct NumberOption {
  const char* name;  ///< with its dashes
  std::size_t* value;
};

/// Reads numbers that follow their names.
/// @return the other arguments
inline std::vector<std::string> parseNumbers(int argc, char** argv, std::initializer_list<NumberOption> options) {
  std::vector<std::string> others;
  for (int i = 1; i < argc; ++i) {
    const auto* option =
        std::ranges::find_if(options, [&](const NumberOption& o) { return std::strcmp(argv[i], o.name) == 0; });
    if (option != options.end() && i + 1 < argc)
      *option->value = std::strtoull(argv[++i], nullptr, 10);
    else
      others.emplace_back(argv[i]);
  }
  return others;
}

/// Runs the parts that are asked for, all where none is, each under the load of the machine.
template <class Options, std::size_t kCount>
void runParts(const Part<Options> (&parts)[kCount], const std::vector<std::string>& asked, const Options& options) {
  for (const Part<Options>& part : parts) {
    if (!asked.empty() && std::ranges::find(asked, part.name) == asked.end()) continue;
    double load = 0;
    getloadavg(&load, 1);
    std::printf("\n# load %.1f", load);
    part.run(options);
  }
}
