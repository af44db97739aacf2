#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/intersector/Intersector.h>
#include <facetbox/util/Triangulator.h>
#include <tests/support/FailingMemory.h>
#include <tests/support/Scenes.h>

namespace {

using support::ortho;
using support::shifted;
using support::succeedsWith;

// A change that memory does not suffice for may be lost, but nothing else: all that is in the scene stays there, in
// order, and the changes behind it are made.
TEST(Picker, losesNoObjectWhereMemoryEnds) {
  const support::SceneMeshes meshes;
  constexpr std::uint32_t kCount = 40;
  const support::View all = support::viewOf(ortho(200));
  bool everSucceeded = false;
  for (long allocations = 0; !everSucceeded; ++allocations) {
    const std::unique_ptr<Picker> picker(Picker::createPicker());
    const std::size_t handle = picker->createHandle();
    for (std::uint32_t id = 0; id < kCount; ++id) {
      const double at = id % 8;
      picker->addEntry(handle, id, {&meshes.cube()}, shifted(3 * at - 10, at - 5, id / 8.0).data());
    }
    picker->applyPendingCommands();
    const std::vector<std::uint32_t> before = support::picked(*picker, handle, all, false);
    ASSERT_EQ(before.size(), kCount);

    // Far away: the root has to grow, and everything to find a new cell.
    picker->addEntry(handle, 1000, {&meshes.cube()}, shifted(150, 0, 0).data());
    picker->relocate(handle, 1, 2, 3);
    picker->addEntry(handle, 1001, {&meshes.cube()}, shifted(0, 150, 0).data());
    everSucceeded = succeedsWith(allocations, [&] { picker->applyPendingCommands(); });
    float distance = 0;
    const float origin[3] = {-9.5F, -2.75F, 190}, direction[3] = {0, 0, -1};
    succeedsWith(allocations / 2, [&] { picker->pickRay(handle, 0, origin, direction, &distance, nullptr); });

    const std::vector<std::uint32_t> after = support::picked(*picker, handle, all, false);
    for (std::uint32_t id = 0; id < kCount; ++id)
      ASSERT_EQ(std::ranges::count(after, id), 1) << allocations << ' ' << id;
    ASSERT_GE(after.size(), kCount + 1) << allocations;  // one change at most was lost
    EXPECT_EQ(picker->getPendingCommandCount(), 0u);
    picker->dispose(handle);
    picker->applyPendingCommands();
  }
}

TEST(Intersector, hasNoEntryForAnObjectThatMemoryDidNotSufficeFor) {
  const support::SceneMeshes meshes;
  const support::View all = support::viewOf(ortho(50));
  util::Triangulator triangulator;
  bool succeeded = false;
  for (long allocations = 0; !succeeded; ++allocations) {
    const std::unique_ptr<Intersector> intersector(Intersector::createIntersector());
    const std::size_t handle = intersector->createHandle();
    intersector->addEntry(handle, meshes.cube(), shifted(1, 2, 3).data(), triangulator);
    succeeded = succeedsWith(allocations, [&] { intersector->applyPendingCommands(); });
    EXPECT_EQ(intersector->intersectsFrustum(handle, all.mMatrix.data(), true), succeeded) << allocations;
    intersector->dispose(handle);
    intersector->applyPendingCommands();
  }
}

}  // namespace
