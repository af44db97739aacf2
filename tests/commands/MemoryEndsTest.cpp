#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/intersector/Intersector.h>
#include <facetbox/util/Triangulator.h>
#include <facetbox/viewVolume.h>
#include <tests/support/FailingMemory.h>
#include <tests/support/PlainIntersector.h>
#include <tests/support/Scenes.h>

namespace {

using support::ortho;
using support::shifted;
using support::succeedsWith;

// The change that runs out of memory may be lost, but nothing else: all objects stay, and later changes are executed.
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

/// A picker with two sets, a pending addition to a third, and all that calls need as arguments.
struct PickerScene {
  std::unique_ptr<Picker> scene{Picker::createPicker()};
  std::size_t handle = scene->createHandle(), other = scene->createHandle(), late = scene->createHandle();
  support::SceneMeshes meshes;
  util::Mesh large = grid(), unknown = grid();
  support::View view = support::viewOf(ortho(20));

  static util::Mesh grid() {
    const support::Surface squares = support::gridOf(9, 9, [](unsigned, unsigned) { return false; });
    return support::meshOf(squares.mPoints, squares.mFaces);
  }

  PickerScene() {
    for (const std::size_t set : {handle, other}) {
      scene->addEntry(set, 1, {&meshes.cube()}, shifted(0, 0, 0).data());
      scene->addEntry(set, 2, {&large, &meshes.cube()}, shifted(1, 2, 3).data());
    }
    scene->applyPendingCommands();
    scene->addEntry(late, 1, {&large}, shifted(0, 1, 0).data());
  }
  auto answers() {
    std::vector<std::vector<std::uint32_t>> ids;
    std::vector<support::RayAnswer> rays;
    for (const std::size_t set : {handle, late}) {
      ids.push_back(support::picked(*scene, set, view, false));
      for (const std::int32_t id : {1, 2, 3})
        rays.push_back(support::rayPicked(*scene, set, id, {2.5f, 2.75f, 50}, {0, 0, -1}));
    }
    return std::pair(ids, rays);
  }
};

/// The same for an intersector.
struct IntersectorScene {
  std::unique_ptr<Intersector> scene{Intersector::createIntersector()};
  std::size_t handle = scene->createHandle(), other = scene->createHandle(), late = scene->createHandle();
  support::SceneMeshes meshes;
  util::Mesh large = PickerScene::grid(), unknown = PickerScene::grid();
  util::Triangulator triangulator;
  support::Question question;

