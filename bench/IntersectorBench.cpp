// The intersector's queries compared with plain loops over the same triangles.

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <facetbox/intersector/Intersector.h>
#include <facetbox/intersector/NearestSearch.h>
#include <facetbox/math/Matrix4.h>
#include <facetbox/triangles/EdgeList.h>
#include <facetbox/triangles/RayTest.h>
#include <facetbox/triangles/TriangleMeshCache.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>
#include "AllocationCount.h"
#include "PlainClip.h"
#include "Workloads.h"

namespace {

using Floats = std::array<float, 16>;
using Point = std::array<float, 3>;

/// An object in an intersector, and its triangles for the plain loops.
struct Object {
  explicit Object(const Workload& work)
      : mesh("", static_cast<int>(work.coords.size()), work.coords.data(), work.indices.data(),
             static_cast<int>(work.counts.size()), reinterpret_cast<const std::int32_t*>(work.counts.data()), nullptr,
             0, nullptr) {
    util::Triangulator triangulator;
    handle = intersector->createHandle();
    intersector->addEntry(handle, mesh, util::kIdentity, triangulator);
    intersector->applyPendingCommands();
    triangles = util::TriangleMeshCache(1).getTriangleMesh(mesh);
    edges = util::listEdges(triangles->indices(), triangles->vertexCoordinates().size() / 3);
  }

  const util::Mesh mesh;
  const std::unique_ptr<Intersector> intersector{Intersector::createIntersector()};
  std::size_t handle;
  std::shared_ptr<const util::TriangleMesh> triangles;
  util::EdgeList edges;
};

/// Made once for all cases.
const Object& objectOf(const std::string& shape, std::int64_t triangles) {
  static std::map<std::pair<std::string, std::int64_t>, std::unique_ptr<Object>> objects;
  std::unique_ptr<Object>& object = objects[{shape, triangles}];
  const auto count = static_cast<std::size_t>(triangles);
  if (!object) object = std::make_unique<Object>(shape == "sphere" ? sphereOfTriangles(count) : gridOfTriangles(count));
  return *object;
}

/// Checks that `run` gives the plain loop's answer, then times it.
void compare(benchmark::State& state, bool isPlain, const std::function<std::vector<float>()>& run,
             const std::function<std::vector<float>()>& plain) {
  if (run() != plain()) return state.SkipWithError("not the plain loop's answer");
  for (auto _ : state) benchmark::DoNotOptimize(isPlain ? plain() : run());
}

/// The least that a screen mask can cost: project every vertex once, walk every edge once.
class BareRaster {
 public:
  BareRaster(const Floats& matrix, const std::vector<std::int32_t>& cells, int size)
      : mMatrix(matrix), mCells(cells), mSize(size) {}

  bool test(const util::TriangleMesh& mesh, const util::EdgeList& edges) {
    const auto vertices = mesh.vertexCoordinates();
    mPositions.resize(vertices.size() / 3);
    for (std::size_t v = 0; v < mPositions.size(); ++v)
      if (!project(&vertices[3 * v], mPositions[v])) return false;
    return std::ranges::all_of(edges, [&](const util::DirectedEdge& e) { return isLineSet(e.mFrom, e.mTo); });
  }

 private:
  struct Position {
    int x, y;
  };

  bool project(const double* vertex, Position& p) const {
    const Floats& m = mMatrix;
    const float x = static_cast<float>(vertex[0]), y = static_cast<float>(vertex[1]), z = static_cast<float>(vertex[2]);
    const float w = std::fabs(m[3] * x + m[7] * y + m[11] * z + m[15]), size = static_cast<float>(mSize);
    const float sx = (m[0] * x + m[4] * y + m[8] * z + m[12]) / w * 0.5f + 0.5f;
    const float sy = (m[1] * x + m[5] * y + m[9] * z + m[13]) / w * 0.5f + 0.5f;
    const float sz = (m[2] * x + m[6] * y + m[10] * z + m[14]) / w * 0.5f + 0.5f;
    p = {static_cast<int>(size * sx + 0.5f), static_cast<int>(size - size * sy + 0.5f)};
    return 0 <= sz && sz <= 1 && p.x >= 0 && p.x < mSize && p.y >= 0 && p.y < mSize &&
           mCells[static_cast<std::size_t>(mSize * p.y + p.x)] != 0;
  }

