#include <facetbox/util/triangles/ClipTest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/util/triangles/TriangleHierarchy.h>
#include <tests/support/Scenes.h>

namespace {

using support::Matrix;
using util::TriangleMesh;

/// Many small triangles around a grid's points, so that whole subtrees lie on either side; here and there a vertex that
/// no triangle uses, a number that is none, or one that no w allows to project.
std::unique_ptr<TriangleMesh> randomMesh(std::mt19937& random) {
  const int triangles = support::pick(random, 9, 900), reach = support::pick(random, 1, 12);
  std::vector<double> coordinates;
  std::vector<std::uint32_t> indices;
  for (int t = 0; t < triangles; ++t) {
    const int place[3] = {support::pick(random, -reach, reach), support::pick(random, -reach, reach),
                          support::pick(random, -reach, reach)};
    for (int k = 0; k < 3; ++k) {
      indices.push_back(static_cast<std::uint32_t>(coordinates.size() / 3));
      for (const int at : place) coordinates.push_back(at + support::pick(random, -2, 2) / 4.0);
    }
  }
  if (support::oneIn(random, 4)) coordinates.insert(coordinates.end(), {0, support::pick(random, -30, 30) / 2.0, 0});
  if (support::oneIn(random, 20)) coordinates[random() % coordinates.size()] = support::kNaN;
  return support::triangleMeshOf(coordinates, indices);
}

TEST(ClipTest, hierarchyGivesTheAnswersOfThePlainLoops) {
  std::mt19937 random(1);
  std::size_t overlapping = 0, inside = 0, count = 0;
  for (int scene = 0; scene < 400; ++scene) {
    const auto mesh = randomMesh(random);
    for (int view = 0; view < 40; ++view) {
      Matrix c = support::product(support::randomViewProjection(random, support::pick(random, 1, 30)),
                                  support::randomPlace(random, 5));
      if (support::oneIn(random, 30)) c[random() % 16] = support::oneIn(random, 2) ? support::kNaN : 0.0;
      const bool overlaps = util::overlapsClipCubePlain(*mesh, c.data()), lies = liesInClipCubePlain(*mesh, c.data());
      ASSERT_EQ(util::overlapsClipCube(*mesh, c.data()), overlaps) << "scene " << scene;
      ASSERT_EQ(util::liesInClipCube(*mesh, c.data()), lies) << "scene " << scene;
      overlapping += overlaps;
      inside += lies;
      ++count;
    }
  }
  // Neither answer is rare.
  EXPECT_GT(overlapping, count / 10);
  EXPECT_LT(overlapping, count - count / 10);
  EXPECT_GT(inside, count / 50);
}

}  // namespace
