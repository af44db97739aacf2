// Triangulation, of working meshes and of meshes in doubles, compared with the bare tessellator, with callbacks that do
// the same on the same contours.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include <GL/glu.h>
#include <benchmark/benchmark.h>

#include <facetbox/PolyMesh.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/triangulate.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>
#include "AllocationCount.h"
#include "Workloads.h"

namespace {

std::vector<double> coordinatesOf(const util::Mesh& mesh) {
  const auto& vertices = mesh.storage().mVertices;
  std::vector<double> coordinates;
  coordinates.reserve(3 * vertices.size());
  for (const util::Vec3& v : vertices) coordinates.insert(coordinates.end(), {v.x, v.y, v.z});
  return coordinates;
}

/// A polygon of `corners` corners around (x, y), every second one pulled in to `inner`, appended as a face.
void addStar(Workload& mesh, double x, double y, int corners, double outer, double inner, bool clockwise = false) {
  std::vector<std::uint32_t> face;
  for (int i = 0; i < corners; ++i) {
    const double angle = (clockwise ? -2 : 2) * std::numbers::pi * i / corners, r = i % 2 == 0 ? outer : inner;
    face.push_back(mesh.addVertex(x + r * std::cos(angle), y + r * std::sin(angle), 0));
  }
  mesh.addFace(face);
}

Workload stars(int count) {
  Workload mesh;
  for (int i = 0; i < count; ++i) addStar(mesh, 3.0 * i, 0, 20, 1, 0.5);
  return mesh;
}

/// Rings of `corners` corners that each hold `perSide` x `perSide`, or fewer, square holes.
Workload perforated(int count, int corners, int perSide, int holes) {
  Workload mesh;
  for (int i = 0; i < count; ++i) {
    const double x = 3.0 * i;
    mesh.holes.push_back(static_cast<std::uint32_t>(mesh.faces()));
    addStar(mesh, x, 0, corners, 1, 0.99);
    for (int hole = 0; hole < holes; ++hole) {
      const double step = 1.2 / perSide;
      mesh.holes.push_back(static_cast<std::uint32_t>(mesh.faces()));
      addStar(mesh, x - 0.6 + (hole % perSide + 0.5) * step, -0.6 + (hole / perSide + 0.5) * step, 4, 0.3 * step,
              0.3 * step, true);
    }
    mesh.holes.push_back(0xFFFFFFFFu);
  }
  return mesh;
}

/// The least that a caller of the tessellator has to write: records, a list per primitive, an index array.
class BareTessellation {
 public:
  explicit BareTessellation(const util::MeshStorage& mesh) : mMesh(mesh), mTess(gluNewTess()) {
    gluTessCallback(mTess, GLU_TESS_BEGIN_DATA, reinterpret_cast<_GLUfuncptr>(&onBegin));
    gluTessCallback(mTess, GLU_TESS_END_DATA, reinterpret_cast<_GLUfuncptr>(&onEnd));
    gluTessCallback(mTess, GLU_TESS_VERTEX_DATA, reinterpret_cast<_GLUfuncptr>(&onVertex));
    gluTessCallback(mTess, GLU_TESS_COMBINE_DATA, reinterpret_cast<_GLUfuncptr>(&onCombine));
    // One contour list per outer face, so that nothing of ours is timed.
    const std::size_t faceCount = mesh.mFaces.size();
    const auto groups = mesh.mHoles.groupsByOuter(faceCount);
    const std::vector<std::uint32_t> outerOf = mesh.mHoles.outerOfHoles(faceCount);
    for (std::uint32_t face = 0; face < faceCount; ++face) {
      if (!outerOf.empty() && outerOf[face] != util::HoleTable::kNone) continue;
      std::vector<std::uint32_t> contours{face};
      for (const auto& group : util::HoleTable::groupsOf(face, groups))
        contours.insert(contours.end(), group.holes.begin(), group.holes.end());
      mContours.push_back(std::move(contours));
      mTriangles += mesh.mFaces.cornerCount(face) - 2;
    }
  }
  BareTessellation(const BareTessellation&) = delete;
  BareTessellation& operator=(const BareTessellation&) = delete;
  ~BareTessellation() { gluDeleteTess(mTess); }

  std::vector<std::uint32_t> run(std::vector<double> coordinates) {
    mCoordinates = std::move(coordinates);
    mIndices = {};
    mIndices.reserve(3 * mTriangles);
    for (const std::vector<std::uint32_t>& contours : mContours) {
      std::size_t corners = 0;
      for (const std::uint32_t face : contours) corners += mMesh.mFaces.cornerCount(face);
      mRecords.resize(corners);
      mCombined.clear();
      mCombined.reserve(512);
      const util::Vec3& normal = mMesh.mFaces.normal(contours[0]);
      std::uint32_t* record = mRecords.data();
      gluTessBeginPolygon(mTess, this);
      gluTessNormal(mTess, normal.x, normal.y, normal.z);
      for (const std::uint32_t face : contours) {
        gluTessBeginContour(mTess);
        for (const std::uint32_t v : mMesh.mFaces.corners(face)) {
          *record = v;
          gluTessVertex(mTess, mCoordinates.data() + 3 * std::size_t{v}, record++);
        }
        gluTessEndContour(mTess);
      }
      gluTessEndPolygon(mTess);
    }
    return std::move(mIndices);
  }

