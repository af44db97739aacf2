#include <facetbox/triangles/SelfIntersections.h>

#include <chrono>

#include <facetbox/triangles/TriangleMeeting.h>

#include <tests/support/ExactNumbers.h>
#include <tests/support/Meshes.h>

namespace util {
namespace {

using support::below;
using support::pick;
using support::real;
using Pairs = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

struct Triangles {
  std::vector<double> points;
  std::vector<std::uint32_t> corners;

  FaceTriangles view() const { return {points, corners, {}, {}}; }
  NumberedTriangle triangle(std::uint32_t number) const {
    NumberedTriangle triangle;
    for (std::size_t i = 0; i < 3; ++i) {
      triangle.vertices[i] = corners[3 * number + i];
      triangle.corners[i] = toVec3(points.data() + 3 * triangle.vertices[i]);
    }
    return triangle;
  }
};

Pairs plainPairs(const Triangles& mesh) {
  Pairs pairs;
  for (std::uint32_t b = 1; b < mesh.corners.size() / 3; ++b)
    for (std::uint32_t a = 0; a < b; ++a)
      if (meetElsewhere(mesh.triangle(a), mesh.triangle(b))) pairs.emplace_back(a, b);
  std::ranges::sort(pairs);
  return pairs;
}

Triangles randomTriangles(std::mt19937& random, std::size_t vertices, std::size_t triangles) {
  Triangles mesh;
  for (std::size_t i = 0; i < 3 * vertices; ++i)
    mesh.points.push_back(support::oneIn(random, 2) ? pick(random, -5, 5) : real(random, -5, 5));
  for (std::size_t i = 0; i < 3 * triangles; ++i) mesh.corners.push_back(below(random, vertices));
  return mesh;
}

/// Small triangles without common vertices in the unit cube.
Triangles soup(std::mt19937& random, std::size_t triangles, double size) {
  Triangles mesh;
  for (std::size_t i = 0; i < triangles; ++i) {
    const Vec3 place{real(random, 0, 1), real(random, 0, 1), real(random, 0, 1)};
    for (int corner = 0; corner < 3; ++corner) {
      mesh.corners.push_back(static_cast<std::uint32_t>(mesh.corners.size()));
      for (const double v : {place.x, place.y, place.z}) mesh.points.push_back(v + real(random, 0, size));
    }
  }
  return mesh;
}

TEST(SelfIntersections, areThoseOfALoopOverAllPairs) {
  std::mt19937 random(1);
  for (int round = 0; round < 60; ++round) {
    const Triangles mesh = randomTriangles(random, 5 + below(random, 60), below(random, 120));
    const SelfIntersections found = findSelfIntersections(mesh.view(), 1 << 20);
    EXPECT_EQ(found.pairs, plainPairs(mesh)) << "round " << round;
    EXPECT_TRUE(found.isComplete);
  }
}

TEST(SelfIntersections, noMagnitudeIsTooLargeOrTooSmall) {
  std::mt19937 random(2);
  for (int round = 0; round < 12; ++round) {
    Triangles mesh = soup(random, 60, 0.3);
    for (double& v : mesh.points) v = std::ldexp(std::round(std::ldexp(v, 40)), -40);  // no bit is lost below
    const Pairs expected = plainPairs(mesh);
    EXPECT_FALSE(expected.empty());
    for (const int exponent : {-1010, -20, 20, 1023}) {
      Triangles scaled = mesh;
      for (double& v : scaled.points) v = std::ldexp(v, exponent);
      EXPECT_EQ(findSelfIntersections(scaled.view(), 1 << 20).pairs, expected) << exponent;
    }
    // From one end of all numbers to the other, and vertices that no triangle uses.
    for (double& v : mesh.points) v = support::oneIn(random, 10) ? support::anyFinite(random) : v * 1e-320;
    const Pairs wild = plainPairs(mesh);
    mesh.points.insert(mesh.points.end(), {1.7e308, -1.7e308, 5e-324});
    EXPECT_EQ(findSelfIntersections(mesh.view(), 1 << 20).pairs, wild);
  }
}

TEST(SelfIntersections, somethingFarAwayDoesNotBlurAModel) {
  // A detailed model, and one triangle at a distance of which the model is 2^-40: in the order of a second if all pairs
  // had to be looked at more closely.
  std::mt19937 random(3);
  Triangles mesh = soup(random, 30'000, 0.01);
  const Pairs expected = findSelfIntersections(mesh.view(), 1 << 20).pairs;
  EXPECT_GT(expected.size(), 50u);
  const auto last = static_cast<std::uint32_t>(mesh.corners.size());
  mesh.points.insert(mesh.points.end(), {0x1p40, 0x1p40, 0x1p40, 0x1p40, 0, 0, 0x1p40, 0x1p39, 0});
  mesh.corners.insert(mesh.corners.end(), {last, last + 1, last + 2});
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(findSelfIntersections(mesh.view(), 1 << 20).pairs, expected);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST(SelfIntersections, theLimitIsKept) {
  // All overlap: 1500 * 1499 / 2 pairs.
  Triangles mesh;
  mesh.points = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  for (int i = 0; i < 1500; ++i) mesh.corners.insert(mesh.corners.end(), {0, 1, 2});
  const SelfIntersections all = findSelfIntersections(mesh.view(), 1'124'250);
  EXPECT_EQ(all.pairs.size(), 1'124'250u);
  EXPECT_TRUE(all.isComplete);
  for (const std::size_t limit : {0, 1000, 1'124'249}) {
    const SelfIntersections some = findSelfIntersections(mesh.view(), limit);
    EXPECT_EQ(some.pairs.size(), limit);
    EXPECT_FALSE(some.isComplete);
    EXPECT_TRUE(std::ranges::is_sorted(some.pairs));
  }
  EXPECT_TRUE(findSelfIntersections(Triangles{}.view(), 0).isComplete);
}

TEST(SelfIntersections, facesShareWhatTheirCornersShare) {
  //     2---3        A square and a pentagon upright on its front edge, which has another corner, 5, in its middle: cut
  //    / . /         as the lines say, triangle 0 1 2 and triangle 0 5 4 share a corner and meet along half an edge.
  //   0-5-1
  //   |\|
  //   4-6
  const std::vector<double> points{0, 0, 0, 2, 0, 0, 0, 2, 0, 2, 2, 0, 0, 0, -2, 1, 0, 0, 1, 0, -2};
  const std::vector<std::uint32_t> corners{0, 1, 2, 1, 3, 2, 0, 4, 6, 0, 6, 5}, faces{0, 0, 1, 1};
  const std::vector<std::set<std::uint32_t>> faceCorners{{0, 5, 1, 3, 2}, {0, 4, 6, 5}};
  const auto isCornerOf = [&](std::uint32_t face, std::uint32_t v) { return faceCorners[face].contains(v); };
  EXPECT_EQ(findSelfIntersections({points, corners, faces, isCornerOf}, 9).pairs, Pairs());
  const auto noCorner = [](std::uint32_t, std::uint32_t) { return false; };
  EXPECT_EQ(findSelfIntersections({points, corners, faces, noCorner}, 9).pairs, Pairs({{0, 1}}));
}

}  // namespace
}  // namespace util
