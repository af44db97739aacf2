#include <facetbox/util/operations/RemoveEdgesZero.h>

#include <limits>

#include <gtest/gtest.h>

#include <facetbox/util/mesh/MeshStorage.h>
#include <facetbox/util/mesh/PolygonArea.h>
#include <tests/support/PlainMesh.h>

namespace {

using support::describe;
using support::expectConsistent;
using support::Faces;
using support::facesOf;
using support::Indices;
using support::meshOf;
using support::pick;
using support::PlainFace;
using support::PlainMesh;
using support::plainOf;
using util::removeEdgesZero;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

double distanceSq(const PlainMesh& mesh, std::uint32_t a, std::uint32_t b) {
  const util::Vec3 &p = mesh.mVertices[a], &q = mesh.mVertices[b];
  const double x = q.x - p.x, y = q.y - p.y, z = q.z - p.z;
  return x * x + y * y + z * z;
}

std::uint64_t removeShortLinesSlowly(PlainMesh& mesh, double t2) {
  std::uint64_t count = 0;
  for (PlainFace& line : mesh.mLines) {
    if (!(distanceSq(mesh, line.mCorners[0], line.mCorners[1]) < t2)) continue;
    line.clear();
    ++count;
  }
  if (count == 0) return 0;
  std::vector<PlainFace> lines;
  std::vector<util::MaterialPair> materials;
  Indices starts;
  for (std::uint32_t k = 0; k < mesh.mLines.size(); ++k) {
    if (mesh.mLines[k].isCleared()) continue;
    lines.push_back(mesh.mLines[k]);
    if (mesh.mRunMaterials.empty()) continue;
    std::size_t run = 0;
    for (std::size_t s = 0; s < mesh.mRunStarts.size() && mesh.mRunStarts[s] <= k; ++s) run = s;
    if (!materials.empty() && materials.back() == mesh.mRunMaterials[run]) continue;
    materials.push_back(mesh.mRunMaterials[run]);
    starts.push_back(k);
  }
  mesh.mLines = lines;
  if (materials.size() == 1) {
    mesh.mDefaultMaterial = materials[0];
    materials.clear();
    starts.clear();
  }
  mesh.mRunMaterials = materials;
  mesh.mRunStarts = starts;
  support::removeUnusedVertices(mesh);
  return count;
}

std::uint64_t collapseSlowly(PlainMesh& mesh, double t2) {
  std::uint64_t c = 0;
  for (PlainFace& face : mesh.mFaces) {
    Indices& v = face.mCorners;
    const std::size_t n = v.size();
    std::size_t i = 0;
    while (i < n && !(distanceSq(mesh, v[i], v[(i + 1) % n]) >= t2)) ++i;
    if (i == n) {
      face.clear();
      c += n;
      continue;
    }
    std::size_t m = 0;
    for (std::size_t k = 1; k <= n - 1; ++k) {
      const std::size_t p = (i + k) % n, q = (i + k + 1) % n;
      if (!(distanceSq(mesh, v[p], v[q]) < t2)) continue;
      v[q] = v[p];
      ++m;
    }
    c += m;
    if (m < 1 || n - m < 3) continue;
    Indices remaining{v[0]};
    for (std::size_t k = 1; k < n; ++k)
      if (v[k] != remaining.back() && v[k] != remaining.front()) remaining.push_back(v[k]);
    util::computeFaceNormal(mesh.mVertices, remaining, face.mNormal);
  }
  if (c == 0) return 0;
  support::sanitizeFaces(mesh);
  bool slivers = false;
  for (PlainFace& face : mesh.mFaces) {
    if (!(1e-6 > util::computePolygonArea(mesh.mVertices, face.mCorners, face.mNormal))) continue;
    face.clear();
    slivers = true;
  }
  if (slivers) support::compactPrimitives(mesh);
  support::removeUnusedVertices(mesh);
  return c;
}

TEST(RemoveEdgesZero, equalsItsSlowTwinOnRandomMeshes) {
  unsigned removals = 0;
  for (unsigned seed = 0; seed < 3000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    // At the smaller scale half a grid cell is a sliver.
    const double scale = pick(random, 0, 2) == 0 ? 0x1p-10 : 1.0;
    PlainMesh twin = support::randomFaceMesh(random, scale);
    const bool lines = seed % 4 == 0;
    if (lines) {
      twin.mLines = std::move(twin.mFaces);
      twin.mFaces.clear();
      twin.mHoles.clear();
    }
    util::Mesh mesh = support::buildMesh(twin);
    support::warmCache(mesh);
    const double thresholds[] = {0.0, 1.0, -1.0, 1.25, 1.5, 2.0, -3.0, kNaN};  // 1 and 2 are lengths on the grid
    const double threshold = scale * thresholds[pick(random, 0, 7)];
    const std::uint64_t expected =
        lines ? removeShortLinesSlowly(twin, threshold * threshold) : collapseSlowly(twin, threshold * threshold);
    EXPECT_EQ(removeEdgesZero(mesh, threshold), expected);
    EXPECT_EQ(describe(plainOf(mesh)), describe(twin));
    expectConsistent(mesh);
    if (expected != 0) ++removals;
  }
  EXPECT_GT(removals, 1000u);
}

TEST(RemoveEdgesZero, quadWithOneShortEdgeBecomesTriangleWithItsOwnNormal) {
  //  3 ------- 2
  //  |       /       corners 0 and 1 lie 0.01 apart, 1 off the plane of the others
  //  0-1----'
  util::Mesh mesh = meshOf({{0, 0, 0}, {0.01, 0, 0.005}, {1, 1, 0}, {0, 1, 0}}, {{0, 1, 2, 3}});
  for (const double sign : {-1.0, 1.0}) {
    util::Mesh collapsed(mesh);
    EXPECT_EQ(removeEdgesZero(collapsed, sign * 0.1), 1u);
    EXPECT_EQ(facesOf(collapsed), Faces({{0, 1, 2}}));
    EXPECT_EQ(collapsed.storage().mFaces.normal(0), (util::Vec3{0, 0, 1}));
    EXPECT_EQ(collapsed.storage().mVertices.size(), 3u);
  }
  EXPECT_EQ(removeEdgesZero(mesh, 0.0), 0u);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 2, 3}}));
}

