#include <facetbox/operations/RemoveEdgesZero.h>

#include <tests/support/PlainMesh.h>

namespace {

using namespace support;
using util::removeEdgesZero;

double distanceSq(const PlainMesh& mesh, std::uint32_t a, std::uint32_t b) {
  return lengthSq(mesh.mVertices[b] - mesh.mVertices[a]);
}

std::uint64_t removeShortLinesSlowly(PlainMesh& mesh, double t2) {
  PlainMesh kept = mesh;
  kept.mLines.clear(), kept.mRunMaterials.clear(), kept.mRunStarts.clear();
  for (std::uint32_t k = 0; k < mesh.mLines.size(); ++k) {
    if (distanceSq(mesh, mesh.mLines[k].mCorners[0], mesh.mLines[k].mCorners[1]) < t2) continue;
    kept.mLines.push_back(mesh.mLines[k]);
    if (mesh.mRunMaterials.empty()) continue;
    std::size_t run = 0;
    for (std::size_t s = 0; s < mesh.mRunStarts.size() && mesh.mRunStarts[s] <= k; ++s) run = s;
    if (!kept.mRunMaterials.empty() && kept.mRunMaterials.back() == mesh.mRunMaterials[run]) continue;
    kept.mRunMaterials.push_back(mesh.mRunMaterials[run]);
    kept.mRunStarts.push_back(k);  // as numbered before
  }
  const std::uint64_t count = mesh.mLines.size() - kept.mLines.size();
  if (count == 0) return 0;
  if (kept.mRunMaterials.size() == 1) {
    kept.mDefaultMaterial = kept.mRunMaterials[0];
    kept.mRunMaterials.clear(), kept.mRunStarts.clear();
  }
  mesh = kept;
  removeUnusedVertices(mesh);
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
    face.mNormal = normalOf(mesh.mVertices, remaining);
  }
  if (c == 0) return 0;
  sanitizeFaces(mesh);
  bool slivers = false;
  for (PlainFace& face : mesh.mFaces) {
    if (!(1e-6 > areaOf(mesh.mVertices, face.mCorners, face.mNormal))) continue;
    face.clear();
    slivers = true;
  }
  if (slivers) compactPrimitives(mesh);
  removeUnusedVertices(mesh);
  return c;
}

//   4---------3
//   |         |      The edge from 1 to 2 is 0.05 long: it collapses onto 1.
//   |         2
//   0---------1
TEST(RemoveEdgesZero, collapsesAShortEdgeOntoItsFirstVertex) {
  Mesh mesh = meshOf({{0, 0, 0}, {1, 0, 0}, {1, 0.05, 0}, {1, 1, 0}, {0, 1, 0}}, {{0, 1, 2, 3, 4}});
  EXPECT_EQ(removeEdgesZero(mesh, 0.1), 1u);
  EXPECT_EQ(facesOf(mesh), (Faces{{0, 1, 2, 3}}));
}

TEST(RemoveEdgesZero, equalsItsSlowTwinOnRandomMeshes) {
  unsigned removals = 0;
  for (unsigned seed = 0; seed < 3000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    // At the smaller scale half a grid cell is a sliver.
    const double scale = oneIn(random, 3) ? 0x1p-10 : 1.0;
    PlainMesh twin = randomFaceMesh(random, scale);
    if (seed % 4 == 0) twin.makeLines();
    Mesh mesh = buildMesh(twin);
    const double thresholds[] = {0.0, 1.0, -1.0, 1.25, 1.5, 2.0, -3.0, kNaN};  // 1 and 2 are lengths on the grid
    const double threshold = scale * thresholds[below(random, 8)], t2 = threshold * threshold;
    const std::uint64_t expected = seed % 4 == 0 ? removeShortLinesSlowly(twin, t2) : collapseSlowly(twin, t2);
    EXPECT_EQ(removeEdgesZero(mesh, threshold), expected);
    expectSame(mesh, twin);
    if (expected != 0) ++removals;
  }
  EXPECT_GT(removals, 1000u);
}

}  // namespace
