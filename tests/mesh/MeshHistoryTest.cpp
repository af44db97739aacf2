#include <facetbox/mesh/MeshHistory.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/operations/MergeVertices.h>
#include <facetbox/operations/RemoveEdgesCoplanar.h>
#include <facetbox/operations/RemoveFacesDouble.h>
#include <facetbox/operations/RemoveFacesZero.h>
#include <facetbox/operations/RemoveVerticesColinear.h>
#include <tests/support/Meshes.h>
#include <tests/support/PolygonFormulas.h>

namespace {

using namespace support;
using util::MeshHistory;
using util::NumberHistory;
constexpr std::uint32_t kNone = NumberHistory::kNone;

Indices copyOf(std::span<const std::uint32_t> numbers) { return {numbers.begin(), numbers.end()}; }

TEST(NumberHistory, followsWhatIsJoinedThroughSeveralRenumberings) {
  // Of 0 1 2 3 4, 1 becomes part of 2 and 2 of 4, and the place of 1 is used anew; 2 is dropped.
  NumberHistory history(5);
  history.join(1, 2);
  history.join(2, 4);
  history.renumber([](std::uint32_t i) { return Indices{0, 1, kNone, 2, 3}[i]; });
  EXPECT_EQ(copyOf(history.map()), (Indices{0, 3, 3, 2, 3}));
  EXPECT_EQ(copyOf(history.sources()), (Indices{0, 1, 3, 4}));
  // 0 and 3 become one, one is new, and 2 goes.
  history.append();
  history.renumber([](std::uint32_t i) { return Indices{0, 1, kNone, 0, 2}[i]; });
  EXPECT_EQ(copyOf(history.map()), (Indices{0, 0, 0, kNone, 0}));
  EXPECT_EQ(copyOf(history.sources()), (Indices{0, 1, kNone}));
}

TEST(NumberHistory, aCircleOfDroppedItemsLeadsNowhere) {
  NumberHistory history(3);
  history.join(0, 1);
  history.join(1, 0);
  history.join(2, 1);
  history.renumber([](std::uint32_t) { return kNone; });
  EXPECT_EQ(copyOf(history.map()), (Indices{kNone, kNone, kNone}));
}

/// A pile of cubes as squares with corners of their own, off by less than `jitter`; some squares twice, and some with
/// an edge that is all but zero.
Surface patchwork(std::mt19937& random, double jitter) {
  std::set<std::array<int, 3>> cubes;
  for (int i = pick(random, 1, 30); i > 0; --i)
    cubes.insert({pick(random, 0, 3), pick(random, 0, 3), pick(random, 0, 2)});
  const Surface solid = surfaceOf(cubes, 1);
  Surface patches;
  const auto off = [&] { return jitter * pick(random, -100, 100) / 300; };
  for (const Indices& face : solid.mFaces) {
    for (int times = oneIn(random, 10) ? 2 : 1; times > 0; --times) {
      Indices corners;
      for (const std::uint32_t v : face) {
        for (int copies = oneIn(random, 15) ? 2 : 1; copies > 0; --copies) {
          corners.push_back(static_cast<std::uint32_t>(patches.mPoints.size()));
          patches.mPoints.push_back(solid.mPoints[v] + Vec3{off(), off(), off()});
        }
      }
      patches.mFaces.push_back(corners);
    }
  }
  return patches;
}

/// Area per face, less that of its holes.
std::vector<double> openAreasOf(const Mesh& mesh) {
  const std::vector<Vec3> points(mesh.storage().mVertices.begin(), mesh.storage().mVertices.end());
  std::vector<double> areas;
  for (const Indices& corners : facesOf(mesh)) areas.push_back(length(areaVectorOf(points, corners)) / 2);
  const Indices holes = holesOf(mesh);
  for (std::size_t i = 0; i < holes.size(); ++i) {
    double& outer = areas[holes[i]];
    while (holes[++i] != kEnd) outer -= areas[holes[i]];
  }
  return areas;
}

/// So far faces have only lost corners to others.
void expectCornersLeadToCorners(const Surface& before, const Mesh& mesh, const MeshHistory& history) {
  const Faces now = facesOf(mesh);
  for (std::uint32_t f = 0; f < before.mFaces.size(); ++f) {
    const std::uint32_t face = history.faces.map()[f];
    if (face == kNone) continue;
    std::set<std::uint32_t> led;
    for (const std::uint32_t v : before.mFaces[f]) led.insert(history.vertices.map()[v]);
    EXPECT_EQ(led, std::set<std::uint32_t>(now.at(face).begin(), now[face].end())) << f;
  }
}

TEST(MeshHistory, leadsEachVertexToItsPlaceAndEachFaceToWhatItBecamePartOf) {
  std::size_t merged = 0, collapsed = 0, deleted = 0;
  for (unsigned seed = 0; seed < 150; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const double jitter = seed % 3 == 0 ? 0 : 1e-4;
    const Surface surface = patchwork(random, jitter);
    Mesh mesh = meshOf(surface.mPoints, surface.mFaces);
    MeshHistory history(surface.mPoints.size(), surface.mFaces.size());
    mesh.storage().mHistory.set(&history);
    const bool weldsFirst = oneIn(random, 2);
    if (weldsFirst) util::mergeVertices(mesh, 2 * jitter + 1e-9);
    collapsed += util::mergeEdgesZero(mesh, 3 * jitter + 1e-9).mergedCount;
    if (!weldsFirst) util::mergeVertices(mesh, 2 * jitter + 1e-9);
    expectCornersLeadToCorners(surface, mesh, history);
    util::removeFacesZero(mesh, 1e-3);
    deleted += util::removeFacesDouble(mesh, true);
    merged += util::removeEdgesCoplanar(mesh, 0.5, true);
    util::removeVerticesColinear(mesh, 0.5, true);

    const auto& vertices = mesh.storage().mVertices;
    const Indices vertexMap = copyOf(history.vertices.map()), sources = copyOf(history.vertices.sources()),
                  faceMap = copyOf(history.faces.map());
    ASSERT_EQ(sources.size(), vertices.size());
    for (std::uint32_t v = 0; v < vertices.size(); ++v) {
      EXPECT_EQ(vertices[v], surface.mPoints[sources[v]]);
      EXPECT_EQ(vertexMap[sources[v]], v);
    }
    for (std::uint32_t v = 0; v < vertexMap.size(); ++v)
      if (vertexMap[v] != kNone) {
        EXPECT_LE(length(vertices[vertexMap[v]] - surface.mPoints[v]), 10 * jitter + 1e-12);
      }

    std::vector<double> area(mesh.storage().mFaces.size());
    for (std::uint32_t f = 0; f < faceMap.size(); ++f)
      if (faceMap[f] != kNone) area.at(faceMap[f]) += 1;  // a unit square
    const Indices holes = holesOf(mesh);
    const std::vector<double> openAreas = openAreasOf(mesh);
    for (std::uint32_t f = 0; f < area.size(); ++f) {
      const bool isHole = area[f] == 0;
      if (isHole) {
        EXPECT_NE(std::ranges::find(holes, f), holes.end()) << f;
      } else {
        EXPECT_NEAR(openAreas[f], area[f], 1e-2) << f;
      }
    }
  }
  EXPECT_GT(std::min({merged, collapsed, deleted}), 100u);
}

}  // namespace
