#include <facetbox/Scene.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/scene/ObjectTree.h>
#include <tests/support/SceneStates.h>
#include <tests/support/Threads.h>

namespace {

using facetbox::Hit;
using facetbox::Id;
using facetbox::kNone;
using facetbox::PolyMesh;
using facetbox::Scene;
using facetbox::Transform;
using support::pick;

Transform at(double x, double y, double z) { return {{{1, 0, 0, x}, {0, 1, 0, y}, {0, 0, 1, z}}}; }

/// A square with a square hole, in the plane z = 0.
std::shared_ptr<PolyMesh> window() {
  auto mesh = std::make_shared<PolyMesh>(
      support::polyMeshOf({{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}, {1, 1, 0}, {1, 3, 0}, {3, 3, 0}, {3, 1, 0}},
                          {{0, 1, 2, 3}, {4, 5, 6, 7}}));
  mesh->holes = {0, 1, kNone};
  return mesh;
}

Hit first(const Scene& scene, double x, double y, double dz = -1) {
  const double from[] = {x, y, 10}, along[] = {0, 0, dz};
  Hit hit;
  const bool isHit = scene.allHits(from, along, std::span(&hit, 1)) != 0;
  EXPECT_EQ(isHit, hit.id != kNone);
  const facetbox::Hits hits = scene.castRays(from, along);
  EXPECT_EQ(hits.t[0], hit.t);
  EXPECT_EQ(hits.id[0], hit.id);
  return hit;
}

TEST(Scene, FollowsItsObjects) {
  Scene scene;
  EXPECT_FALSE(scene.box());
  EXPECT_EQ(first(scene, 0.5, 0.5).id, kNone);
  const auto mesh = window();
  const Id low = scene.add(mesh), high = scene.add(mesh, at(0, 0, 5));
  EXPECT_EQ(scene.size(), 2U);
  EXPECT_EQ(first(scene, 0.5, 0.5).id, high);
  EXPECT_EQ(first(scene, 0.5, 0.5).t, 5);
  EXPECT_EQ(first(scene, 0.5, 0.5, -1e-200).t, 5 / 1e-200);
  EXPECT_EQ(first(scene, 0.5, 0.5).face, 0U);
  EXPECT_EQ(first(scene, 0.5, 0.5).normal[2], 1);
  EXPECT_EQ(first(scene, 2, 2).id, kNone) << "through the holes";
  scene.move(high, at(0, 0, 0));
  EXPECT_EQ(first(scene, 0.5, 0.5).id, low) << "the lower id wins";
  scene.move(low, at(2, 2, 0));
  EXPECT_EQ(first(scene, 2.5, 2.5).id, low);
  const auto box = *scene.box();
  EXPECT_NEAR(box[3], 6, 1e-6);
  scene.remove(low);
  scene.remove(low);
  scene.move(low, at(0, 0, 9));
  EXPECT_EQ(first(scene, 5.5, 5.5).id, kNone);
  EXPECT_EQ(scene.size(), 1U);
  scene.move(high, {{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 0, 7}}});
  EXPECT_EQ(first(scene, 0.5, 0.5).t, 3) << "flattened";
  EXPECT_GT(scene.add(mesh), high) << "numbers are not given twice";
}

TEST(Scene, RefusesWhatItCannotPlace) {
  Scene scene;
  EXPECT_THROW(scene.add(nullptr), std::invalid_argument);
  EXPECT_THROW(scene.add(window(), at(std::nan(""), 0, 0)), std::invalid_argument);
  EXPECT_THROW(scene.add(window(), at(1e200, 0, 0)), std::invalid_argument);
  EXPECT_THROW(scene.move(0, {}), std::invalid_argument);
  EXPECT_THROW(scene.remove(7), std::invalid_argument);
  auto broken = window();
  broken->indices[0] = 99;
  EXPECT_THROW(scene.add(broken), facetbox::InvalidMesh);
  scene.add(std::make_shared<PolyMesh>());
  EXPECT_EQ(scene.size(), 1U);
  EXPECT_FALSE(scene.box());
  EXPECT_EQ(first(scene, 0, 0).id, kNone);
  EXPECT_THROW(
      scene.castRays(std::vector<double>(3), std::vector<double>{0, 0, 1}, {.isCancelled = [] { return true; }}),
      facetbox::Cancelled);
  // Between rays, it asks again.
  scene.add(window());
  const std::vector<double> zeros(3 * 100'000), ones(3 * 100'000, 1);
  int questions = 0;
  EXPECT_THROW(scene.castRays(zeros, ones, {.isCancelled = [&] { return ++questions == 3; }}), facetbox::Cancelled);
  EXPECT_EQ(questions, 3);
}

