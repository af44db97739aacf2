#include <facetbox/triangles/RayTest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <numbers>
#include <random>
#include <span>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/triangles/TriangleBvh.h>
#include <tests/support/Meshes.h>

namespace {

using support::triangleMeshOf;
using util::Instructions;
using util::RayTransform;
using util::TriangleMesh;
using Triple = std::array<double, 3>;
using Matrix = std::array<double, 16>;
constexpr Matrix kIdentity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

struct Answer {
  bool hit;
  double t = -7;
  Triple normal{};

  bool operator==(const Answer& other) const {
    const auto bits = [](double x) { return std::bit_cast<std::uint64_t>(x); };
    return hit == other.hit && bits(t) == bits(other.t) && bits(normal[0]) == bits(other.normal[0]) &&
           bits(normal[1]) == bits(other.normal[1]) && bits(normal[2]) == bits(other.normal[2]);
  }
  friend std::ostream& operator<<(std::ostream& out, const Answer& a) {
    return out << (a.hit ? "hit at " : "no hit ") << std::hexfloat << a.t << " " << a.normal[0] << " " << a.normal[1]
               << " " << a.normal[2];
  }
};

Answer ask(const TriangleMesh& mesh, const RayTransform& transform, const Matrix& m, const Triple& o, const Triple& d,
           Instructions instructions) {
  Answer a;
  a.hit = intersectRay(mesh, transform, m.data(), o.data(), d.data(), &a.t, a.normal.data(), instructions);
  return a;
}

Answer askPlain(const TriangleMesh& mesh, const Matrix& m, const Triple& o, const Triple& d) {
  Answer a;
  a.hit = intersectRayPlain(mesh, m.data(), o.data(), d.data(), &a.t, a.normal.data());
  return a;
}

/// Meshes, places and rays of all kinds, and some of no kind.
class Generator {
 public:
  explicit Generator(unsigned seed) : mRandom(seed) {}

  double between(double low, double high) { return std::uniform_real_distribution<double>(low, high)(mRandom); }
  int number(int low, int high) { return std::uniform_int_distribution<int>(low, high)(mRandom); }
  bool oneIn(int n) { return number(1, n) == 1; }
  double magnitude(double low, double high) { return std::pow(10.0, between(low, high)); }

  std::unique_ptr<TriangleMesh> mesh() {
    mSize = magnitude(-3, 9);
    mCoordinates.clear();
    mIndices.clear();
    const int kind = number(0, 6);
    if (kind == 0) {
      makeSphere(number(3, 14));
    } else if (kind == 6) {
      makeSmallAmongLarge();
    } else {
      const int vertices = number(12, 120), triangles = number(8, 250);
      const bool isFlat = oneIn(4);
      for (int i = 0; i < 3 * vertices; ++i) {
        const double x = kind == 1   ? number(-4, 4)
                         : kind == 2 ? between(-1, 1)
                         : kind == 3 ? magnitude(-6, 1) * (oneIn(2) ? 1 : -1)
                                     : number(-9, 9) + (oneIn(3) ? between(-1e-9, 1e-9) : 0);
        mCoordinates.push_back(isFlat && i % 3 == 2 ? 0 : x * mSize);
      }
      for (int i = 0; i < 3 * triangles; ++i) mIndices.push_back(static_cast<std::uint32_t>(number(0, vertices - 1)));
    }
    if (oneIn(3)) {
      const double offset = mSize * magnitude(0, 6);
      for (double& x : mCoordinates) x += offset;
    }
    return triangleMeshOf(mCoordinates, mIndices);
  }

  Matrix place() {
    Matrix m = kIdentity;
    const int kind = number(0, 6);
    if (kind == 1 || kind == 2)
      for (const int i : {12, 13, 14}) m[i] = between(-10, 10) * mSize;
    if (kind >= 2 && kind <= 4)
      for (const int i : {0, 1, 2, 4, 5, 6, 8, 9, 10}) m[i] = between(-2, 2);
    if (kind == 4)  // nearly singular
      for (const int i : {0, 1, 2}) m[8 + i] = 0.5 * m[i] + 0.25 * m[4 + i] + between(-1, 1) * magnitude(-15, -2);
    if (kind == 5) {
      m[0] = -1;
      m[5] = magnitude(-4, 4);
      m[10] = magnitude(-4, 4);
    }
    return m;
  }

