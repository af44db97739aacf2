#include <cstdint>

#include <benchmark/benchmark.h>

#include <facetbox/PolyMesh.h>

namespace {

/// n by n quads, n^2 * 4 corners, with or without texture coordinates.
facetbox::PolyMesh gridOf(std::uint32_t n, bool isTextured) {
  facetbox::PolyMesh mesh;
  for (std::uint32_t y = 0; y <= n; ++y)
    for (std::uint32_t x = 0; x <= n; ++x) {
      mesh.points.insert(mesh.points.end(), {1.0 * x, 1.0 * y, 0.0});
      if (isTextured) mesh.texCoords.insert(mesh.texCoords.end(), {1.0 * x, 1.0 * y});
    }
  for (std::uint32_t y = 0; y < n; ++y)
    for (std::uint32_t x = 0; x < n; ++x) {
      const std::uint32_t corner = y * (n + 1) + x;
      mesh.counts.push_back(4);
      mesh.indices.insert(mesh.indices.end(), {corner, corner + 1, corner + n + 2, corner + n + 1});
    }
  if (isTextured) mesh.texIndices = mesh.indices;
  return mesh;
}

void validate(benchmark::State& state, bool isTextured) {
  const auto n = static_cast<std::uint32_t>(state.range(0));
  const facetbox::PolyMesh mesh = gridOf(n, isTextured);
  for (auto _ : state) benchmark::DoNotOptimize(facetbox::validate(mesh));
  state.counters["time per corner"] =
      benchmark::Counter(4.0 * n * n, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK_CAPTURE(validate, grid, false)->ArgName("side")->Arg(50)->Arg(500)->Arg(1000);
BENCHMARK_CAPTURE(validate, texturedGrid, true)->ArgName("side")->Arg(50)->Arg(500)->Arg(1000);

}  // namespace
