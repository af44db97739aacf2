#include <benchmark/benchmark.h>

#include <facetbox/check.h>

#include "CheckWorkloads.h"

namespace {

facetbox::PolyMesh sphere(std::size_t corners) { return polyMeshOf(sphereOfTriangles(corners / 3)); }
facetbox::PolyMesh quads(std::size_t corners) { return polyMeshOf(gridOfQuads(corners / 4, Surface::bumpy)); }
facetbox::PolyMesh soup(std::size_t corners) { return soupWithCrossings(corners / 3); }

/// Each corner with a vertex of its own: all edges are open, most places are shared.
facetbox::PolyMesh splitQuads(std::size_t corners) {
  const facetbox::PolyMesh mesh = quads(corners);
  facetbox::PolyMesh split;
  split.counts = mesh.counts;
  for (const std::uint32_t vertex : mesh.indices) {
    split.indices.push_back(static_cast<std::uint32_t>(split.points.size() / 3));
    for (std::size_t axis = 0; axis < 3; ++axis) split.points.push_back(mesh.points[3 * std::size_t{vertex} + axis]);
  }
  return split;
}

void check(benchmark::State& state, facetbox::PolyMesh (*make)(std::size_t corners), bool selfIntersections) {
  const facetbox::PolyMesh mesh = make(static_cast<std::size_t>(state.range(0)));
  facetbox::CheckOptions options;
  options.selfIntersections = selfIntersections;
  for (auto _ : state) benchmark::DoNotOptimize(facetbox::check(mesh, options));
  state.counters["time per corner"] =
      benchmark::Counter(static_cast<double>(mesh.indices.size()),
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void sizes(benchmark::internal::Benchmark* bench) {
  bench->ArgName("corners")->Unit(benchmark::kMillisecond);
  for (const int corners : {10'000, 100'000, 1'000'000, 4'000'000}) bench->Arg(corners);
}

BENCHMARK_CAPTURE(check, sphere, sphere, false)->Apply(sizes);
BENCHMARK_CAPTURE(check, quads, quads, false)->Apply(sizes);
BENCHMARK_CAPTURE(check, splitQuads, splitQuads, false)->Apply(sizes);
BENCHMARK_CAPTURE(check, soup, soup, false)->Apply(sizes);
BENCHMARK_CAPTURE(check, sphereIntersecting, sphere, true)->Apply(sizes);
BENCHMARK_CAPTURE(check, quadsIntersecting, quads, true)
    ->Arg(100'000)
    ->ArgName("corners")
    ->Unit(benchmark::kMillisecond);

}  // namespace