  /// Towards some point of some triangle, or nearly.
  void ray(const Matrix& m, Triple& origin, Triple& direction) {
    const auto corner = [&, t = number(0, static_cast<int>(mIndices.size() / 3) - 1)](int k, int a) {
      return mCoordinates[3 * mIndices[3 * t + k] + a];
    };
    const bool atVertex = oneIn(4), inPlane = oneIn(4);
    const double reach = inPlane ? 4 : 0.1;
    const double u = atVertex ? number(0, 1) : between(-reach, 1 + reach),
                 v = atVertex ? number(0, 1) : between(-reach, 1 + reach), along = inPlane ? between(-1, 1) : 0;
    Triple target{m[12], m[13], m[14]}, edge{};
    for (int a = 0; a < 3; ++a) {
      const double x = corner(0, a) + u * (corner(1, a) - corner(0, a)) + v * (corner(2, a) - corner(0, a));
      for (int r = 0; r < 3; ++r) {
        target[r] += m[4 * a + r] * x;
        edge[r] += m[4 * a + r] * (corner(1, a) - corner(0, a) + along * (corner(2, a) - corner(0, a)));
      }
    }
    Triple way{between(-1, 1), between(-1, 1), between(-1, 1)};
    switch (number(0, 6)) {
      case 0:
        way[number(0, 2)] = 0;
        break;
      case 1:
        way = {0, 0, 0}, way[number(0, 2)] = oneIn(2) ? 1 : -1;
        break;
      case 2:  // along the triangle, or nearly
        way = edge;
        for (double& x : way) x += inPlane || oneIn(2) ? 0 : between(-1, 1) * mSize * magnitude(-16, -3);
        break;
      case 3:
        for (double& x : way) x *= magnitude(-12, 0);
        break;
      default:
        break;
    }
    const double length = std::sqrt(way[0] * way[0] + way[1] * way[1] + way[2] * way[2]);
    if (!(length > 0)) way = {1, 0, 0};
    const double distance = oneIn(20) ? 0 : mSize * magnitude(-2, 5), stretch = oneIn(3) ? magnitude(-4, 9) : 1;
    for (int a = 0; a < 3; ++a) {
      way[a] /= length > 0 ? length : 1;
      origin[a] = target[a] - way[a] * distance;
      direction[a] = way[a] * stretch;
    }
  }

 private:
  void makeSphere(int rows) {
    const int columns = 2 * rows;
    for (int i = 0; i <= rows; ++i)
      for (int j = 0; j <= columns; ++j) {
        const double theta = std::numbers::pi * i / rows, phi = 2 * std::numbers::pi * j / columns;
        mCoordinates.insert(mCoordinates.end(), {mSize * std::sin(theta) * std::cos(phi),
                                                 mSize * std::sin(theta) * std::sin(phi), mSize * std::cos(theta)});
      }
    for (int i = 0; i < rows; ++i)
      for (int j = 0; j < columns; ++j) {
        const auto a = static_cast<std::uint32_t>(i * (columns + 1) + j),
                   b = a + static_cast<std::uint32_t>(columns) + 1;
        mIndices.insert(mIndices.end(), {a, b, b + 1, a, b + 1, a + 1});
      }
  }

  /// Rounding bounds that are right for the large ones are far too wide for the small ones.
  void makeSmallAmongLarge() {
    const double small = magnitude(-6, -2);
    for (int t = number(40, 250); t > 0; --t) {
      const double size = oneIn(30) ? 1 : small;
      const Triple at{between(-1, 1) * small * 10, between(-1, 1) * small * 10, between(-1, 1) * small};
      for (int k = 0; k < 3; ++k) {
        mIndices.push_back(static_cast<std::uint32_t>(mCoordinates.size() / 3));
        for (const double x : at) mCoordinates.push_back((x + between(-1, 1) * size) * mSize);
      }
    }
  }

