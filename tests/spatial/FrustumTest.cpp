#include <facetbox/spatial/Frustum.h>

#include <array>
#include <cmath>

#include <gtest/gtest.h>

namespace {

using util::Box;
using util::Frustum;
using util::Vec3;
using Side = Frustum::Side;

//                            z
//         +---D---+          2
//         |       |
//     +---+--[E]--+---+      0   near face, from -1 to 1 in x and y
//      \    +-+      +|-+
//       \   |A|      |B |        at z = -5 the volume is 4 wide and high
//        \  +-+      +|-+  C
//         \           |
//     +----------------+   -10   far face, from -3 to 3
// (not to scale)
std::array<Vec3, 8> pyramid() {
  return {{{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}, {-3, -3, -10}, {3, -3, -10}, {3, 3, -10}, {-3, 3, -10}}};
}

constexpr Box kA{{-0.5, -0.5, -5.5}, {0.5, 0.5, -4.5}}, kB{{1.5, -0.5, -5.5}, {2.5, 0.5, -4.5}};
constexpr Box kC{{4, -0.5, -6}, {5, 0.5, -5}}, kD{{-1, -1, 0.001}, {1, 1, 2}}, kE{{-0.1, -0.1, 0}, {0.1, 0.1, 1}};

TEST(Frustum, meetsBoxesInsideAndAtTheSurface) {
  const Frustum volume(pyramid().data());
  EXPECT_TRUE(volume.meets(kA));
  EXPECT_TRUE(volume.meets(kB));
  EXPECT_FALSE(volume.meets(kC));
  EXPECT_FALSE(volume.meets(kD));
  EXPECT_TRUE(volume.meets(kE));  // touching counts
  EXPECT_FALSE(volume.meets(Box{}));
  EXPECT_EQ(volume.sideOf(kA), Side::inside);
  EXPECT_EQ(volume.sideOf(kB), Side::unsure);
  EXPECT_EQ(volume.sideOf(kC), Side::outside);
  EXPECT_EQ(volume.sideOf(kD), Side::outside);
  EXPECT_EQ(volume.sideOf(kE), Side::unsure);
}

TEST(Frustum, findsThatTheSurfacePassesThroughABoxOnlyIfItIsDeepEnough) {
  const Frustum volume(pyramid().data());
  const Vec3 half{0.5, 0.5, 0.5};
  // The near face, at z = 0, is 0.2 deep in this box.
  EXPECT_TRUE(volume.surfacePassesThrough({0, 0, 0.3}, half, 0.01));
  EXPECT_FALSE(volume.surfacePassesThrough({0, 0, 0.3}, half, 0.3));
  EXPECT_FALSE(volume.surfacePassesThrough({0, 0, -5}, half, 0.01));
  EXPECT_TRUE(
      volume.surfacePassesThrough({1.4, -1.4, 0.3}, half, 0.01));  // at a corner: its center is above three planes
  EXPECT_FALSE(volume.surfacePassesThrough({2, -1.4, 0.3}, half, 0.01));
}

TEST(Frustum, isConvexOnlyWithFlatFacesThatAreNotFolded) {
  EXPECT_TRUE(Frustum(pyramid().data()).isConvex());
  auto bent = pyramid();
  bent[2].z -= 0.01;  // the near face is not flat
  EXPECT_FALSE(Frustum(bent.data()).isConvex());
  auto folded = pyramid();
  folded[1] = {-0.9, 0.5, 0};  // its second triangle lies on the first
  EXPECT_FALSE(Frustum(folded.data()).isConvex());
  auto flat = pyramid();
  for (Vec3& corner : flat) corner.x *= 1e-9;
  EXPECT_FALSE(Frustum(flat.data()).isConvex());
}

TEST(Frustum, concludesNothingFromPlanesWhereACoordinateIsNotFinite) {
  auto corners = pyramid();
  corners[5].x = INFINITY;
  EXPECT_EQ(Frustum(corners.data()).sideOf(kC), Side::unsure);
}

}  // namespace
