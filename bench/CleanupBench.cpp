// The exported clean-up calls, conversions included: normal cases at several sizes, worst cases by name.

#include <cstdint>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "AllocationCount.h"
#include "CleanupCases.h"

namespace {

/// A case at one size, ready to be timed, whose answer has been checked.
struct Prepared {
  std::string name;
  std::size_t corners = 0;
  CleanupWorkload work;
  std::string fault;
};

/// The benchmark calls its function several times to find the number of repetitions: the last workload is kept.
Prepared& prepare(const CleanupCase& tested, std::size_t corners) {
  static std::unique_ptr<Prepared> last;
  if (last && last->name == tested.name && last->corners == corners) return *last;
  last.reset();
  last = std::make_unique<Prepared>(Prepared{tested.name, corners, tested.make(corners), {}});
  const Cleanup::MeshData* result = tested.call(last->work.input.view());
  last->fault = faultOf(result, last->work.expected);
  Cleanup::freeMeshDataAndHoles(result);
  return *last;
}

/// Allocations of one call, and its peak memory beyond input and result.
void reportMemory(benchmark::State& state, const CleanupCase& tested, const Cleanup::MeshData& data, double corners) {
  const std::size_t before = allocationCount().bytes;
  resetAllocationCount();
  const Cleanup::MeshData* result = tested.call(data);
  const AllocationCount count = allocationCount();
  const auto extra = static_cast<double>(count.peakBytes - before) - static_cast<double>(bytesOf(*result));
  Cleanup::freeMeshDataAndHoles(result);
  state.counters["extraB/corner"] = extra / corners;
  state.counters["allocations"] = static_cast<double>(count.calls);
}

void run(benchmark::State& state, const CleanupCase& tested) {
  Prepared& prepared = prepare(tested, static_cast<std::size_t>(state.range(0)));
  if (!prepared.fault.empty()) return state.SkipWithError(prepared.fault.c_str());
  const Cleanup::MeshData data = prepared.work.input.view();
  const auto corners = static_cast<double>(prepared.work.input.corners());
  for (auto _ : state) {
    const Cleanup::MeshData* result = tested.call(data);
    state.PauseTiming();
    Cleanup::freeMeshDataAndHoles(result);
    state.ResumeTiming();
  }
  // Counters show seconds as ns by themselves.
  state.counters["time/corner"] =
      benchmark::Counter(corners, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  reportMemory(state, tested, data, corners);
}

[[maybe_unused]] const bool isRegistered = [] {
  for (const CleanupCase& tested : cleanupCases()) {
    auto* registered = benchmark::RegisterBenchmark(tested.name.c_str(), run, tested)
                           ->ArgName("corners")
                           ->Unit(benchmark::kMillisecond);
    if (tested.corners)
      registered->Arg(static_cast<std::int64_t>(tested.corners));
    else
      for (const std::int64_t corners : {10'000, 100'000, 1'000'000, 4'000'000}) registered->Arg(corners);
  }
  return true;
}();

}  // namespace