  std::mt19937 mRandom;
  double mSize = 1;
  std::vector<double> mCoordinates;
  std::vector<std::uint32_t> mIndices;
};

// The hierarchy may pass over nothing that the loop accepts, and must settle ties as it does. Two thirds of these rays
// hit; sizes go from thousandths to ten millions, so that both kinds of traversal and the loop itself have their turn.
TEST(RayTest, hierarchyGivesTheVeryHitsOfThePlainLoop) {
  Generator make(1);
  std::size_t hits = 0;
  for (int scene = 0; scene < 1500; ++scene) {
    const auto mesh = make.mesh();
    const Matrix m = make.place();
    const RayTransform transform(*mesh, m.data());
    for (int i = 0; i < 150; ++i) {
      Triple origin, direction;
      make.ray(m, origin, direction);
      const Answer plain = askPlain(*mesh, m, origin, direction);
      hits += plain.hit;
      ASSERT_EQ(ask(*mesh, transform, m, origin, direction, Instructions::best), plain) << "scene " << scene;
      ASSERT_EQ(ask(*mesh, transform, m, origin, direction, Instructions::base), plain) << "scene " << scene;
    }
  }
  EXPECT_GT(hits, 100000u);
}

TEST(RayTest, hostileNumbersGetThePlainLoopsAnswer) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN(), kInf = std::numeric_limits<double>::infinity();
  const std::vector<double> odd{kNaN, kInf, -kInf, 1e308, -1e160, 1e-310, 0.0, -0.0};
  Generator make(2);
  for (int scene = 0; scene < 300; ++scene) {
    auto mesh = make.mesh();
    Matrix m = make.place();
    Triple origin, direction;
    make.ray(m, origin, direction);
    std::vector<double> coordinates(mesh->vertexCoordinates().begin(), mesh->vertexCoordinates().end());
    const std::array<std::span<double>, 4> places{m, origin, direction, coordinates};
    const std::span<double> place = places[static_cast<std::size_t>(make.number(0, 3))];
    place[static_cast<std::size_t>(make.number(0, static_cast<int>(place.size()) - 1))] =
        odd[static_cast<std::size_t>(make.number(0, 7))];
    mesh = triangleMeshOf(coordinates, {mesh->indices().begin(), mesh->indices().end()});
    const Answer plain = askPlain(*mesh, m, origin, direction);
    const RayTransform transform(*mesh, m.data());
    ASSERT_EQ(ask(*mesh, transform, m, origin, direction, Instructions::best), plain) << "scene " << scene;
    ASSERT_EQ(ask(*mesh, transform, m, origin, direction, Instructions::base), plain) << "scene " << scene;
  }
}

// Without triangles, with few, with many in one place: too many for any cut to part them.
TEST(RayTest, meshesThatCannotBePartedAreSearchedAllTheSame) {
  for (const std::uint32_t count : {0u, 1u, 9u, 1000u}) {
    std::vector<std::uint32_t> indices;
    for (std::uint32_t i = 0; i < count; ++i) indices.insert(indices.end(), {0, 1, 2});
    const auto mesh = triangleMeshOf({0, 0, 0, 1, 0, 0, 0, 1, 0}, indices);
    double t = -7;
    const Triple down{0.25, 0.25, 1}, direction{0, 0, -2};
    EXPECT_EQ(intersectRay(*mesh, kIdentity.data(), down.data(), direction.data(), &t, nullptr), count > 0);
    EXPECT_EQ(t, count > 0 ? 0.5 : -7);
  }
}

// By hand, as the loop is the measure of everything else here. Seen from above:
//   2  +
//      |  `.    x
//   1  o     o          the rays at o meet edges, the one at h the inside, the one at x nothing
//      |  h     `.
//   0  +-----------+
//      0     1     2
TEST(RayTest, edgesAndTheOriginCountParallelRaysDoNot) {
  const auto mesh = triangleMeshOf({0, 0, 0, 2, 0, 0, 0, 2, 0}, {0, 1, 2});
  const auto hit = [&](Triple origin, Triple direction) {
    Triple normal{};
    double t = -7;
    const bool isHit = intersectRayPlain(*mesh, kIdentity.data(), origin.data(), direction.data(), &t, normal.data());
    if (isHit) {
      EXPECT_EQ(normal, (Triple{0, 0, 1}));
    }
    return isHit ? t : -7;
  };
  EXPECT_EQ(hit({0.5, 0.5, 3}, {0, 0, -1}), 3);
  EXPECT_EQ(hit({0.5, 0.5, -3}, {0, 0, 0.5}), 6);  // from behind, too
  EXPECT_EQ(hit({1, 1, 3}, {0, 0, -1}), 3);        // u + v = 1
  EXPECT_EQ(hit({0, 1, 3}, {0, 0, -1}), 3);        // u = 0
  EXPECT_EQ(hit({0.5, 0.5, 0}, {0, 0, -1}), 0);
  EXPECT_EQ(hit({0.5, 0.5, -1}, {0, 0, -1}), -7);
  EXPECT_EQ(hit({1.5, 1.5, 3}, {0, 0, -1}), -7);
  EXPECT_EQ(hit({0.5, 0.5, 3}, {0, 0, -2.4e-6}), -7);  // |determinant| below 1e-5
  EXPECT_NE(hit({0.5, 0.5, 3}, {0, 0, -2.6e-6}), -7);
}

}  // namespace
