#include <facetbox/util/mesh/EdgeMap.h>

#include <algorithm>
#include <map>

#include <gtest/gtest.h>

#include <facetbox/util/mesh/MeshStorage.h>
#include <tests/support/Meshes.h>

namespace {

using support::Faces;
using support::Indices;
using support::pick;
using util::EdgeMap;
using util::EdgeMask;

struct SlowEdge {
  std::uint32_t low, high;
  bool reversed;
  Indices faces;
};

void expectLikeSlowTwin(const util::PrimitiveList& faces, std::size_t vertexCount, const std::vector<bool>* marked,
                        EdgeMask mode) {
  std::vector<SlowEdge> edges;
  std::map<std::uint64_t, std::uint32_t> positions;
  Indices edgeOfCorner(faces.poolSize(), EdgeMap::kNone);
  for (std::uint32_t face = 0; face < faces.size(); ++face) {
    const auto index = faces.corners(face);
    for (std::size_t i = 0; i < index.size(); ++i) {
      const std::uint32_t a = index[i], b = index[(i + 1) % index.size()];
      if (marked && mode == EdgeMask::bothEndsMarked && !((*marked)[a] && (*marked)[b])) continue;
      if (marked && mode == EdgeMask::oneEndMarked && !(*marked)[a] && !(*marked)[b]) continue;
      const std::uint64_t key = std::uint64_t{std::max(a, b)} << 32 | std::min(a, b);
      const auto [known, isNew] = positions.try_emplace(key, static_cast<std::uint32_t>(edges.size()));
      if (isNew) edges.push_back({std::min(a, b), std::max(a, b), a >= b, {}});
      edges[known->second].faces.push_back(face);
      edgeOfCorner[faces.offset(face) + i] = known->second;
    }
  }

  const EdgeMap map = util::buildEdgeMap(faces, vertexCount, marked, mode);
  ASSERT_EQ(map.size(), edges.size());
  for (std::size_t e = 0; e < edges.size(); ++e) {
    EXPECT_EQ(map.edge(e).low, edges[e].low);
    EXPECT_EQ(map.edge(e).high, edges[e].high);
    EXPECT_EQ(map.firstMetReversed(e), edges[e].reversed);
    EXPECT_EQ(Indices(map.faces(e).begin(), map.faces(e).end()), edges[e].faces);
  }
  for (std::size_t p = 0; p < edgeOfCorner.size(); ++p) EXPECT_EQ(map.edgeOfCorner(p), edgeOfCorner[p]);
}

TEST(EdgeMap, equalsAnOrderedMapOnRandomFaces) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const int vertexCount = pick(random, 1, 14);
    // Few vertices and many faces: edges of one vertex, edges that a face uses twice, and long buckets.
    Faces faces(static_cast<std::size_t>(pick(random, 0, 40)));
    for (Indices& face : faces)
      for (int corner = pick(random, 1, 6); corner > 0; --corner)
        face.push_back(static_cast<std::uint32_t>(pick(random, 0, vertexCount - 1)));
    util::Mesh mesh = support::meshOf(std::vector<util::Vec3>(static_cast<std::size_t>(vertexCount)), faces);
    util::PrimitiveList& list = mesh.storage().mFaces;
    for (std::size_t face = 0; face < list.size(); ++face) {
      if (pick(random, 0, 9) == 0) list.clear(face);
      if (list.cornerCount(face) > 3 && pick(random, 0, 4) == 0) list.shrink(face, 3);
    }

    std::vector<bool> marked;
    for (int v = 0; v < vertexCount; ++v) marked.push_back(pick(random, 0, 2) != 0);
    const auto count = static_cast<std::size_t>(vertexCount);
    expectLikeSlowTwin(list, count, nullptr, EdgeMask::bothEndsMarked);
    expectLikeSlowTwin(list, count, &marked, EdgeMask::bothEndsMarked);
    expectLikeSlowTwin(list, count, &marked, EdgeMask::oneEndMarked);
  }
}

TEST(EdgeMap, fansOfEverySizeAroundOneVertexKeepTheOrderOfTheWalk) {
  for (std::uint32_t size : {1u, 10u, 11u, 12u, 13u, 100u}) {
    SCOPED_TRACE(size);
    Faces faces;
    for (std::uint32_t i = size; i-- > 0;) faces.push_back({0, i + 1, (i + 1) % size + 1});
    const util::Mesh mesh = support::meshOf(std::vector<util::Vec3>(size + 1), faces);
    expectLikeSlowTwin(mesh.storage().mFaces, size + 1, nullptr, EdgeMask::bothEndsMarked);
  }
}

TEST(EdgeMap, facesThatHaveMovedWithinThePoolKeepTheOrderOfTheWalk) {
  Faces faces;
  for (std::uint32_t i = 0; i < 40; ++i) faces.push_back({0, i + 1, (i + 1) % 40 + 1});
  util::Mesh mesh = support::meshOf(std::vector<util::Vec3>(41), faces);
  util::PrimitiveList& list = mesh.storage().mFaces;
  for (const std::size_t face : {0u, 7u, 3u}) {
    list.relocate(face, 3);
    std::ranges::copy(faces[face], list.corners(face).begin());
  }
  expectLikeSlowTwin(list, 41, nullptr, EdgeMask::bothEndsMarked);
}

}  // namespace