  bool isLineSet(std::uint32_t from, std::uint32_t to) const {
    auto [x, y] = mPositions[from];
    const Position end = mPositions[to];
    const int dx = std::abs(end.x - x), dy = -std::abs(end.y - y), sx = x < end.x ? 1 : -1, sy = y < end.y ? 1 : -1;
    for (int error = dx + dy; x != end.x || y != end.y;) {
      const int twice = 2 * error;
      if (twice >= dy) error += dy, x += sx;
      if (twice <= dx) error += dx, y += sy;
      if (mCells[static_cast<std::size_t>(mSize * y + x)] == 0) return false;
    }
    return true;
  }

  const Floats mMatrix;
  const std::vector<std::int32_t>& mCells;
  const int mSize;
  std::vector<Position> mPositions;
};

/// The sphere, which has a radius of at most 102, in the middle of the raster.
void raster(benchmark::State& state, std::int64_t triangles, int size, bool isPlain) {
  const Object& object = objectOf("sphere", triangles);
  constexpr float kScale = 1 / 110.0f;
  const Floats matrix{kScale, 0, 0, 0, 0, kScale, 0, 0, 0, 0, -kScale, 0, 0, 0, 0, 1};
  const int viewport[4] = {0, 0, size, size};
  const std::vector<std::int32_t> cells(static_cast<std::size_t>(size) * static_cast<std::size_t>(size), 1);
  BareRaster bare(matrix, cells, size);
  const auto run = [&] {
    return object.intersector->testRaster(object.handle, matrix.data(), viewport, cells.data(), size, size, 0, 0);
  };
  if (!run() || !bare.test(*object.triangles, object.edges)) return state.SkipWithError("not covered");
  resetAllocationCount();
  run();
  state.counters["allocations"] = static_cast<double>(allocationCount().calls);
  for (auto _ : state) benchmark::DoNotOptimize(isPlain ? bare.test(*object.triangles, object.edges) : run());
  state.counters["edges/s"] =
      benchmark::Counter(static_cast<double>(object.edges.size()), benchmark::Counter::kIsIterationInvariantRate);
}

struct Volume {
  const char* name;
  const char* shape;
  Floats matrix;
  Point eye, direction;
};

/// A cube in the world, seen along -z.
Floats cubeAt(float x, float y, float z, float size) {
  return {1 / size, 0, 0, 0, 0, 1 / size, 0, 0, 0, 0, -1 / size, 0, -x / size, -y / size, z / size, 1};
}

/// A camera at (0, 0, z) with a view of 90 degrees along -z.
Floats cameraAt(float z) {
  constexpr float kNear = 1, kFar = 1000, kDepth = (kFar + kNear) / (kNear - kFar);
  return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, kDepth, -1, 0, 0, -z * kDepth + 2 * kFar * kNear / (kNear - kFar), z};
}

const std::vector<Volume>& volumes() {
  // The sphere's last triangles lie at its largest z; a grid of a million has a side of 708.
  static const std::vector<Volume> all{
      {"hundredth", "sphere", cubeAt(0, 0, 100, 17.7f), {0, 0, 300}, {0, 0, -1}},
      {"hundredthAslant", "sphere", cubeAt(10, -10, 97, 17.7f), {200, 100, 300}, {-2, -1, -3}},
      {"beside", "sphere", cubeAt(80, 80, 80, 15), {0, 0, 300}, {0, 0, -1}},
      {"whole", "sphere", cubeAt(0, 0, 0, 110), {0, 0, 300}, {0, 0, -1}},
      {"whollyBeside", "sphere", cubeAt(500, 0, 0, 110), {0, 0, 300}, {0, 0, -1}},
      {"camera", "sphere", cameraAt(300), {0, 0, 300}, {0, 0, -1}},
      {"behindCamera", "sphere", cameraAt(-300), {0, 0, -300}, {0, 0, -1}},
      {"cameraWithin", "sphere", cameraAt(0), {0, 0, 0}, {0, 0, -1}},
      {"gridFromAbove", "grid", cubeAt(354, 354, 0, 400), {0, 0, 300}, {0, 0, -1}},
      {"halfOfGridFromAbove", "grid", cubeAt(754, 354, 0, 400), {0, 0, 300}, {0, 0, -1}},
      {"gridAlongEdge", "grid", cubeAt(354, 354, 0.25f, 400), {-300, 354, 0}, {1, 0, 0}},
      {"gridAtNearPlane", "grid", cubeAt(354, 354, -399.75f, 400), {0, 0, 300}, {0, 0, -1}},
  };
  return all;
}

