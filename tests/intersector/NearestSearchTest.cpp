#include <facetbox/intersector/NearestSearch.h>

#include <array>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/triangles/TriangleMeshFactory.h>
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

std::array<double, 12> numbersOf(const util::NearestSearch& search) {
  std::array<double, 12> numbers{};
  if (const util::NearestHit* hit = search.hit())
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
    const double scale = std::pow(10.0, pick(random, -6, 6)),
                 far = oneIn(random, 2) ? 0 : std::pow(10.0, pick(random, 7, 12)) * scale;
    const auto mesh = randomMesh(random, {far, -far, far}, scale);
    for (int q = 0; q < 40; ++q, ++count) {
      // Brings the mesh before the camera, whatever its size; in one step, or by a place of its own.
      const Matrix toView{1 / scale,    0, 0, 0, 0, 1 / scale, 0, 0, 0, 0, 1 / scale, 0, -far / scale, far / scale,
                          -far / scale, 1};
      const Matrix camera = support::randomViewProjection(random, 20);
      const bool isPlaced = oneIn(random, 2);
      Matrix view = isPlaced ? camera : support::product(camera, toView);
      // Half of the time one vertex just touches the volume, or just does not.
      if (oneIn(random, 2) && !isPlaced) support::tuneToPlane(random, view, mesh->vertexCoordinates());
      const Vec3 eye{1.0 * pick(random, -30, 30), 1.0 * pick(random, -30, 30), 30};
      Vec3 direction{1.0 * pick(random, -3, 3), 1.0 * pick(random, -3, 3), 1.0 * pick(random, -3, 3)};
      if (oneIn(random, 2)) direction = {0, 0, -1};
      util::NearestSearch search(view.data(), eye, direction), plain(view.data(), eye, direction);
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

// Peaks that end at one height but for some billionths, and a volume that begins at the highest. It lies in the middle
// of the mesh, where the floats in which boxes are looked at are coarse beside its distance.
TEST(NearestSearch, findsTheOnePeakThatTouchesTheVolume) {
  int hits = 0;
  for (unsigned seed = 0; seed < 400; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto number = [&](double low, double high) {
      return std::uniform_real_distribution<double>(low, high)(random);
    };
    const double roughness = std::pow(10.0, pick(random, -12, -7));
    util::TriangleMeshArrays arrays;
    constexpr std::uint32_t kSide = 12;
    double highest = -1;
    for (std::uint32_t v = 0; v < kSide * kSide; ++v) {
      const double z = v % 2 == 0 ? number(-1, -0.5) : number(-roughness, 0);
      highest = std::max(highest, z);
      arrays.vertexCoordinates.insert(arrays.vertexCoordinates.end(),
                                      {v % kSide + number(-0.3, 0.3), v / kSide + number(-0.3, 0.3), z});
    }
    // As high above, but beside the volume.
    arrays.vertexCoordinates.insert(arrays.vertexCoordinates.end(), {0, 13, 1, 1, 13, 1, 0, 14, 1});
    arrays.indices = {kSide * kSide, kSide * kSide + 1, kSide * kSide + 2};
    for (std::uint32_t v = 0; v + kSide + 1 < kSide * kSide; ++v)
      if ((v + 1) % kSide != 0)
        arrays.indices.insert(arrays.indices.end(), {v, v + 1, v + kSide + 1, v, v + kSide + 1, v + kSide});
    const double scale = number(0.01, 1);
    const Matrix view{0, 0, 0.05, 0, 0, 1 / 6.5, 0, 0, -scale, 0, 0.05, 0, 1 + scale * highest, -6 / 6.5, 0, 1};
    const std::unique_ptr<util::TriangleMesh> mesh(util::Triangulator::TriangleMeshFactory().create(std::move(arrays)));
    mesh->buildHierarchy();
    const Vec3 direction{number(-1, 1), number(-1, 1), number(-1, 1)};
    util::NearestSearch search(view.data(), {0, 0, 0}, direction), plain(view.data(), {0, 0, 0}, direction);
    search.search(*mesh, nullptr);
    plain.searchPlain(*mesh, nullptr);
    ASSERT_EQ(numbersOf(search), numbersOf(plain));
    hits += plain.hit() != nullptr ? 1 : 0;
  }
  EXPECT_GT(hits, 100);
}

}  // namespace