  IntersectorScene() {
    for (const std::size_t object : {handle, other}) {
      scene->setOABBox(object, large, triangulator);
      for (const util::Mesh* mesh : std::initializer_list<const util::Mesh*>{&meshes.cube(), &large})
        scene->addEntry(object, *mesh, shifted(1, 2, 3).data(), triangulator);
    }
    scene->applyPendingCommands();
    scene->addEntry(late, meshes.cube(), shifted(1, 2, 3).data(), triangulator);
    question = {support::viewOf(ortho(20)).mMatrix, {2.5f, 2.75f, 50}, {0, 0, -1}, {{0, 0, 8, 8}, 8, 8, 0, 0, {}}};
    question.mRaster.mCells.assign(64, 1);
  }
  auto answers() {
    return std::vector{support::answersOf(*scene, handle, question), support::answersOf(*scene, late, question)};
  }
};

/// Makes each allocation of a call fail in turn. The scene must then be as before the call or as after it, or lack the
/// change that was pending. The call that succeeds at last must have done its work.
template <class Scene>
void failAllAllocationsOf(const char* name, const std::function<void(Scene&)>& call) {
  SCOPED_TRACE(name);
  Scene untouched, changed, without;
  call(changed);
  without.scene->discardPendingCommands();
  const auto before = untouched.answers(), after = changed.answers(), lost = without.answers();
  bool cameThrough = false;
  for (long allocations = 0; !cameThrough; ++allocations) {
    ASSERT_LT(allocations, 3000);
    Scene scene;
    cameThrough = succeedsWith(allocations, [&] { call(scene); });
    const auto answers = scene.answers();
    EXPECT_TRUE(cameThrough ? answers == after : answers == before || answers == after || answers == lost)
        << allocations;
    EXPECT_EQ(scene.scene->getPendingCommandCount(), 0u);
  }
}

TEST(Picker, staysUsableWhicheverAllocationOfACallFails) {
  bool created = false;
  for (long allocations = 0; !created; ++allocations)
    created = succeedsWith(allocations, [] { delete Picker::createPicker(); });
  using Scene = PickerScene;
  const auto fail = failAllAllocationsOf<Scene>;
  fail("createHandle", [](Scene& s) { s.scene->createHandle(); });
  fail("addEntry", [](Scene& s) { s.scene->addEntry(s.handle, 3, {&s.large}, shifted(0, 0, 4).data()); });
  fail("addEntry, new mesh", [](Scene& s) {
    const std::vector<const util::Mesh*> meshes{&s.unknown, &s.meshes.cube()};
    s.scene->addEntry(s.handle, 1, meshes, shifted(0, 0, 4).data());
  });
  fail("relocate", [](Scene& s) { s.scene->relocate(s.handle, 1, 0, 5); });
  fail("dispose", [](Scene& s) { s.scene->dispose(s.other); });
  fail("getPendingCommandCount", [](Scene& s) { s.scene->getPendingCommandCount(); });
  fail("discardPendingCommands", [](Scene& s) { s.scene->discardPendingCommands(); });
  fail("applyPendingCommands", [](Scene& s) { s.scene->applyPendingCommands(); });
  fail("pickFrustum", [](Scene& s) {
    std::uint32_t ids[8];
    s.scene->pickFrustum(s.handle, s.view.mCorners.data(), s.view.mMatrix.data(), true, ids, 8);
  });
  fail("pickRay", [](Scene& s) {
    const float origin[3] = {2.5f, 2.75f, 50}, direction[3] = {0, 0, -1};
    float distance;
    s.scene->pickRay(s.handle, 2, origin, direction, &distance, nullptr);
  });
  fail("viewVolumeCorners",
       [](Scene& s) { facetbox::viewVolumeCorners(s.view.mMatrix.data(), s.view.mCorners.data()); });
}

TEST(Intersector, staysUsableWhicheverAllocationOfACallFails) {
  bool created = false;
  for (long allocations = 0; !created; ++allocations)
    created = succeedsWith(allocations, [] { delete Intersector::createIntersector(); });
  using Scene = IntersectorScene;
  const auto fail = failAllAllocationsOf<Scene>;
  const auto add = [](Scene& s, const util::Mesh& mesh) {
    s.scene->addEntry(s.handle, mesh, shifted(1, 2, 7).data(), s.triangulator);
  };
  fail("createHandle", [](Scene& s) { s.scene->createHandle(); });
  fail("addEntry, small mesh", [=](Scene& s) { add(s, s.meshes.cube()); });
  fail("addEntry, known mesh", [=](Scene& s) { add(s, s.large); });
  fail("addEntry, new mesh", [=](Scene& s) { add(s, s.unknown); });
  fail("setOABBox", [](Scene& s) { s.scene->setOABBox(s.handle, s.meshes.cube(), s.triangulator); });
  fail("relocate", [](Scene& s) { s.scene->relocate(s.handle, 1, 0, 5); });
  fail("dispose", [](Scene& s) { s.scene->dispose(s.other); });
  fail("getPendingCommandCount", [](Scene& s) { s.scene->getPendingCommandCount(); });
  fail("discardPendingCommands", [](Scene& s) { s.scene->discardPendingCommands(); });
  fail("applyPendingCommands", [](Scene& s) { s.scene->applyPendingCommands(); });
  fail("testRaster", [](Scene& s) {
    const support::Raster& r = s.question.mRaster;
    s.scene->testRaster(s.handle, s.question.mView.data(), r.mViewport.data(), r.mCells.data(), 8, 8, 0, 0);
  });
  for (const bool contained : {false, true})
    fail("intersectsFrustum",
         [=](Scene& s) { s.scene->intersectsFrustum(s.handle, s.question.mView.data(), contained); });
  fail("findNearestInFrustum", [](Scene& s) {
    float out[4][3];
    const support::Question& q = s.question;
    s.scene->findNearestInFrustum(s.handle, q.mView.data(), q.mFrom.data(), q.mAlong.data(), out[0], out[1], out[2],
                                  out[3]);
  });
  fail("intersectsRay", [](Scene& s) {
    float distance;
    s.scene->intersectsRay(s.handle, s.question.mFrom.data(), s.question.mAlong.data(), &distance, nullptr);
  });
}

}  // namespace
