#include <facetbox/triangles/EdgeList.h>

#include <array>
#include <set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <tests/support/Meshes.h>

namespace {

TEST(EdgeList, hasEachEdgeOnceAsTheWalkFirstMeetsIt) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    // Few vertices for many triangles: some edges are used often, some vertices by very many.
    const std::uint32_t vertices = support::below(random, 60) + 1;
    const support::Indices indices = support::randomIndices(random, 3 * support::below(random, 400), vertices);
    std::set<std::pair<std::uint32_t, std::uint32_t>> met, expected, listed;
    for (std::size_t i = 0; i < indices.size(); ++i) {
      const std::uint32_t from = indices[i], to = indices[i % 3 == 2 ? i - 2 : i + 1];
      if (from != to && met.insert(std::minmax(from, to)).second) expected.insert({from, to});
    }
    const util::EdgeList edges = util::listEdges(indices, vertices);
    for (const util::DirectedEdge& edge : edges) listed.insert({edge.mFrom, edge.mTo});
    ASSERT_EQ(listed, expected);
    ASSERT_EQ(edges.size(), expected.size());
  }
}

}  // namespace
