// The conversions around every clean-up call: record to mesh and back, compared with a memcpy of the record's arrays.

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <facetbox/cleanup/Cleanup.h>
#include <facetbox/cleanup/MeshDataConversion.h>
#include "AllocationCount.h"
#include "Workloads.h"

namespace {

template <class T>
std::unique_ptr<T[]> copyArray(const std::vector<T>& array) {
  std::unique_ptr<T[]> copy(new T[array.size()]);
  std::memcpy(copy.get(), array.data(), array.size() * sizeof(T));
  benchmark::DoNotOptimize(copy.get());
  return copy;
}

/// The record's arrays copied with memcpy into fresh ones: what a conversion is measured against.
void copyArrays(const Workload& workload) {
  const auto coords = copyArray(workload.coords);
  const auto indices = copyArray(workload.indices);
  const auto counts = copyArray(workload.counts);
  const auto texCoords = copyArray(workload.texCoords);
  const auto texCoordIndices = copyArray(workload.texCoordIndices);
  benchmark::ClobberMemory();
}

void report(benchmark::State& state, const Workload& workload) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * workload.bytes()));
  state.counters["faces/s"] =
      benchmark::Counter(static_cast<double>(workload.counts.size()), benchmark::Counter::kIsIterationInvariantRate);
  const AllocationCount count = allocationCount();
  state.counters["allocations"] = static_cast<double>(count.calls);
  state.counters["peakB/corner"] =
      static_cast<double>(count.peakBytes - count.bytes) / static_cast<double>(workload.corners());
}

/// Times `run`, then runs it once more to count its allocations.
template <class Run>
void measure(benchmark::State& state, const Workload& workload, Run run) {
  for (auto _ : state) run();
  resetAllocationCount();
  run();
  report(state, workload);
}

void BM_memcpyArrays(benchmark::State& state) {
  const Workload workload = gridOfTriangles(static_cast<std::size_t>(state.range(0)));
  measure(state, workload, [&] { copyArrays(workload); });
}

void BM_convertInAndOut(benchmark::State& state) {
  Workload workload = gridOfTriangles(static_cast<std::size_t>(state.range(0)));
  const Cleanup::MeshData data = workload.view();
  measure(state, workload, [&] {
    std::string log;
    const std::unique_ptr<util::Mesh> mesh = util::meshDataToMesh(data, log);
    Cleanup::freeMeshDataAndHoles(util::meshToMeshData(*mesh, log));
  });
}

/// The whole exported call; a threshold that some faces fall below and one that none does.
void BM_removeFacesZero(benchmark::State& state, float threshold) {
  Workload workload = gridOfTriangles(static_cast<std::size_t>(state.range(0)));
  const Cleanup::MeshData data = workload.view();
  measure(state, workload, [&] { Cleanup::freeMeshDataAndHoles(Cleanup::removeFacesZero(threshold, data)); });
}

void BM_removeEdgesZero(benchmark::State& state, float threshold) {
  Workload workload = gridOfTriangles(static_cast<std::size_t>(state.range(0)));
  const Cleanup::MeshData data = workload.view();
  measure(state, workload, [&] { Cleanup::freeMeshDataAndHoles(Cleanup::removeEdgesZero(threshold, data)); });
}

constexpr std::int64_t kTriangles = 1'000'000;

BENCHMARK(BM_memcpyArrays)->Name("memcpyArrays/grid/triangles")->Arg(kTriangles)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_convertInAndOut)->Name("convertInAndOut/grid/triangles")->Arg(kTriangles)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_removeFacesZero, none, 1e-3f)
    ->Name("removeFacesZero/none/grid/triangles")
    ->Arg(kTriangles)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_removeFacesZero, some, 0.55f)
    ->Name("removeFacesZero/some/grid/triangles")
    ->Arg(kTriangles)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_removeEdgesZero, none, 1e-3f)
    ->Name("removeEdgesZero/none/grid/triangles")
    ->Arg(kTriangles)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_removeEdgesZero, some, 1.05f)
    ->Name("removeEdgesZero/some/grid/triangles")
    ->Arg(kTriangles)
    ->Unit(benchmark::kMillisecond);

}  // namespace
