#include <facetbox/intersector/ClipPolygon.h>

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using util::Vec3;

/// What is left of a triangle, in the world, which lies ten times as large as the triangle's own coordinates.
std::vector<Vec3> clipped(const double (&c)[16], const double (&p)[3][3]) {
  const Vec3 world[3] = {{10 * p[0][0], 10 * p[0][1], 10 * p[0][2]},
                         {10 * p[1][0], 10 * p[1][1], 10 * p[1][2]},
                         {10 * p[2][0], 10 * p[2][1], 10 * p[2][2]}};
  util::ClipPolygon polygon(c, {p[0], p[1], p[2]}, world);
  polygon.clip();
  std::vector<Vec3> points;
  for (const util::ClipPoint& point : polygon) points.push_back(point.world);
  return points;
}

constexpr double kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
constexpr double kWIsZ[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};

//   1  2.
//      |   ` .
//      |       x .            the plane x = w cuts two edges, at the crosses
//   0  0-------x-------1
//      0       1       2
TEST(ClipPolygon, aCornerBeyondAPlaneBecomesTwo) {
  EXPECT_THAT(clipped(kIdentity, {{0, 0, 0}, {2, 0, 0}, {0, 1, 0}}),
              ElementsAre(Vec3{0, 0, 0}, Vec3{10, 0, 0}, Vec3{10, 5, 0}, Vec3{0, 10, 0}));
}

// w is z here. At z = -1 points lie behind the eye; their mirror images would lie in the cube.
TEST(ClipPolygon, nothingIsLeftBehindTheEye) {
  EXPECT_THAT(clipped(kWIsZ, {{0, 0, -1}, {0.5, 0, -1}, {0, 0.5, -1}}), ElementsAre());
  EXPECT_EQ(clipped(kWIsZ, {{0, 0, 1}, {0.5, 0, 1}, {0, 0.5, 1}}).size(), 3u);
}

}  // namespace