void overlap(benchmark::State& state, const Volume& volume, std::int64_t triangles, bool contained, bool isPlain) {
  const Object& object = objectOf(volume.shape, triangles);
  double view[16];
  std::ranges::copy(volume.matrix, view);
  std::vector<double> projected;
  compare(
      state, isPlain,
      [&] {
        return std::vector<float>(
            1, object.intersector->intersectsFrustum(object.handle, volume.matrix.data(), contained) ? 1 : 0);
      },
      [&] {
        const bool answer = contained ? plainLiesInClipCube(*object.triangles, view)
                                      : plainOverlapsClipCube(*object.triangles, view, projected);
        return std::vector<float>(1, answer ? 1 : 0);
      });
}

void nearest(benchmark::State& state, const Volume& volume, std::int64_t triangles, bool isPlain) {
  const Object& object = objectOf(volume.shape, triangles);
  double view[16];
  std::ranges::copy(volume.matrix, view);
  compare(
      state, isPlain,
      [&] {
        std::vector<float> out(12, 0);
        object.intersector->findNearestInFrustum(object.handle, volume.matrix.data(), volume.eye.data(),
                                                 volume.direction.data(), &out[0], &out[3], &out[6], &out[9]);
        return out;
      },
      [&] {
        util::NearestSearch search(view, {volume.eye[0], volume.eye[1], volume.eye[2]},
                                   {volume.direction[0], volume.direction[1], volume.direction[2]});
        search.searchPlain(*object.triangles, util::kIdentity);
        std::vector<float> out;
        if (const util::NearestHit* hit = search.hit())
          for (const util::Vec3& p : {hit->mPoint, hit->mCorners[0], hit->mCorners[1], hit->mCorners[2]})
            for (const double x : {p.x, p.y, p.z}) out.push_back(static_cast<float>(x));
        out.resize(12, 0);
        return out;
      });
}

void ray(benchmark::State& state, std::int64_t triangles, bool isPlain) {
  const Object& object = objectOf("sphere", triangles);
  const float origin[3] = {10, 20, 300}, direction[3] = {1, -4, -4000};
  const double from[3] = {10, 20, 300}, along[3] = {1, -4, -4000};
  compare(
      state, isPlain,
      [&] {
        std::vector<float> out(4, 0);
        object.intersector->intersectsRay(object.handle, origin, direction, &out[0], &out[1]);
        return out;
      },
      [&] {
        double t = FLT_MAX, normal[3] = {0, 0, 0};
        util::intersectRayPlain(*object.triangles, util::kIdentity, from, along, &t, normal);
        return std::vector<float>{static_cast<float>(t), static_cast<float>(normal[0]), static_cast<float>(normal[1]),
                                  static_cast<float>(normal[2])};
      });
}

[[maybe_unused]] const bool isRegistered = [] {
  const auto add = [](const std::string& name, std::int64_t triangles, auto run) {
    for (const bool isPlain : {true, false})
      benchmark::RegisterBenchmark(
          (name + (isPlain ? "/plain" : "") + "/triangles:" + std::to_string(triangles)).c_str(),
          [run, isPlain](benchmark::State& state) { run(state, isPlain); })
          ->Unit(benchmark::kMicrosecond);
  };
  for (const std::int64_t triangles : {12, 1'000, 30'000, 1'000'000}) {
    for (const int size : {64, 512, 4096})
      add("intersector/raster:" + std::to_string(size), triangles,
          [=](benchmark::State& state, bool isPlain) { raster(state, triangles, size, isPlain); });
    for (const Volume& volume : volumes()) {
      const std::string name = volume.name;
      for (const bool contained : {false, true})
        add((contained ? "intersector/contain/" : "intersector/overlap/") + name, triangles,
            [=, &volume](benchmark::State& state, bool isPlain) {
              overlap(state, volume, triangles, contained, isPlain);
            });
      add("intersector/nearest/" + name, triangles,
          [=, &volume](benchmark::State& state, bool isPlain) { nearest(state, volume, triangles, isPlain); });
    }
    add("intersector/ray", triangles, [=](benchmark::State& state, bool isPlain) { ray(state, triangles, isPlain); });
  }
  return true;
}();

}  // namespace
