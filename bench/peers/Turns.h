#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "CpuTime.h"

template <class Run>
double secondsOf(Run run) {
  const double begin = cpuSeconds();
  run();
  return cpuSeconds() - begin;
}

/// Of the clock: for work on several threads.
template <class Run>
double wallSecondsOf(Run run) {
  const auto begin = std::chrono::steady_clock::now();
  run();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

/// Medians over pairs of runs.
struct Turns {
  double ours, theirs;  ///< seconds of one run
  double speed;         ///< of theirs by ours: how many times as fast we are
  double difference;    ///< of ours less theirs
  double leastOurs, leastTheirs;
};

/// Runs both sides in turns, each as often first as second, after one pair that does not count.
/// @param ours, theirs  called with the pair's number; they return seconds
template <class Ours, class Theirs>
Turns inTurns(std::size_t pairs, Ours ours, Theirs theirs) {
  std::vector<double> ourTimes, theirTimes, speeds, differences;
  for (std::size_t pair = 0; pair <= pairs; ++pair) {
    double our = 0, their = 0;
    if (pair % 2) our = ours(pair);
    their = theirs(pair);
    if (pair % 2 == 0) our = ours(pair);
    if (pair == 0) continue;
    ourTimes.push_back(our);
    theirTimes.push_back(their);
    speeds.push_back(their / our);
    differences.push_back(our - their);
  }
  return {median(ourTimes),    median(theirTimes),         median(speeds),
          median(differences), std::ranges::min(ourTimes), std::ranges::min(theirTimes)};
}

/// How often to repeat work of `seconds` so that the cost of reading the clock is negligible.
inline std::size_t repeatsFor(double seconds, double wanted = 5e-3) {
  return static_cast<std::size_t>(std::clamp(wanted / std::max(seconds, 1e-9), 1.0, 1e6));
}

/// A line of a table: our figure, theirs, and a value with the bar that it has to meet.
struct Row {
  std::string what;
  double ours;
  std::string against;
  double theirs;  ///< below 0: none
  double value;
  double bar;  ///< 0: none
  enum { atLeast, atMost } sense = atLeast;

  void print() const {
    std::printf("%-34s %10.4g  %-34s ", what.c_str(), ours, against.c_str());
    if (theirs < 0)
      std::printf("%10s", "-");
    else
      std::printf("%10.4g", theirs);
    std::printf(" %9.3f", value);
    if (bar > 0)
      std::printf("  %s %-6.4g %s\n", sense == atLeast ? ">=" : "<=", bar,
                  (sense == atLeast ? value >= bar : value <= bar) ? "met" : "MISSED");
    else
      std::printf("  %9s\n", "-");
    std::fflush(stdout);
  }
};

inline void printHeading(const char* title, const char* ours, const char* value) {
  std::printf("\n%s\n%-34s %10s  %-34s %10s %9s  %s\n", title, "case", ours, "against", "theirs", value, "bar");
}
