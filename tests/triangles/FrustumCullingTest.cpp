#include <facetbox/triangles/FrustumCulling.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/triangles/ClipVertices.h>
#include <facetbox/triangles/TriangleBvh.h>
#include <tests/support/PlainPicker.h>
#include <tests/support/Scenes.h>

namespace {

using support::Matrix;
using support::pick;
using util::TriangleMesh;

double wildNumber(std::mt19937& random) {
  constexpr double kWild[] = {support::kNaN, INFINITY, -INFINITY, 1.7e308, -1e308, 1e200, -1e155, 1e100, 5e-324, -0.0};
  return kWild[random() % std::size(kWild)];
}

/// Many small triangles around a grid's points, so that whole subtrees lie on either side; or a few among few vertices.
/// Here and there a vertex that no triangle uses, a number that is none, or one that no w allows to project.
std::unique_ptr<TriangleMesh> randomMesh(std::mt19937& random) {
  const bool isSmall = support::oneIn(random, 2);
  const int triangles = isSmall ? support::pick(random, 1, 14) : support::pick(random, 9, 900),
            reach = support::pick(random, 1, 12);
  std::vector<double> coordinates;
  std::vector<std::uint32_t> indices;
  for (int t = 0; t < triangles; ++t) {
    const int place[3] = {support::pick(random, -reach, reach), support::pick(random, -reach, reach),
                          support::pick(random, -reach, reach)};
    for (int k = 0; k < 3; ++k) {
      indices.push_back(static_cast<std::uint32_t>(coordinates.size() / 3));
      for (const int at : place) coordinates.push_back((isSmall ? 0 : at) + support::pick(random, -2, 2) / 4.0);
    }
  }
  if (isSmall)
    for (std::uint32_t& index : indices) index = static_cast<std::uint32_t>(random() % (coordinates.size() / 3));
  if (support::oneIn(random, 4)) coordinates.insert(coordinates.end(), {0, support::pick(random, -30, 30) / 2.0, 0});
  for (double& x : coordinates)
    if (support::oneIn(random, isSmall ? 40 : 20'000)) x = wildNumber(random);
  return support::triangleMeshOf(coordinates, indices);
}

TEST(FrustumCulling, givesTheAnswersOfTheLoopsAsWrittenDown) {
  std::mt19937 random(1);
  std::size_t overlapping = 0, inside = 0, count = 0;
  for (int scene = 0; scene < 1000; ++scene) {
    const auto mesh = randomMesh(random);
    for (int view = 0; view < 40; ++view) {
      Matrix c = support::product(support::randomViewProjection(random, support::pick(random, 1, 30)),
                                  support::randomPlace(random, 5));
      if (support::oneIn(random, 30)) c[random() % 16] = support::oneIn(random, 2) ? wildNumber(random) : 0.0;
      const bool overlaps = support::isInClipVolume(*mesh, c, false), lies = support::isInClipVolume(*mesh, c, true);
      ASSERT_EQ(util::overlapsClipCubePlain(*mesh, c.data()), overlaps) << "scene " << scene;
      ASSERT_EQ(util::liesInClipCubePlain(*mesh, c.data()), lies) << "scene " << scene;
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

// The corners of a box, some ulps on either side of a plane: what is told from the box must hold for each.
TEST(FrustumCulling, whatIsToldFromABoxHoldsForItsCorners) {
  std::mt19937 random(5);
  int inside = 0, outside = 0;
  const auto number = [&](double size) { return std::uniform_real_distribution<double>(-size, size)(random); };
  for (int round = 0; round < 200'000; ++round) {
    const double reach = std::pow(10.0, pick(random, -1, 2));
    const util::Vec3 low{number(reach), number(reach), number(reach)};
    const util::Box box{low, low + util::Vec3{0.1 + std::fabs(number(1)), std::fabs(number(1)), std::fabs(number(1))}};
    std::vector<double> corners;
    for (const double x : {box.min.x, box.max.x})
      for (const double y : {box.min.y, box.max.y})
        for (const double z : {box.min.z, box.max.z}) corners.insert(corners.end(), {x, y, z});
    Matrix c = support::product(support::randomViewProjection(random, 5), support::randomPlace(random, 5));
    support::tuneToPlane(random, c, corners);
    const util::ClipSide side = util::sideOfClipCube(box, c.data());
    std::uint32_t beyondOne = 63;
    bool areIn = true;
    for (std::size_t k = 0; k < 24; k += 3) {
      util::ClipVertex vertex;
      util::toClipVerticesBase(c.data(), &corners[k], 1, &vertex);
      beyondOne &= vertex.beyond;
      areIn = areIn && vertex.beyond == 0;
    }
    ASSERT_TRUE(side != util::ClipSide::inside || areIn) << round;
    ASSERT_TRUE(side != util::ClipSide::outside || beyondOne != 0) << round;
    inside += side == util::ClipSide::inside;
    outside += side == util::ClipSide::outside;
  }
  EXPECT_GT(inside, 500);
  EXPECT_GT(outside, 5000);
}

TEST(ClipVertices, areTheSameWithAnyInstructions) {
  std::mt19937 random(3);
  util::ToClipVertices& best = util::clipVerticesFor(util::Instructions::best);
  for (int round = 0; round < 20'000; ++round) {
    double c[16], points[15];
    const bool isWild = support::oneIn(random, 2);
    const auto fill = [&](double& x) {
      x = isWild && support::oneIn(random, 12) ? wildNumber(random) : support::pick(random, -8, 8) / 4.0;
    };
    std::ranges::for_each(c, fill);
    std::ranges::for_each(points, fill);
    util::ClipVertex ours[5], base[5];
    best(c, points, 5, ours);
    util::toClipVerticesBase(c, points, 5, base);
    for (int i = 0; i < 5; ++i) {
      const auto areEqual = [](double a, double b) { return a == b || (a != a && b != b); };
      EXPECT_TRUE(areEqual(ours[i].x, base[i].x) && areEqual(ours[i].y, base[i].y) && areEqual(ours[i].z, base[i].z));
      EXPECT_EQ(ours[i].w, base[i].w);
      EXPECT_EQ(ours[i].beyond, base[i].beyond);
    }
  }
}

TEST(FrustumCulling, triangleThatReachesToInfinityOverlapsNothing) {
  // Two corners are in the cube; the third is infinite, over a w of 1e308.
  const auto mesh = support::triangleMeshOf({0, 0, 0, 0, 0.5, 0, 1e10, 0, 0}, {0, 1, 2});
  const Matrix c{1e300, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1e308};
  EXPECT_FALSE(util::overlapsClipCubePlain(*mesh, c.data()));
}

}  // namespace
