#include <facetbox/base/Monitor.h>

#include <chrono>
#include <thread>

#include <facetbox/Cancelled.h>
#include <facetbox/math/Matrix4.h>
#include <facetbox/mesh/HoleAssignment.h>
#include <facetbox/operations/ConformNormals.h>
#include <facetbox/operations/MergeVertices.h>
#include <facetbox/operations/RemoveEdgesCoplanar.h>
#include <facetbox/operations/RemoveEdgesZero.h>
#include <facetbox/operations/RemoveFacesDouble.h>
#include <facetbox/operations/RemoveFacesZero.h>
#include <facetbox/operations/RemoveVerticesColinear.h>
#include <tests/support/Meshes.h>

namespace {

using namespace support;
using util::Monitor;

TEST(Monitor, addsUpPartsWithinParts) {
  std::vector<double> told;
  Monitor monitor([&](double fraction) { told.push_back(fraction); }, 0);
  monitor.start();
  {
    const Monitor::Part part(&monitor, 0.0, 0.5, 10);  // looks before it begins: 0 is told again
    monitor.tick(5);                                   // 0.25
    {
      const Monitor::Part inner(&monitor, 0.5, 1.0);  // 0.25
      std::uint32_t next = 0;
      for (Monitor::Blocks blocks(&monitor, 10'000); blocks.next(); next = blocks.end()) {  // 0.25 before it begins
        EXPECT_EQ(blocks.begin(), next);
        EXPECT_LE(blocks.end() - blocks.begin(), 4096u);
      }
      EXPECT_EQ(next, 10'000u);
    }
    monitor.tick(1);  // 0.3 would be less than what was told
  }
  monitor.finish();
  const std::vector<double> expected{0, 0, 0.25, 0.25, 0.25, 0.25, 0.25 + 0.25 * 0.4096, 0.25 + 0.25 * 0.8192};
  ASSERT_GT(told.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_DOUBLE_EQ(told[i], expected[i]) << i;
  EXPECT_TRUE(std::ranges::is_sorted(told));
  EXPECT_EQ(told.back(), 1.0);
}

TEST(Monitor, blocksAreOneWithoutAMonitorAndNoneWithoutNumbers) {
  int count = 0;
  for (Monitor::Blocks blocks(nullptr, 10'000); blocks.next(); ++count) EXPECT_EQ(blocks.end(), 10'000u);
  EXPECT_EQ(count, 1);
  Monitor monitor([](double) {}, 0);
  for (Monitor* m : {&monitor, static_cast<Monitor*>(nullptr)}) EXPECT_FALSE(Monitor::Blocks(m, 0).next());
}

TEST(Monitor, staysSilentBetweenTwoCalls) {
  int calls = 0;
  Monitor monitor([&](double) { ++calls; }, 50'000'000);
  monitor.start();
  for (int i = 0; i < 100; ++i) monitor.look();
  EXPECT_EQ(calls, 1);
  std::this_thread::sleep_for(std::chrono::milliseconds(51));
  for (int i = 0; i < 100; ++i) monitor.look();
  EXPECT_EQ(calls, 2);
}

TEST(Monitor, belongsToOneMeshObject) {
  Monitor monitor([](double) {});
  Mesh mesh = meshOf({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}});
  mesh.storage().mMonitor.set(&monitor);
  const Mesh copy = mesh;
  EXPECT_EQ(copy.storage().mMonitor.get(), nullptr);
}

/// Plates of all that the operations have to do with: squares with vertices of their own, some twice, needles, short
/// edges, turned faces, holes of which some are dropped.
Mesh plates(unsigned seed, int side) {
  std::mt19937 random(seed);
  std::vector<Vec3> points;
  Faces faces;
  Indices holes;
  const auto add = [&](const std::vector<Vec3>& corners) {
    Indices& face = faces.emplace_back();
    for (const Vec3& p : corners) {
      face.push_back(static_cast<std::uint32_t>(points.size()));
      points.push_back(p);
    }
    if (oneIn(random, 9)) std::ranges::reverse(face);
  };
  for (int x = 0; x < side; ++x)
    for (int y = 0; y < side; ++y) {
      const double a = x, b = y, z = x % 16 == 0 ? 1 : 0;
      if (oneIn(random, 30)) continue;
      for (int times = oneIn(random, 20) ? 2 : 1; times > 0; --times)
        add({{a, b, z}, {a + 0.5, b, z}, {a + 1, b, z}, {a + 1, b + 1, z}, {a, b + 1, z}});
      if (oneIn(random, 10)) {
        const auto outer = static_cast<std::uint32_t>(faces.size() - 1);
        holes.insert(holes.end(), {outer, outer + 1, kEnd});
        const double size = oneIn(random, 4) ? 2 : 0.25;
        add({{a + 0.25, b + 0.25, z}, {a + 0.25 + size, b + 0.25, z}, {a + 0.25, b + 0.25 + size, z}});
      }
      if (oneIn(random, 10)) add({{a, b, z + 3}, {a + 1e-3, b, z + 3}, {a, b + 1e-3, z + 4}, {a, b, z + 4}});
    }
  return meshOf(points, faces, holes);
}

const std::vector<std::function<void(Mesh&)>> kOperations = {
    [](Mesh& mesh) { util::assignHoles(mesh); },
    [](Mesh& mesh) { util::mergeVertices(mesh, 1e-3); },
    [](Mesh& mesh) { util::mergeVertices(mesh, 0.2); },
    [](Mesh& mesh) { util::removeEdgesZero(mesh, 1e-2); },
    [](Mesh& mesh) { util::removeFacesZero(mesh, 1e-2); },
    [](Mesh& mesh) { util::removeFacesDouble(mesh, true); },
    [](Mesh& mesh) { util::conformNormals(mesh, util::kIdentity); },
    [](Mesh& mesh) { util::conformSurfaces(mesh); },
    [](Mesh& mesh) { util::removeEdgesCoplanar(mesh, 1, false); },
    [](Mesh& mesh) { util::removeVerticesColinear(mesh, 1, false); },
    [](Mesh& mesh) { util::removeVerticesColinear(mesh, 1, false, util::StraightAgainst::kept); },
};

/// Everything that makes up the result.
std::tuple<std::vector<Vec3>, Faces, Indices> contentOf(const Mesh& mesh) {
  const auto& vertices = mesh.storage().mVertices;
  return {{vertices.begin(), vertices.end()}, facesOf(mesh), holesOf(mesh)};
}

TEST(Monitor, changesNoResultAndHearsOfRisingFractions) {
  for (const int side : {5, 110}) {
    Mesh mesh = plates(1, side);
    for (std::size_t i = 0; i < kOperations.size(); ++i) {
      SCOPED_TRACE(i);
      Mesh alone = mesh;
      kOperations[i](alone);
      std::vector<double> told;
      Monitor monitor([&](double fraction) { told.push_back(fraction); }, 0);
      mesh.storage().mMonitor.set(&monitor);
      monitor.start();
      kOperations[i](mesh);
      monitor.finish();
      EXPECT_EQ(contentOf(mesh), contentOf(alone));
      expectConsistent(mesh);
      EXPECT_TRUE(std::ranges::is_sorted(told));
      EXPECT_LE(told.back(), 1.0);
      if (side > 5) {
        EXPECT_GE(std::ranges::count_if(told, [](double f) { return f > 0.0 && f < 1.0; }), 3);
      }
      mesh.storage().mMonitor.set(nullptr);
    }
    EXPECT_LT(facesOf(mesh).size(), static_cast<std::size_t>(side) * side);
  }
}

TEST(Monitor, mayStopAnOperationAnywhere) {
  for (std::size_t i = 0; i < kOperations.size(); ++i) {
    int stopped = 0;
    for (bool isDone = false; !isDone;) {
      int callsLeft = 2 + stopped;
      Mesh mesh = plates(static_cast<unsigned>(stopped), stopped % 8 == 0 ? 70 : 6);
      if (i > 2) util::mergeVertices(mesh, 1e-3);
      util::MeshHistory history(mesh.storage().mVertices.size(), mesh.storage().mFaces.size());
      mesh.storage().mHistory.set(&history);
      Monitor monitor(
          [&](double) {
            if (--callsLeft == 0) throw facetbox::Cancelled();
          },
          0);
      mesh.storage().mMonitor.set(&monitor);
      try {
        monitor.start();
        kOperations[i](mesh);
        isDone = true;
      } catch (const facetbox::Cancelled& cancelled) {
        EXPECT_STREQ(cancelled.what(), "cancelled");
        ++stopped;
        // What is left may be thrown away or assigned to.
        mesh = plates(7, 2);
        expectConsistent(mesh);
      }
    }
    EXPECT_GT(stopped, 1) << i;
  }
}

}  // namespace
