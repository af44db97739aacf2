#include <facetbox/triangles/TriangleMeeting.h>

#include <boost/multiprecision/cpp_int.hpp>

#include <tests/support/ExactNumbers.h>
#include <tests/support/Meshes.h>
#include <tests/support/PlainMeeting.h>

namespace util {
namespace {

using support::pick;

NumberedTriangle triangle(const std::vector<Vec3>& points, std::uint32_t a, std::uint32_t b, std::uint32_t c) {
  return {{points[a], points[b], points[c]}, {a, b, c}};
}

struct Pair {
  NumberedTriangle a, b;
};

/// Two triangles on a small grid, flat at times, that share up to three vertices and often repeat places.
Pair randomPair(std::mt19937& random) {
  std::vector<Vec3> points(6);
  const int height = pick(random, 0, 2);
  for (Vec3& p : points) p = {1.0 * pick(random, 0, 3), 1.0 * pick(random, 0, 3), 1.0 * pick(random, 0, height)};
  if (support::oneIn(random, 3))
    for (Vec3& p : points) p.z += p.x - 2 * p.y;
  std::array<std::uint32_t, 3> second{3, 4, 5};
  for (std::uint32_t i = 0, shared = support::below(random, 4); i < shared; ++i) second[i] = i;
  std::ranges::shuffle(second, random);
  if (support::oneIn(random, 20)) second[0] = second[1];
  return {triangle(points, 0, 1, 2), triangle(points, second[0], second[1], second[2])};
}

TEST(TriangleMeeting, agreesWithFractionsOnASmallGrid) {
  std::mt19937 random(1);
  std::array<int, 2> answers{};
  for (int i = 0; i < 1200; ++i) {
    const auto [a, b] = randomPair(random);
    const bool expected = support::plainMeetElsewhere(a, b);
    ASSERT_EQ(meetElsewhere(a, b), expected) << "pair " << i;
    ASSERT_EQ(meetElsewhere(b, a), expected) << "pair " << i << ", the other way round";
    ++answers[expected];
  }
  EXPECT_GT(std::ranges::min(answers), 300);
}

TEST(TriangleMeeting, neitherPlaceNorUnitNorSmallestStepsMatter) {
  std::mt19937 random(2);
  for (int i = 0; i < 400; ++i) {
    // The same for both triangles, and exact: scaled and mirrored; or all points by some last places off the grid.
    auto [a, b] = randomPair(random);
    const int exponent = pick(random, -1000, 1000);
    const bool isNudged = support::oneIn(random, 2);
    std::map<std::uint32_t, Vec3> places;
    for (NumberedTriangle* t : {&a, &b})
      for (std::size_t k = 0; k < 3; ++k) {
        const auto [place, isNew] = places.insert({t->vertices[k], t->corners[k]});
        if (isNew && isNudged)
          for (double* v : {&place->second.x, &place->second.y, &place->second.z})
            *v = support::nudged(*v + 1, pick(random, -1, 1));
        t->corners[k] = place->second;
      }
    const bool expected = support::plainMeetElsewhere(a, b);
    for (NumberedTriangle* t : {&a, &b})
      for (Vec3& p : t->corners) p = {std::ldexp(p.z, exponent), std::ldexp(-p.x, exponent), std::ldexp(p.y, exponent)};
    ASSERT_EQ(meetElsewhere(a, b), expected) << "pair " << i;
  }
}

TEST(TriangleMeeting, furtherCornersCanCountAsShared) {
  //     2
  //    / .        5 is a corner of both faces, but not of the upper triangle, in whose edge it lies.
  //   0-5-1
  //   |/
  //   3
  const std::vector<Vec3> points{{0, 0, 0}, {2, 0, 0}, {1, 1, 0}, {0, -1, 1}, {2, -1, 1}, {1, 0, 0}};
  const NumberedTriangle above = triangle(points, 0, 1, 2), below = triangle(points, 0, 3, 5);
  EXPECT_TRUE(meetElsewhere(above, below));
  EXPECT_FALSE(meetElsewhere(above, below, {true, true, false}, {true, false, true}));
  EXPECT_FALSE(meetElsewhere(below, above, {true, false, true}, {true, true, false}));
}

}  // namespace
}  // namespace util
