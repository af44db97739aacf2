#include <facetbox/util/mesh/HoleTable.h>

#include <gmock/gmock.h>

#include <tests/support/PlainMesh.h>

namespace {

using namespace support;
using util::HoleTable;

HoleTable tableOf(const Indices& entries) {
  HoleTable table;
  table.append(entries.data(), entries.size());
  return table;
}

Indices listOf(const HoleTable& table) { return {table.list().begin(), table.list().end()}; }

TEST(HoleTable, validatesAndRenumbersLikeItsSlowTwin) {
  for (unsigned seed = 0; seed < 3000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::size_t faceCount = below(random, 9);
    // Short groups of small numbers, some out of range, empty or unfinished.
    Indices list = randomIndices(random, below(random, 26), faceCount + 3);
    for (std::uint32_t& entry : list)
      if (oneIn(random, 4)) entry = kEnd;
    if (!oneIn(random, 8)) list.push_back(kEnd);

    HoleTable validated = tableOf(list), renumbered = tableOf(list);
    const Indices expected = validatedHoles(list, faceCount);
    EXPECT_EQ(validated.validate(faceCount), list.size() - expected.size());
    EXPECT_EQ(listOf(validated), expected);

    std::vector<bool> kept;
    util::FaceRenumbering renumbering(faceCount);
    for (std::size_t face = 0; face < faceCount; ++face) renumbering.add(kept.emplace_back(!oneIn(random, 3)));
    renumbered.renumber(renumbering);
    EXPECT_EQ(listOf(renumbered), renumberedHoles(list, kept));
    validated.renumber(renumbering);
    EXPECT_EQ(listOf(validated), renumberedHoles(expected, kept));
  }
}

TEST(HoleTable, groupsAscendAndAHoleOfTwoBelongsToTheLowerOuterFace) {
  const HoleTable table = tableOf({7, 2, 3, kEnd, kEnd, 9, 1, kEnd, 5, 3, 9, kEnd, 7, 4, kEnd, 0});
  std::vector<std::pair<std::uint32_t, Indices>> groups;
  for (const HoleTable::Group& group : table.groupsByOuter(8))
    groups.emplace_back(group.outer, Indices(group.holes.begin(), group.holes.end()));
  EXPECT_THAT(groups, testing::ElementsAre(testing::Pair(5, Indices({3, 9})), testing::Pair(7, Indices({2, 3})),
                                           testing::Pair(7, Indices({4}))));
  EXPECT_EQ(table.outerOfHoles(8), std::vector<std::uint32_t>({kEnd, kEnd, 7, 5, 7, kEnd, kEnd, kEnd}));
  EXPECT_TRUE(HoleTable().outerOfHoles(8).empty());
}

}  // namespace
