// The front door beside the record call for the same step, in turns on the same mesh: facetbox::clean, maps included,
// and all steps in one call beside seven record calls one after the other.

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <facetbox/clean.h>

#include "AllocationCount.h"
#include "CheckWorkloads.h"
#include "CleanupCases.h"
#include "peers/CpuTime.h"

namespace {

using facetbox::PolyMesh;
using facetbox::Step;
using Record = std::unique_ptr<const Cleanup::MeshData, void (*)(const Cleanup::MeshData*)>;

struct Compared {
  std::string name;
  std::function<CleanupWorkload(std::size_t corners)> make;
  std::function<Record(const Cleanup::MeshData&)> recordCalls;
  std::vector<Step> steps;
};

/// With texture coordinates, of which a workload has one run.
PolyMesh texturedMeshOf(const Workload& record) {
  PolyMesh mesh = polyMeshOf(record);
  mesh.texCoords.assign(record.texCoords.begin(), record.texCoords.end());
  mesh.texIndices = record.texCoordIndices;
  if (!mesh.texIndices.empty()) mesh.labels.assign(mesh.counts.size(), 0);
  return mesh;
}

std::vector<Compared> singleSteps() {
  const std::pair<const char*, Step> families[] = {
      {"mergeVertices/soup/sphere", facetbox::MergeVertices{kWeldTolerance}},
      {"mergeVertices/soup/sphere/texture", facetbox::MergeVertices{kWeldTolerance}},
      {"removeFacesDouble/triangles", facetbox::RemoveDoubleFaces{false}},
      {"removeFacesDouble/triangles/attributes", facetbox::RemoveDoubleFaces{true}},
      {"conformNormals/sphere", facetbox::ConformNormals{}},
      {"removeEdgesCoplanar/city", facetbox::MergeCoplanar{kAngleTolerance, false}},
      {"removeEdgesCoplanar/city/attributes", facetbox::MergeCoplanar{kAngleTolerance, true}},
      {"removeVerticesColinear/midpoints", facetbox::RemoveColinear{kAngleTolerance, false}},
      {"removeVerticesColinear/midpoints/texture", facetbox::RemoveColinear{kAngleTolerance, true}},
      {"removeFacesZero/needles", facetbox::RemoveZeroFaces{kAreaThreshold}},
      {"removeEdgesZero/shortEdges", facetbox::RemoveZeroEdges{kLengthThreshold}},
      {"removeFacesZero/quadsWithHoles", facetbox::RemoveZeroFaces{kAreaThreshold}},
  };
  std::vector<Compared> compared;
  for (const auto& [name, step] : families) {
    const CleanupCase record = cleanupCase(name);
    compared.push_back({name,
                        record.make,
                        [call = record.call](const Cleanup::MeshData& data) {
                          return Record(call(data), Cleanup::freeMeshDataAndHoles);
                        },
                        {step}});
  }
  return compared;
}

/// The record calls in the order of allSteps(), with its values.
Record callAll(const Cleanup::MeshData& data, const std::vector<Step>& steps) {
  Record result(nullptr, Cleanup::freeMeshDataAndHoles);
  const auto next = [&](auto call, auto... values) { result.reset(call(values..., result ? *result : data)); };
  const auto number = [](double value) { return static_cast<float>(value); };
  next(Cleanup::mergeVertices, number(std::get<0>(steps[0]).tolerance));
  next(Cleanup::removeEdgesZero, number(std::get<1>(steps[1]).threshold));
  next(Cleanup::removeFacesZero, number(std::get<2>(steps[2]).threshold));
  next(Cleanup::removeFacesDouble, true);
  next(Cleanup::conformNormals);
  next(Cleanup::removeEdgesCoplanar, number(std::get<5>(steps[5]).degrees), true);
  next(Cleanup::removeVerticesColinear, number(std::get<6>(steps[6]).degrees), true);
  return result;
}

std::vector<Compared> wholeChains() {
  const std::vector<Step> steps = facetbox::allSteps(kWeldTolerance, 350);
  const auto calls = [=](const Cleanup::MeshData& data) { return callAll(data, steps); };
  const auto city = [](std::size_t corners) { return ::city(corners, Texture::none); };
  const auto texturedCity = [](std::size_t corners) { return ::city(corners, Texture::mapped); };
  const auto soup = [](std::size_t corners) { return soupOfSphere(corners, FaceOrder::sequential, Texture::none); };
  return {{"allSteps/city", city, calls, steps},
          {"allSteps/city/texture", texturedCity, calls, steps},
          {"allSteps/soup/sphere", soup, calls, steps}};
}

/// Processor time, so that others on the machine count little.
double secondsOf(const std::function<void()>& call) {
  const double begin = cpuSeconds();
  call();
  return cpuSeconds() - begin;
}

std::size_t bytesOf(const facetbox::Cleaned& cleaned) {
  const PolyMesh& mesh = cleaned.mesh;
  return 8 * (mesh.points.size() + mesh.texCoords.size()) +
         4 * (mesh.counts.size() + mesh.indices.size() + mesh.texIndices.size() + mesh.labels.size() +
              cleaned.vertexMap.size() + cleaned.faceMap.size() + cleaned.vertexSources.size() +
              cleaned.sourceOffsets.size() + cleaned.sources.size());
}

void run(benchmark::State& state, const Compared& compared) {
  CleanupWorkload work = compared.make(static_cast<std::size_t>(state.range(0)));
  const PolyMesh mesh = texturedMeshOf(work.input);
  const Cleanup::MeshData data = work.input.view();
  double record = std::numeric_limits<double>::infinity(), door = record;
  for (auto _ : state) {
    Record result(nullptr, Cleanup::freeMeshDataAndHoles);
    facetbox::Cleaned cleaned;
    record = std::min(record, secondsOf([&] { result = compared.recordCalls(data); }));
    const double seconds = secondsOf([&] { cleaned = facetbox::clean(mesh, compared.steps); });
    door = std::min(door, seconds);
    state.SetIterationTime(seconds);
    if (!result || static_cast<std::size_t>(result->mCountCount) != cleaned.mesh.counts.size())
      state.counters["faces differ by"] =
          static_cast<double>(cleaned.mesh.counts.size()) - (result ? result->mCountCount : 0);
  }
  const std::size_t before = allocationCount().bytes;
  resetAllocationCount();
  const facetbox::Cleaned cleaned = facetbox::clean(mesh, compared.steps);
  const double extra =
      static_cast<double>(allocationCount().peakBytes - before) - static_cast<double>(bytesOf(cleaned));
  const auto corners = static_cast<double>(mesh.indices.size());
  state.counters["extraB/corner"] = extra / corners;
  state.counters["ns/corner"] = 1e9 * door / corners;
  state.counters["to record"] = door / record;
}

[[maybe_unused]] const bool isRegistered = [] {
  std::vector<Compared> all = singleSteps();
  std::ranges::move(wholeChains(), std::back_inserter(all));
  for (const Compared& compared : all)
    benchmark::RegisterBenchmark(("clean/" + compared.name).c_str(), run, compared)
        ->ArgName("corners")
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime()
        ->Arg(10'000)
        ->Arg(1'000'000)
        ->Arg(4'000'000);
  return true;
}();

}  // namespace
