#include <facetbox/util/mesh/HoleTable.h>

#include <algorithm>
#include <unordered_map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/support/PlainMesh.h>

namespace {

using support::Indices;
using support::kEnd;
using support::pick;
using util::HoleTable;

HoleTable tableOf(const Indices& entries) {
  HoleTable table;
  table.append(entries.data(), entries.size());
  return table;
}

Indices listOf(const HoleTable& table) { return {table.list().begin(), table.list().end()}; }

/// The stated validation, step by step.
Indices validatedSlowly(const Indices& list, std::size_t faceCount) {
  if (list.size() < 2 || list.back() != kEnd) return {};
  std::unordered_map<std::uint32_t, Indices> holesOf;
  Indices outers;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (list[i] == kEnd) continue;
    const std::uint32_t outer = list[i++];
    if (outer < faceCount && !holesOf.contains(outer)) {
      holesOf[outer];
      outers.push_back(outer);
    }
    for (; list[i] != kEnd; ++i) {
      if (outer >= faceCount || list[i] >= faceCount || list[i] == outer) continue;
      Indices& holes = holesOf[outer];
      if (std::ranges::count(holes, list[i]) == 0) holes.push_back(list[i]);
    }
  }
  Indices result;
  for (const std::uint32_t outer : outers) {
    result.push_back(outer);
    result.insert(result.end(), holesOf[outer].begin(), holesOf[outer].end());
    result.push_back(kEnd);
  }
  return result;
}

/// Short groups of small numbers, some out of range, empty or unfinished.
Indices randomList(std::mt19937& random, int faceCount) {
  Indices list(static_cast<std::size_t>(pick(random, 0, 25)));
  for (std::uint32_t& entry : list)
    entry = pick(random, 0, 3) == 0 ? kEnd : static_cast<std::uint32_t>(pick(random, 0, faceCount + 2));
  if (pick(random, 0, 7) != 0) list.push_back(kEnd);
  return list;
}

TEST(HoleTable, validationMergesGroupsAndDropsWhatCannotBeAHole) {
  HoleTable table = tableOf({4, 6, 6, 4, kEnd, 4, 7, kEnd});
  EXPECT_EQ(table.validate(10), 4u);
  EXPECT_EQ(listOf(table), Indices({4, 6, 7, kEnd}));

  HoleTable unfinished = tableOf({4, 6, kEnd, 5, 7});
  EXPECT_EQ(unfinished.validate(10), 5u);
  EXPECT_TRUE(unfinished.empty());

  HoleTable lonely = tableOf({kEnd});
  EXPECT_EQ(lonely.validate(10), 1u);
  EXPECT_TRUE(lonely.empty());

  HoleTable childless = tableOf({3, 3, 12, kEnd, kEnd, 12, 1, kEnd});
  EXPECT_EQ(childless.validate(10), 6u);
  EXPECT_EQ(listOf(childless), Indices({3, kEnd}));
}

TEST(HoleTable, validatesAndRenumbersLikeItsSlowTwin) {
  for (unsigned seed = 0; seed < 3000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const int faceCount = pick(random, 0, 8);
    const Indices list = randomList(random, faceCount);

    HoleTable validated = tableOf(list);
    const Indices expected = validatedSlowly(list, static_cast<std::size_t>(faceCount));
    EXPECT_EQ(validated.validate(static_cast<std::size_t>(faceCount)), list.size() - expected.size());
    EXPECT_EQ(listOf(validated), expected);

    std::vector<bool> kept(static_cast<std::size_t>(faceCount));
    util::FaceRenumbering renumbering(kept.size());
    for (std::size_t face = 0; face < kept.size(); ++face) {
      kept[face] = pick(random, 0, 2) != 0;
      renumbering.add(kept[face]);
    }
    HoleTable renumbered = tableOf(list);
    renumbered.renumber(renumbering);
    EXPECT_EQ(listOf(renumbered), support::renumberedHoles(list, kept));
    validated.renumber(renumbering);
    EXPECT_EQ(listOf(validated), support::renumberedHoles(expected, kept));
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
