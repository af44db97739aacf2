#include <facetbox/intersector/NearestSearch.h>

#include <array>
#include <cmath>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/util/triangles/TriangleMeshFactory.h>
#include <tests/support/Meshes.h>
#include <tests/support/Scenes.h>

namespace {

using support::Matrix;
using support::oneIn;
using support::pick;
using util::Vec3;

/// A rough sheet, or a crumpled one, of triangles in random order; anywhere, of any size. Ties in depth are frequent.
std::unique_ptr<util::TriangleMesh> randomMesh(std::mt19937& random, const Vec3& at, double scale) {
  const std::uint32_t side = support::below(random, 40) + 5;
  const bool isCrumpled = oneIn(random, 3);
  util::TriangleMeshArrays arrays;
  for (std::uint32_t v = 0; v < side * side; ++v) {
    Vec3 p{1.0 * (v % side), 1.0 * (v / side), pick(random, 0, 2) / 2.0};
    if (isCrumpled) p = {pick(random, 0, 40) / 2.0, pick(random, 0, 40) / 2.0, pick(random, 0, 40) / 2.0};
    p = at + scale * p;
    arrays.vertexCoordinates.insert(arrays.vertexCoordinates.end(), {p.x, p.y, p.z});
  }
  for (int t = pick(random, 32, 3000); t > 0; --t) {
    const std::uint32_t a = support::below(random, side - 1) + side * support::below(random, side - 1);
    arrays.indices.insert(arrays.indices.end(), {a, a + 1 + (t % 2) * side, a + side + 1 - t % 2});
  }
  std::unique_ptr<util::TriangleMesh> mesh(util::Triangulator::TriangleMeshFactory().create(std::move(arrays)));
  mesh->buildHierarchy();
  return mesh;
}

std::array<double, 12> numbersOf(const NearestSearch& search) {
  std::array<double, 12> numbers{};
  if (const NearestHit* hit = search.hit())
    for (std::size_t a = 0; a < 12; ++a) {
      const Vec3& p = a < 3 ? hit->mPoint : hit->mCorners[a / 3 - 1];
      numbers[a] = a % 3 == 0 ? p.x : a % 3 == 1 ? p.y : p.z;
    }
  return numbers;
}

TEST(NearestSearch, hierarchyGivesTheBitsOfThePlainSearch) {
  int hits = 0, count = 0;
  for (unsigned seed = 0; seed < 150; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const double scale = std::pow(10.0, pick(random, -6, 6)), far = oneIn(random, 2) ? 0 : 1e7 * scale;
    const auto mesh = randomMesh(random, {far, -far, far}, scale);
    for (int q = 0; q < 40; ++q, ++count) {
      // Brings the mesh before the camera, whatever its size; in one step, or by a place of its own.
      const Matrix toView{1 / scale,    0, 0, 0, 0, 1 / scale, 0, 0, 0, 0, 1 / scale, 0, -far / scale, far / scale,
                          -far / scale, 1};
      const Matrix camera = support::randomViewProjection(random, 20);
      const bool isPlaced = oneIn(random, 2);
      const Matrix view = isPlaced ? camera : support::product(camera, toView);
      const Vec3 eye{1.0 * pick(random, -30, 30), 1.0 * pick(random, -30, 30), 30};
      Vec3 direction{1.0 * pick(random, -3, 3), 1.0 * pick(random, -3, 3), 1.0 * pick(random, -3, 3)};
      if (oneIn(random, 2)) direction = {0, 0, -1};
      NearestSearch search(view.data(), eye, direction), plain(view.data(), eye, direction);
      const double* place = isPlaced ? toView.data() : nullptr;
      // A second time in another place: what is found there competes with what is known.
      const Matrix elsewhere = support::shifted(0, 0, 1);
      for (const double* transform : {place, elsewhere.data()}) {
        search.search(*mesh, transform);
        plain.searchPlain(*mesh, transform);
        ASSERT_EQ(numbersOf(search), numbersOf(plain)) << "query " << q;
      }
      hits += plain.hit() != nullptr ? 1 : 0;
    }
  }
  EXPECT_GT(hits, count / 4);
  EXPECT_LT(hits, count);
}

}  // namespace
