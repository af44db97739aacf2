#include <facetbox/mesh/PolygonArea.h>

#include <bit>

#include <tests/support/PolygonFormulas.h>

namespace {

using namespace support;

/// Bit for bit; NaN equals NaN.
bool same(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b) || (std::isnan(a) && std::isnan(b));
}

void expectLikeTheFormulas(const std::vector<Vec3>& vertices, const Indices& corners, const Vec3& stored) {
  Vec3 normal;
  EXPECT_EQ(util::computeFaceNormal(vertices, corners, normal), hasNormal(vertices, corners));
  const Vec3 expected = normalOf(vertices, corners);
  EXPECT_TRUE(same(normal.x, expected.x) && same(normal.y, expected.y) && same(normal.z, expected.z));
  for (const Vec3& n : {normal, stored})
    EXPECT_TRUE(same(util::computePolygonArea(vertices, corners, n), areaOf(vertices, corners, n)))
        << n.x << ' ' << n.y << ' ' << n.z;
}

TEST(PolygonArea, areaAndNormalEqualTheWrittenFormulasBitForBit) {
  for (unsigned seed = 0; seed < 5000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const double scale = seed % 3 == 0 ? 1.0 / 3 : 1.0;
    std::vector<Vec3> vertices(pick(random, 1, 50));
    for (Vec3& v : vertices)
      for (double* c : {&v.x, &v.y, &v.z})
        *c = seed % 8 > 0 || !oneIn(random, 30) ? scale * pick(random, -4, 4) : oneIn(random, 2) ? kNaN : -kInfinity;
    // Around 31 corners the stated form changes its storage.
    const Indices corners =
        randomIndices(random, seed % 2 ? pick(random, 0, 8) : pick(random, 28, 34), vertices.size());
    // Any stored normal: ties in the choice of the plane, components that are zero or no numbers.
    const double choices[] = {0.0, -0.0, 1.0, -1.0, 0.5, -0.5, 1.0 / 3, kNaN, kInfinity};
    const auto choice = [&] { return choices[below(random, 9)]; };
    expectLikeTheFormulas(vertices, corners, {choice(), choice(), choice()});
  }
  // A triangle's cross product is the product of its legs; the length 1e-25 itself is not enough.
  for (const double leg : {1e-26, std::nextafter(1e-25, 0.0), 1e-25, std::nextafter(1e-25, 1.0), 1e-24})
    expectLikeTheFormulas({{0, 0, 0}, {leg, 0, 0}, {0, 1, 0}}, {0, 1, 2}, {0, 0, 1});
}

}  // namespace
