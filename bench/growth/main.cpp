// How the time of the exported clean-up calls grows with the size of the record.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <span>
#include <string>
#include <vector>

#include "../CleanupCases.h"

namespace {

constexpr std::array<std::size_t, 6> kSizes{10'000, 30'000, 100'000, 300'000, 1'000'000, 4'000'000};
constexpr std::size_t kCraftedSizes = 4;  // of crafted cases only the smaller ones

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// Median seconds of a call, of at least 5 and at least half a second of them.
double medianSeconds(const CleanupCase& tested, const Cleanup::MeshData& data) {
  std::vector<double> times;
  for (double sum = 0; times.size() < 5 || (sum < 0.5 && times.size() < 201); sum += times.back()) {
    const double begin = cpuSeconds();
    const Cleanup::MeshData* result = tested.call(data);
    times.push_back(cpuSeconds() - begin);
    Cleanup::freeMeshDataAndHoles(result);
  }
  std::ranges::nth_element(times, times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2));
  return times[times.size() / 2];
}

/// Slope of the least-squares line through the logarithms.
double exponentOf(const std::vector<double>& sizes, const std::vector<double>& seconds) {
  double sumX = 0, sumY = 0, sumXX = 0, sumXY = 0;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    const double x = std::log(sizes[i]), y = std::log(seconds[i]);
    sumX += x, sumY += y, sumXX += x * x, sumXY += x * y;
  }
  const auto n = static_cast<double>(sizes.size());
  return (n * sumXY - sumX * sumY) / (n * sumXX - sumX * sumX);
}

bool printRow(const CleanupCase& tested, std::span<const std::size_t> workSizes) {
  std::printf("%-42s", tested.name.c_str());
  std::vector<double> sizes, seconds;
  std::string fault;
  for (const std::size_t size : workSizes) {
    CleanupWorkload work = tested.make(size);
    const Cleanup::MeshData data = work.input.view();
    const Cleanup::MeshData* result = tested.call(data);
    fault += faultOf(result, work.expected);
    Cleanup::freeMeshDataAndHoles(result);
    sizes.push_back(static_cast<double>(work.input.corners()));
    seconds.push_back(medianSeconds(tested, data));
    std::printf("%8.1f", 1e9 * seconds.back() / sizes.back());
    std::fflush(stdout);
  }
  std::printf("%10.3f%s%s\n", exponentOf(sizes, seconds), fault.empty() ? "" : "  WRONG: ", fault.c_str());
  return fault.empty();
}

}  // namespace

/// @param arguments  parts of names; only cases with one of them are run
int main(int argc, char** argv) {
  std::printf("ns of CPU time per corner, by corners\n%-42s", "");
  for (const std::size_t size : kSizes) std::printf("%7zuk", size / 1000);
  std::printf("  exponent\n");
  bool isRight = true;
  const auto printRows = [&](const std::vector<CleanupCase>& cases, std::span<const std::size_t> workSizes) {
    for (const CleanupCase& tested : cases) {
      const auto isAsked = [&](const char* part) { return tested.name.find(part) != std::string::npos; };
      if (tested.corners || (argc > 1 && std::none_of(argv + 1, argv + argc, isAsked))) continue;
      isRight = printRow(tested, workSizes) && isRight;
    }
  };
  printRows(cleanupCases(), kSizes);
  printRows(craftedCases(), std::span(kSizes).first(kCraftedSizes));
  return isRight ? 0 : 1;
}
