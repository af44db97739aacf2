#include <facetbox/triangles/TriangleMeshCache.h>

#include <array>
#include <atomic>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/MeshStorage.h>
#include <tests/support/Meshes.h>
#include <tests/support/Threads.h>

namespace {

using support::facesOf;
using support::kThreads;
using support::meshOf;
using support::onAllThreads;
using util::Mesh;
using util::TriangleMesh;
using util::TriangleMeshCache;

/// `quads` squares in a row. `holes` names a group that cannot be followed, or nothing.
Mesh rowOfQuads(std::uint32_t quads, const support::Indices& holes = {}) {
  std::vector<util::Vec3> points;
  support::Faces faces;
  for (std::uint32_t i = 0; i <= quads; ++i) points.insert(points.end(), {{1.0 * i, 0, 0}, {1.0 * i, 1, 0}});
  for (std::uint32_t i = 0; i < quads; ++i) faces.push_back({2 * i, 2 * i + 2, 2 * i + 3, 2 * i + 1});
  return meshOf(points, faces, holes);
}

/// A row whose last face crosses itself too often, which shows only after all others have been triangulated.
Mesh rowThatFails(std::uint32_t quads) {
  support::Faces faces = facesOf(rowOfQuads(quads));
  support::Indices zigzag;
  for (std::uint32_t i = 0; i <= quads; ++i) zigzag.push_back(2 * i + i % 2);
  for (std::uint32_t i = quads + 1; i-- > 0;) zigzag.push_back(2 * i + 1 - i % 2);
  faces.push_back(zigzag);
  const Mesh row = rowOfQuads(quads);
  const auto& points = row.storage().mVertices;
  return meshOf({points.begin(), points.end()}, faces);
}

/// 0 for none.
std::uint64_t stampOf(const Mesh& mesh, int kind) { return mesh.storage().mStamps.stampOr(kind, 0); }

TEST(TriangleMeshCache, sharesOneTriangulationUntilNobodyHoldsIt) {
  TriangleMeshCache cache(4), second(4);
  const Mesh mesh = rowOfQuads(2), other = rowOfQuads(3);
  std::shared_ptr<TriangleMesh> first = cache.getTriangleMesh(mesh);
  const std::uint64_t stamp = stampOf(mesh, 4);
  EXPECT_EQ(first->indices().size(), 12u);
  EXPECT_NE(first->hierarchy(), nullptr);
  EXPECT_EQ(cache.getTriangleMesh(mesh), first);
  // A number that was taken for a mesh that is there goes back: the next new mesh gets it.
  cache.getTriangleMesh(other);
  EXPECT_EQ(stampOf(other, 4), stamp + 1);
  // Another cache of the kind knows the stamp, but triangulates for itself; its number is lost.
  EXPECT_NE(second.getTriangleMesh(mesh), first);
  EXPECT_EQ(stampOf(mesh, 4), stamp);
  EXPECT_EQ(stampOf(mesh, 1), 0u);

  const TriangleMesh* unheld = cache.getTriangleMesh(other).get();
  EXPECT_EQ(cache.getTriangleMesh(other).get(), unheld);
  cache.pruneUnused();
  EXPECT_EQ(cache.getTriangleMesh(mesh), first);
  EXPECT_EQ(cache.getTriangleMesh(other)->indices().size(), 18u);
  EXPECT_EQ(stampOf(other, 4), stamp + 1);
  const Mesh third = rowOfQuads(1);
  cache.getTriangleMesh(third);
  EXPECT_EQ(stampOf(third, 4), stamp + 4);
}

// A mesh is changed before it is asked for: its triangles tell when they were made.
TEST(TriangleMeshCache, dropsJustWhatAWalkOverAllWouldDrop) {
  std::mt19937 random(1);
  constexpr std::size_t kMeshes = 5;
  std::vector<std::shared_ptr<TriangleMesh>> held;
  std::vector<std::shared_ptr<const int>> plainHeld;
  {
    TriangleMeshCache cache(1);
    std::vector<Mesh> meshes;
    for (std::size_t m = 0; m < kMeshes; ++m) meshes.push_back(rowOfQuads(1));
    std::array<std::shared_ptr<const int>, kMeshes> plain;
    for (int step = 0; step < 20'000; ++step) {
      const std::size_t m = random() % kMeshes;
      meshes[m].storage().mVertices[0].z = step;
      auto triangles = cache.getTriangleMesh(meshes[m]);
      if (!plain[m]) plain[m] = std::make_shared<const int>(step);
      ASSERT_EQ(triangles->vertexCoordinates()[2], *plain[m]) << step;
      ASSERT_NE(triangles->edges(), nullptr);
      if (support::oneIn(random, 2)) {
        held.push_back(std::move(triangles));
        plainHeld.push_back(plain[m]);
      }
      triangles.reset();
      for (int letGo = support::pick(random, 0, 2); letGo > 0 && !held.empty(); --letGo) {
        const std::size_t i = random() % held.size();
        held.erase(held.begin() + static_cast<std::ptrdiff_t>(i));
        plainHeld.erase(plainHeld.begin() + static_cast<std::ptrdiff_t>(i));
      }
      if (!support::oneIn(random, 3)) continue;
      cache.pruneUnused();
      for (auto& cached : plain)
        if (cached.use_count() == 1) cached.reset();
    }
  }
  // They outlive the cache.
  for (std::size_t i = 0; i < held.size(); ++i) EXPECT_EQ(held[i]->vertexCoordinates()[2], *plainHeld[i]);
}

TEST(TriangleMeshCacheConcurrency, noTwoMeshesGetOneStamp) {
  // One takes stamps while others give back: each cache has a lock of its own, the stamps have none.
  TriangleMeshCache taking(2), asking(2);
  const Mesh known = rowOfQuads(1);
  const auto held = asking.getTriangleMesh(known);
  std::atomic<bool> isDone = false;
  std::atomic<std::size_t> asked = 0;
  std::jthread asker([&] {
    for (; !isDone; ++asked) asking.getTriangleMesh(known);
  });
  std::set<std::uint64_t> stamps;
  std::size_t meshes = 0;
  // Until either has had many turns in the midst of the other's.
  for (; meshes < 3000 || asked < 300'000; ++meshes) {
    const Mesh fresh = rowOfQuads(1);
    taking.getTriangleMesh(fresh);
    stamps.insert(stampOf(fresh, 2));
  }
  isDone = true;
  EXPECT_EQ(stamps.size(), meshes);
}

TEST(TriangleMeshCacheConcurrency, allThreadsGetTheSameTrianglesWhilePruning) {
  for (int round = 0; round < 20; ++round) {
    TriangleMeshCache cache(1);
    std::vector<std::unique_ptr<Mesh>> meshes;
    for (std::uint32_t i = 0; i < 3; ++i) meshes.push_back(std::make_unique<Mesh>(rowOfQuads(1000 * i + 100)));
    std::vector<std::vector<std::shared_ptr<TriangleMesh>>> got(kThreads);
    onAllThreads([&](int t) {
      for (int i = 0; i < 30; ++i) {
        if ((i + t) % 5 == 0) cache.pruneUnused();
        got[static_cast<std::size_t>(t)].push_back(cache.getTriangleMesh(*meshes[static_cast<std::size_t>(i % 3)]));
      }
    });
    for (const auto& ofThread : got) EXPECT_EQ(ofThread, got[0]);
  }
}

TEST(TriangleMeshCacheConcurrency, eachThreadThrowsItsOwnErrorWhenTriangulationFails) {
  for (int round = 0; round < 5; ++round) {
    TriangleMeshCache cache(4);
    const Mesh mesh = rowThatFails(2000);
    std::atomic<int> failures = 0;
    onAllThreads([&](int) {
      try {
        cache.getTriangleMesh(mesh);
      } catch (const std::runtime_error& error) {
        failures += error.what() == std::string("Triangulator: not enough space for combined vertices!");
      }
    });
    EXPECT_EQ(failures, kThreads);
  }
}

TEST(TriangleMeshCacheConcurrency, neitherPruningNorCachedMeshesWaitForATriangulation) {
  TriangleMeshCache cache(4);
  const Mesh small = rowOfQuads(1), large = rowOfQuads(300'000);
  const auto held = cache.getTriangleMesh(small);
  std::atomic<bool> isDone = false;
  std::jthread producer([&] {
    cache.getTriangleMesh(large);
    isDone = true;
  });
  while (stampOf(large, 4) == 0) std::this_thread::yield();
  int rounds = 0;
  for (; !isDone; ++rounds) {
    cache.pruneUnused();
    EXPECT_EQ(cache.getTriangleMesh(small), held);
  }
  // Were the cache locked all along, the first call would return with the triangulation done.
  EXPECT_GT(rounds, 10);
}

}  // namespace