 private:
  static void onBegin(GLenum type, void* data) {
    static_cast<BareTessellation*>(data)->mType = type;
    static_cast<BareTessellation*>(data)->mPrimitive.clear();
  }
  static void onVertex(void* vertex, void* data) {
    static_cast<BareTessellation*>(data)->mPrimitive.push_back(*static_cast<std::uint32_t*>(vertex));
  }
  static void onEnd(void* data) {
    BareTessellation& self = *static_cast<BareTessellation*>(data);
    const std::vector<std::uint32_t>& v = self.mPrimitive;
    const auto emit = [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
      self.mIndices.insert(self.mIndices.end(), {a, b, c});
    };
    if (self.mType == GL_TRIANGLES)
      for (std::size_t i = 0; i + 2 < v.size(); i += 3) emit(v[i], v[i + 1], v[i + 2]);
    else if (self.mType == GL_TRIANGLE_FAN)
      for (std::size_t i = 1; i + 1 < v.size(); ++i) emit(v[0], v[i], v[i + 1]);
    else
      for (std::size_t i = 0; i + 2 < v.size(); ++i) emit(v[i + i % 2], v[i + 1 - i % 2], v[i + 2]);
  }
  static void onCombine(GLdouble position[3], void* [4], GLfloat[4], void** out, void* data) {
    BareTessellation& self = *static_cast<BareTessellation*>(data);
    self.mCombined.push_back(static_cast<std::uint32_t>(self.mCoordinates.size() / 3));
    self.mCoordinates.insert(self.mCoordinates.end(), position, position + 3);
    *out = &self.mCombined.back();
  }

  const util::MeshStorage& mMesh;
  GLUtesselator* mTess;
  std::vector<std::vector<std::uint32_t>> mContours;
  std::size_t mTriangles = 0;
  std::vector<double> mCoordinates;
  std::vector<std::uint32_t> mIndices, mRecords, mCombined, mPrimitive;
  GLenum mType = 0;
};

using Make = std::function<Workload()>;

facetbox::PolyMesh polyMeshOf(const Workload& work) {
  facetbox::PolyMesh mesh;
  mesh.points.assign(work.coords.begin(), work.coords.end());
  mesh.counts.assign(work.counts.begin(), work.counts.end());
  mesh.indices = work.indices;
  mesh.holes = work.holes;
  return mesh;
}

/// Arrays in, arrays out: validation included.
void runFrontDoor(benchmark::State& state, const Make& make) {
  const facetbox::PolyMesh mesh = polyMeshOf(make());
  const std::size_t triangles = facetbox::triangulate(mesh).faces.size();
  for (auto _ : state) benchmark::DoNotOptimize(facetbox::triangulate(mesh).triangles.data());
  state.counters["triangles/s"] =
      benchmark::Counter(static_cast<double>(triangles), benchmark::Counter::kIsIterationInvariantRate);
}

void run(benchmark::State& state, const Make& make, bool bare) {
  Workload work = make();
  const std::vector<std::int32_t> counts(work.counts.begin(), work.counts.end());
  const util::Mesh mesh("", static_cast<int>(work.coords.size()), work.coords.data(), work.indices.data(),
                        static_cast<int>(counts.size()), counts.data(), work.holes.data(),
                        static_cast<int>(work.holes.size()), nullptr);
  BareTessellation bareTessellation(mesh.storage());
  util::Triangulator triangulator;
  const auto ours = [&] {
    return std::unique_ptr<util::TriangleMesh>(triangulator.triangulate(mesh, coordinatesOf(mesh), 0));
  };
  const std::vector<std::uint32_t> expected = bareTessellation.run(coordinatesOf(mesh));
  if (!std::ranges::equal(ours()->indices(), expected)) return state.SkipWithError("not the tessellator's triangles");

  for (auto _ : state) {
    if (bare)
      benchmark::DoNotOptimize(bareTessellation.run(coordinatesOf(mesh)).data());
    else
      benchmark::DoNotOptimize(ours().get());
  }
  state.counters["triangles/s"] =
      benchmark::Counter(static_cast<double>(expected.size() / 3), benchmark::Counter::kIsIterationInvariantRate);
  resetAllocationCount();
  if (!bare) ours();
  state.counters["allocations"] = static_cast<double>(allocationCount().calls);
}

[[maybe_unused]] const bool isRegistered = [] {
  const std::pair<std::string, Make> workloads[] = {
      {"quads:100000", [] { return gridOfQuads(100'000, Surface::bumpy); }},
      {"concave20gons:10000", [] { return stars(10'000); }},
      {"100gonsWith10holes:1000", [] { return perforated(1'000, 100, 4, 10); }},
      {"10000gonWith500holes:1", [] { return perforated(1, 10'000, 23, 500); }},
  };
  for (const auto& [name, make] : workloads) {
    for (const bool bare : {true, false})
      benchmark::RegisterBenchmark(((bare ? "bareTessellator/" : "triangulate/") + name).c_str(), run, make, bare)
          ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("frontDoor/" + name).c_str(), runFrontDoor, make)->Unit(benchmark::kMillisecond);
  }
  return true;
}();

}  // namespace
