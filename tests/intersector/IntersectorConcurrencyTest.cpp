#include <array>
#include <atomic>
#include <barrier>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/intersector/Intersector.h>
#include <tests/support/Meshes.h>
#include <tests/support/Scenes.h>

namespace {

using support::shifted;

constexpr unsigned kProducers = 4, kRounds = 60;

/// What one producer does to its own object: puts instance after instance before those that it has, now and then sets
/// a box or moves all. So a ray from before meets something ever nearer, in steps that are known.
void carryOut(Intersector& intersector, std::size_t handle, unsigned round, const util::Mesh& mesh,
              util::Triangulator& triangulator) {
  intersector.addEntry(handle, mesh, shifted(-4.0 * round, 0, 0).data(), triangulator);
  if (round % 8 == 7) intersector.relocate(handle, -1, 0, 0);
  if (round % 16 == 5) intersector.setOABBox(handle, mesh, triangulator);
}

float distanceTo(Intersector& intersector, std::size_t handle) {
  const float origin[] = {-900, 0.25f, 0.3f}, direction[] = {1, 0, 0};
  float distance = -1, normal[3];
  intersector.intersectsRay(handle, origin, direction, &distance, normal);
  return distance;
}

TEST(IntersectorConcurrency, queriesSeePrefixesAndTheEndIsThatOfASerialRun) {
  const std::unique_ptr<Intersector> intersector(Intersector::createIntersector()),
      serial(Intersector::createIntersector());
  // Two are shared, two belong to their instances.
  const support::Surface pile = support::surfaceOf({{0, 0, 0}, {1, 0, 0}, {0, 0, 1}, {1, 1, 1}}, 1);
  const util::Mesh large = support::meshOf(pile.mPoints, pile.mFaces);
  const support::SceneMeshes meshes;
  const std::array<const util::Mesh*, kProducers> mine{&large, &meshes.cube(), &large, &meshes.cube()};
  // The distances after every change of each producer, in their order.
  std::array<std::vector<float>, kProducers> expected;
  std::array<std::size_t, kProducers> handles;
  util::Triangulator triangulator;
  for (unsigned p = 0; p < kProducers; ++p) {
    handles[p] = intersector->createHandle();
    const std::size_t handle = serial->createHandle();
    expected[p].push_back(-1);
    for (unsigned round = 0; round < kRounds; ++round) {
      carryOut(*serial, handle, round, *mine[p], triangulator);
      const float after = distanceTo(*serial, handle);
      if (round % 8 == 7) expected[p].push_back(after + 1);
      expected[p].push_back(after);
    }
  }

  std::barrier start(kProducers + 2);
  std::atomic<unsigned> running = kProducers;
  std::vector<std::jthread> threads;
  for (unsigned p = 0; p < kProducers; ++p)
    threads.emplace_back([&, p] {
      util::Triangulator own;
      start.arrive_and_wait();
      for (unsigned round = 0; round < kRounds; ++round) {
        carryOut(*intersector, handles[p], round, *mine[p], own);
        // Objects that come and go, with a mesh that is nobody else's: the cache is pruned while others use it.
        const util::Mesh passing = support::meshOf(pile.mPoints, pile.mFaces);
        const std::size_t brief = intersector->createHandle();
        intersector->addEntry(brief, passing, shifted(0, 0, 0).data(), own);
        intersector->dispose(brief);
        EXPECT_LE(intersector->getPendingCommandCount(), 4u * kProducers * kRounds);
      }
      --running;
    });
  for (unsigned t = 0; t < 2; ++t)
    threads.emplace_back([&] {
      std::vector<std::int32_t> cells(64 * 64, 1);
      const float view[16] = {0.001f, 0, 0, 0, 0, 0.001f, 0, 0, 0, 0, 0.001f, 0, 0, 0, 0, 1};
      const int viewport[] = {0, 0, 64, 64};
      std::array<std::size_t, kProducers> seen{};
      start.arrive_and_wait();
      while (running > 0)
        for (unsigned p = 0; p < kProducers; ++p) {
          const float distance = distanceTo(*intersector, handles[p]);
          while (seen[p] < expected[p].size() && expected[p][seen[p]] != distance) ++seen[p];
          ASSERT_LT(seen[p], expected[p].size()) << "not the state after a first part of the changes";
          if (seen[p] == 0) continue;
          const float eye[] = {-900, 0, 0}, along[] = {1, 0, 0};
          float out[12] = {};
          EXPECT_TRUE(intersector->intersectsFrustum(handles[p], view, false));
          EXPECT_TRUE(intersector->testRaster(handles[p], view, viewport, cells.data(), 64, 64, 0, 0));
          EXPECT_TRUE(intersector->findNearestInFrustum(handles[p], view, eye, along, out, out + 3, out + 6, out + 9));
          EXPECT_LE(out[0] + 900, distance);
        }
    });
  threads.clear();
  for (unsigned p = 0; p < kProducers; ++p) EXPECT_EQ(distanceTo(*intersector, handles[p]), expected[p].back());
}

}  // namespace
