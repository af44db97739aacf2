#include <facetbox/util/mesh/EdgeMap.h>

#include <tests/support/Meshes.h>

namespace {

using namespace support;
using util::EdgeMap;
using util::EdgeMask;

void expectLikeSlowTwin(const util::PrimitiveList& faces, std::size_t vertexCount, const std::vector<bool>* marked,
                        EdgeMask mode) {
  struct SlowEdge {
    std::uint32_t low, high;
    bool reversed;
    Indices faces;
  };
  std::vector<SlowEdge> edges;
  Indices edgeOfCorner(faces.poolSize(), EdgeMap::kNone);
  for (std::uint32_t face = 0; face < faces.size(); ++face) {
    const auto index = faces.corners(face);
    for (std::size_t i = 0; i < index.size(); ++i) {
      const std::uint32_t a = index[i], b = index[(i + 1) % index.size()];
      if (marked && mode == EdgeMask::bothEndsMarked && !((*marked)[a] && (*marked)[b])) continue;
      if (marked && mode == EdgeMask::oneEndMarked && !(*marked)[a] && !(*marked)[b]) continue;
      auto edge = std::ranges::find_if(
          edges, [&](const SlowEdge& e) { return e.low == std::min(a, b) && e.high == std::max(a, b); });
      if (edge == edges.end()) edge = edges.insert(edge, {std::min(a, b), std::max(a, b), a >= b, {}});
      edge->faces.push_back(face);
      edgeOfCorner[faces.offset(face) + i] = static_cast<std::uint32_t>(edge - edges.begin());
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

TEST(EdgeMap, equalsAListInTheOrderOfTheWalkOnRandomFacesAndFans) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    // Few vertices and many faces: edges of one vertex, edges that a face uses twice, and long buckets.
    std::uint32_t vertexCount = pick(random, 1, 14);
    Faces faces(below(random, 41));
    for (Indices& face : faces) face = randomIndices(random, pick(random, 1, 6), vertexCount);
    if (seed % 20 == 0) {  // a fan, of sizes around where buckets are sorted in another way
      const std::uint32_t size = seed < 400 ? 1 + seed / 20 : 100;
      vertexCount = size + 1;
      faces.clear();
      for (std::uint32_t i = size; i-- > 0;) faces.push_back({0, i + 1, (i + 1) % size + 1});
    }
    Mesh mesh = meshOf(std::vector<Vec3>(vertexCount), faces);
    util::PrimitiveList& list = mesh.storage().mFaces;
    for (std::size_t face = 0; face < list.size(); ++face) {
      if (oneIn(random, 10)) list.clear(face);
      if (list.cornerCount(face) > 3 && oneIn(random, 5)) list.shrink(face, 3);
      if (list.cornerCount(face) != 3 || !oneIn(random, 10)) continue;
      const Indices corners(list.corners(face).begin(), list.corners(face).end());
      list.relocate(face, 3);
      std::ranges::copy(corners, list.corners(face).begin());
    }
    std::vector<bool> marked;
    for (std::uint32_t v = 0; v < vertexCount; ++v) marked.push_back(!oneIn(random, 3));
    expectLikeSlowTwin(list, vertexCount, nullptr, EdgeMask::bothEndsMarked);
    expectLikeSlowTwin(list, vertexCount, &marked, EdgeMask::bothEndsMarked);
    expectLikeSlowTwin(list, vertexCount, &marked, EdgeMask::oneEndMarked);
  }
}

}  // namespace