/// Boxes that come, move and go: whatever has happened, the tree's boxes hold those below them, each box is found once,
/// and a tree that is followed for long is not much worse than a new one.
TEST(ObjectTree, HoldsItsBoxesWhateverHappens) {
  std::mt19937 random(30);
  for (int round = 0; round < 30; ++round) {
    util::ObjectTree tree;
    std::vector<util::Box> boxes;
    std::vector<bool> isIn;
    const int most = pick(random, 1, 400), reach = pick(random, 1, 1000);
    const auto randomBox = [&] {
      util::Box box;
      const double far = pick(random, 0, 200) == 0 ? 1e6 : 1;
      for (int k = 0; k < 2; ++k)
        box.extend(util::Vec3{far * pick(random, -reach, reach), 1.0 * pick(random, -reach, reach),
                              7e3 + pick(random, -9, 9)});
      return box;
    };
    for (int step = 0; step < 3 * most; ++step) {
      const auto number = static_cast<std::uint32_t>(pick(random, 0, most - 1));
      if (number >= boxes.size()) {
        boxes.resize(number + 1U);
        isIn.resize(number + 1U);
      }
      const int kind = pick(random, 0, 3);
      if (!isIn[number] || kind > 0) boxes[number] = randomBox();
      if (!isIn[number])
        tree.insert(number, boxes[number]);
      else if (kind == 0)
        tree.remove(number);
      else
        tree.move(number, boxes[number]);
      isIn[number] = !isIn[number] || kind != 0;
      if (pick(random, 0, 9) != 0) continue;
      tree.update();

      std::vector<std::uint32_t> found;
      struct Waiting {
        util::ObjectTree::Reference reference;
        util::Box box;
      };
      std::vector<Waiting> stack;
      if (tree.root() != util::ObjectTree::kNothing) stack.push_back({tree.root(), tree.bounds()});
      while (!stack.empty()) {
        const Waiting waiting = stack.back();
        stack.pop_back();
        util::Box inner;
        if (waiting.reference >= util::ObjectTree::kLeaf) {
          inner = boxes[waiting.reference & ~util::ObjectTree::kLeaf];
          found.push_back(waiting.reference & ~util::ObjectTree::kLeaf);
        } else {
          const util::ObjectTree::Node& node = tree.node(waiting.reference);
          for (int lane = 0; lane < util::ObjectTree::kWidth; ++lane)
            if (node.child[lane] != util::ObjectTree::kNothing && node.bounds[0][lane] <= node.bounds[3][lane])
              stack.push_back({node.child[lane], tree.childBox(node, lane)});
          continue;
        }
        ASSERT_TRUE(waiting.box.min.x <= inner.min.x && waiting.box.min.y <= inner.min.y &&
                    waiting.box.min.z <= inner.min.z);
        ASSERT_TRUE(waiting.box.max.x >= inner.max.x && waiting.box.max.y >= inner.max.y &&
                    waiting.box.max.z >= inner.max.z);
      }
      std::ranges::sort(found);
      std::vector<std::uint32_t> expected;
      for (std::uint32_t i = 0; i < isIn.size(); ++i)
        if (isIn[i]) expected.push_back(i);
      ASSERT_EQ(found, expected) << round;
    }
  }
}

/// A scene that was changed step by step answers as one that is made at once; and two threads answer as one. By its
/// name not among the tests for the thread sanitizer, which does not see how threads of oneTBB wait for each other.
TEST(Scene, ManyChangesGiveTheHitsOfANewScene) {
  std::mt19937 random(31);
  std::vector<std::shared_ptr<PolyMesh>> meshes;
  for (int i = 0; i < 5; ++i) meshes.push_back(std::make_shared<PolyMesh>(support::randomSceneMesh(random)));
  Scene changed;
  std::vector<std::optional<std::pair<std::size_t, Transform>>> objects;
  std::vector<double> origins, directions;
  for (int i = 0; i < 3 * 6000; ++i) {
    origins.push_back(pick(random, -300, 300) / 10.0);
    directions.push_back(pick(random, -300, 300) / 10.0);
  }
  for (int step = 0; step < 40; ++step) {
    for (int i = 0; i < 60; ++i) {
      const int kind = objects.empty() ? 0 : pick(random, 0, 3);
      const auto which = static_cast<std::size_t>(pick(random, 0, std::max(0, static_cast<int>(objects.size()) - 1)));
      const Transform to = support::randomTransform(random, 20);
      if (kind == 0) {
        objects.emplace_back(std::pair(static_cast<std::size_t>(pick(random, 0, 4)), to));
        ASSERT_EQ(changed.add(meshes[objects.back()->first], to), objects.size() - 1);
      } else if (kind == 1) {
        objects[which].reset();
        changed.remove(static_cast<Id>(which));
      } else {
        if (objects[which]) objects[which]->second = to;
        changed.move(static_cast<Id>(which), to);
      }
    }
    if (step % 4 != 3) {
      changed.size();
      continue;
    }
    Scene fresh;
    std::vector<Id> ids;
    for (std::size_t i = 0; i < objects.size(); ++i)
      if (objects[i]) {
        fresh.add(meshes[objects[i]->first], objects[i]->second);
        ids.push_back(static_cast<Id>(i));
      }
    facetbox::Hits hits = fresh.castRays(origins, directions, {.threads = 1});
    for (Id& id : hits.id) id = id == kNone ? kNone : ids[id];
    ASSERT_EQ(changed.castRays(origins, directions, {.threads = step % 8 == 3 ? 2U : ~0U}), hits) << step;
    ASSERT_EQ(changed.size(), ids.size());
  }
}

/// Each thread sees its own changes at once, while others change and ask; what all see in the end is what is left.
TEST(Scene, ConcurrentChangesAndQueries) {
  const auto mesh = window();
  Scene scene;
  std::atomic<int> wrong{0};
  support::onAllThreads([&](int thread) {
    const double x = 10.0 * thread;
    for (int round = 0; round < 100; ++round) {
      const Id id = scene.add(mesh, at(x, 0, round % 9));
      if (first(scene, x + 0.5, 0.5, -1).id != id) ++wrong;
      scene.move(id, at(x, 5, 0));
      const double from[] = {x + 0.5, 5.5, 20}, along[] = {0, 0, -1};
      if (scene.castRays(from, along, {.threads = 1}).id[0] != id) ++wrong;
      if (scene.select({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -x, -5, 0, 1}, facetbox::Select::touching) !=
          std::vector{id})
        ++wrong;
      scene.remove(id);
    }
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(scene.size(), 0U);
}

}  // namespace