TEST(RemoveEdgesZero, runOfShortEdgesIsMeasuredFromItsSurvivingVertex) {
  // The edge from 0 to 1 is the first long one, so that 1 survives.
  const auto cornersLeft = [](double b, double c) {
    util::Mesh mesh = meshOf({{0, 0, 0}, {5, 0, 0}, {5, b, 0}, {5, c, 0}, {0, 5, 0}}, {{0, 1, 2, 3, 4}});
    const std::uint64_t count = removeEdgesZero(mesh, 1.0);
    return std::pair(count, mesh.storage().mFaces.cornerCount(0));
  };
  EXPECT_EQ(cornersLeft(0.5, 0.9), std::pair(std::uint64_t{2}, 3u));
  EXPECT_EQ(cornersLeft(0.5, 1.2), std::pair(std::uint64_t{1}, 4u));
  EXPECT_EQ(cornersLeft(1.0, 2.0), std::pair(std::uint64_t{0}, 5u));  // the threshold itself is long

  util::Mesh tiny = meshOf({{0, 0, 0}, {0.1, 0, 0}, {0.1, 0.1, 0}, {0, 0.1, 0}}, {{0, 1, 2, 3}});
  EXPECT_EQ(removeEdgesZero(tiny, 1.0), 4u);
  EXPECT_TRUE(facesOf(tiny).empty());
  EXPECT_TRUE(tiny.storage().mVertices.empty());
}

TEST(RemoveEdgesZero, startOfTheFirstLongEdgeCanItselfBeOverwritten) {
  // The first long edge is 0 to 1; the walk ends with the short edge from 3 to 0.
  util::Mesh mesh = meshOf({{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 0.5, 0}}, {{0, 1, 2, 3}});
  EXPECT_EQ(removeEdgesZero(mesh, 1.0), 1u);
  EXPECT_EQ(facesOf(mesh), Faces({{2, 0, 1}}));
  EXPECT_EQ(mesh.storage().mVertices[2], (util::Vec3{0, 0.5, 0}));
}

TEST(RemoveEdgesZero, pointsStayAndOfLinesOnlyTheFirstSegmentCounts) {
  std::vector<util::Polygon> lines(2), points(1);
  lines[0].mVertexIndices = {0, 2, 1};
  lines[1].mVertexIndices = {0, 1, 2};
  points[0].mVertexIndices = {0};
  const std::vector<util::Vec3> vertices{{0, 0, 0}, {0.1, 0, 0}, {9, 0, 0}};
  util::Mesh pointed("", vertices, lines, points);
  const std::string before = describe(plainOf(pointed));
  EXPECT_EQ(removeEdgesZero(pointed, 1.0), 0u);
  EXPECT_EQ(describe(plainOf(pointed)), before);
  util::Mesh lined("", vertices, lines, {});
  EXPECT_EQ(removeEdgesZero(lined, 1.0), 1u);
  EXPECT_EQ(lined.storage().mLines.corners(0)[1], 2u);
}

TEST(RemoveEdgesZero, runBehindRemovedLinesKeepsItsOldStart) {
  std::vector<util::Polygon> lines(4);
  for (std::size_t i = 0; i < 4; ++i) lines[i].mVertexIndices = {0, i == 0 ? 1u : 2u};
  util::Mesh mesh("", {{0, 0, 0}, {0.1, 0, 0}, {9, 0, 0}}, lines, {});
  util::MeshStorage& m = mesh.storage();
  const auto a = support::materialOf("a"), b = support::materialOf("b");
  m.mRunMaterials = {a, b};
  m.mRunStarts = {0, 2};
  util::Mesh single(mesh);
  single.storage().mRunMaterials = {a, a};

  EXPECT_EQ(removeEdgesZero(mesh, 1.0), 1u);
  EXPECT_EQ(m.mLines.size(), 3u);
  EXPECT_EQ(Indices(m.mRunStarts.begin(), m.mRunStarts.end()), Indices({1, 2}));

  // One material left: it becomes the default.
  EXPECT_EQ(removeEdgesZero(single, 1.0), 1u);
  EXPECT_TRUE(single.storage().mRunMaterials.empty() && single.storage().mRunStarts.empty());
  EXPECT_EQ(single.storage().mDefaultMaterial, a);
}

}  // namespace
