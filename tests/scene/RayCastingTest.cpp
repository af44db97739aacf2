#include <facetbox/scene/RayCasting.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <span>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/scene/RayKernel.h>
#include <tests/support/SceneStates.h>

namespace {

using facetbox::Hits;
using facetbox::kNone;
using support::pick;
using util::Vec3;
using Number = long double;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Rays {
  std::vector<double> origins, directions;
  std::size_t size() const { return origins.size() / 3; }
};

/// A pencil of rays, parallel ones, or any; on a grid, so that they graze edges and corners, or not.
Rays randomRays(std::mt19937& random, int count, double unit, double origin) {
  const auto number = [&](int reach, bool onGrid) {
    return onGrid ? pick(random, -reach, reach) : pick(random, -1000 * reach, 1000 * reach) / 1000.0;
  };
  Rays rays;
  const int kind = pick(random, 0, 2);
  const bool onGrid = pick(random, 0, 1) == 0;
  double eye[3], axis[3];
  for (int a = 0; a < 3; ++a) {
    eye[a] = number(6, onGrid);
    axis[a] = number(3, onGrid);
  }
  const double length = std::ldexp(1.0, pick(random, -60, 60));
  for (int i = 0; i < count; ++i) {
    const double far = pick(random, 0, 99) == 0 ? 1e5 : 1;
    for (int a = 0; a < 3; ++a) {
      const double from = kind == 0 ? eye[a] : kind == 1 ? eye[a] + 0.25 * number(4, onGrid) : far * number(6, onGrid);
      rays.origins.push_back(unit * (from + (a == 0 ? origin : 0)));
      rays.directions.push_back(length * (kind == 0   ? axis[a] + 0.1 * number(5, onGrid)
                                          : kind == 1 ? axis[a]
                                                      : number(3, onGrid)));
    }
  }
  return rays;
}

/// The loop over all objects and triangles, for each ray alone.
Hits plainHits(const support::StateOfScene& scene, const Rays& rays) {
  const util::RayScene targets = scene.state.rayScene();
  Hits hits = castRays(util::SceneState(), rays.origins, rays.directions, {});
  for (std::size_t ray = 0; ray < rays.size(); ++ray) {
    util::RayBundle bundle{};
    const double size = util::largestMagnitude(util::toVec3(&rays.directions[3 * ray]));
    if (size == 0) continue;
    int exponent = 0;
    std::frexp(size, &exponent);
    for (int a = 0; a < 3; ++a) {
      bundle.origin[a][0] = rays.origins[3 * ray + static_cast<std::size_t>(a)];
      bundle.direction[a][0] = std::ldexp(rays.directions[3 * ray + static_cast<std::size_t>(a)], -exponent);
    }
    bundle.best[0] = std::numeric_limits<double>::max();
    bundle.id[0] = kNone;
    for (std::uint32_t slot = 0; slot < scene.state.size(); ++slot)
      util::castRayPlain(targets.targets[slot], util::RayMode::nearest, slot, 0, bundle);
    if (bundle.id[0] == kNone) continue;
    hits.t[ray] = std::ldexp(bundle.best[0], -exponent);
    hits.id[ray] = bundle.id[0];
    hits.triangle[ray] = bundle.triangle[0];
    hits.face[ray] = scene.state[bundle.slot[0]].mesh->faceOf(bundle.triangle[0]);
    hits.uv[2 * ray] = bundle.second[0] / bundle.all[0];
    hits.uv[2 * ray + 1] = bundle.third[0] / bundle.all[0];
  }
  return hits;
}

/// What is certain of a ray and a triangle in the world, by more digits: a hit well inside, a miss, or neither.
struct Certain {
  bool isHit, isMiss;
  Number t;
};
Certain meet(const Vec3& from, const Vec3& along, const support::PlacedTriangle& triangle, Number unit) {
  struct V {
    Number x, y, z;
  };
  const auto minus = [](const Vec3& a, const Vec3& b) {
    return V{Number{a.x} - b.x, Number{a.y} - b.y, Number{a.z} - b.z};
  };
  const auto cross = [](const V& a, const V& b) {
    return V{a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
  };
  const auto dot = [](const V& a, const V& b) { return a.x * b.x + a.y * b.y + a.z * b.z; };
  const V d{along.x, along.y, along.z};
  const V e1 = minus(triangle.corner[1], triangle.corner[0]), e2 = minus(triangle.corner[2], triangle.corner[0]),
          s = minus(from, triangle.corner[0]);
  const V p = cross(d, e2), q = cross(s, e1);
  const Number det = dot(e1, p), size = std::sqrt(dot(e1, e1) * dot(e2, e2) * dot(d, d));
  constexpr Number kNear = 1e-4;
  if (std::fabs(det) <= 1e-3L * size) return {false, false, 0};
  const Number u = dot(s, p) / det, v = dot(d, q) / det, t = dot(e2, q) / det,
               behind = kNear * unit / std::sqrt(dot(d, d));
  const Number least = std::min({u, v, 1 - u - v, t / behind * kNear});
  return {least > kNear, least < -kNear, t};
}

TEST(RayCasting, HitsAreThoseOfThePlainLoopBitForBit) {
  std::mt19937 random(20);
  std::size_t hitCount = 0, certain = 0;
  for (int round = 0; round < 150; ++round) {
    const double unit = std::ldexp(1.0, pick(random, -30, 30)), origin = pick(random, 0, 3) == 0 ? 1e6 : 0;
    const support::StateOfScene scene =
        support::randomState(random, pick(random, 1, round % 10 == 0 ? 200 : 12), pick(random, 1, 8), unit, origin);
    const Rays rays = randomRays(random, 100, unit, origin);
    const Hits hits = castRays(scene.state, rays.origins, rays.directions, {});
    ASSERT_EQ(hits, castRays(scene.state, rays.origins, rays.directions, {}, util::Instructions::base)) << round;

    Hits plain = plainHits(scene, rays);
    plain.normal = hits.normal;
    for (std::size_t i = 0; i < rays.size(); ++i)
      ASSERT_TRUE(hits.t[i] == plain.t[i] && hits.id[i] == plain.id[i] && hits.triangle[i] == plain.triangle[i])
          << "round " << round << " ray " << i << ": " << hits.t[i] << " " << hits.id[i] << " " << hits.triangle[i]
          << ", plain " << plain.t[i] << " " << plain.id[i] << " " << plain.triangle[i] << " o " << rays.origins[3 * i]
          << " " << rays.origins[3 * i + 1] << " " << rays.origins[3 * i + 2] << " d " << rays.directions[3 * i] << " "
          << rays.directions[3 * i + 1] << " " << rays.directions[3 * i + 2] << " unit " << unit << " origin "
          << origin;
    ASSERT_EQ(hits, plain) << round;

    const std::vector<std::uint8_t> isHit = anyHit(scene.state, rays.origins, rays.directions, {});
    for (std::size_t i = 0; i < rays.size(); ++i) {
      ASSERT_EQ(isHit[i] != 0, hits.id[i] != kNone);
      hitCount += isHit[i];
      const Vec3 from = util::toVec3(&rays.origins[3 * i]), along = util::toVec3(&rays.directions[3 * i]);
      std::vector<facetbox::Hit> all = allHits(scene.state, &rays.origins[3 * i], &rays.directions[3 * i], kInfinity);
      std::ranges::sort(all, {}, [](const facetbox::Hit& h) { return std::tuple(h.t, h.id, h.triangle); });
      ASSERT_EQ(all.empty(), hits.id[i] == kNone);
      if (!all.empty()) {
        ASSERT_EQ(std::tuple(all[0].t, all[0].id, all[0].triangle),
                  std::tuple(hits.t[i], hits.id[i], hits.triangle[i]));
        ASSERT_TRUE(std::ranges::equal(all[0].normal, std::span(hits.normal).subspan(3 * i, 3)));
      }
      // By other formulas, where these are certain.
      for (const support::PlacedTriangle& triangle : scene.triangles) {
        const Certain answer = meet(from, along, triangle, unit);
        const auto found = std::ranges::find_if(
            all, [&](const facetbox::Hit& h) { return h.id == triangle.id && h.triangle == triangle.triangle; });
        if (answer.isHit) {
          ASSERT_NE(found, all.end()) << round;
          ASSERT_NEAR(static_cast<double>(found->t / answer.t), 1, 1e-5) << round;
          ASSERT_EQ(found->face, triangle.face);
          const Vec3 e1 = triangle.corner[1] - triangle.corner[0], e2 = triangle.corner[2] - triangle.corner[0];
          const Vec3 at = triangle.corner[0] + found->uv[0] * e1 + found->uv[1] * e2 - (from + found->t * along);
          ASSERT_LT(length(at), 1e-9 * (length(from) + length(e1) + length(e2))) << round;
          const Vec3 normal = cross(1 / length(e1) * e1, 1 / length(e2) * e2);
          ASSERT_NEAR(dot(util::toVec3(found->normal), normal), length(normal), 1e-5 * length(normal)) << round;
          ++certain;
        } else if (answer.isMiss) {
          ASSERT_EQ(found, all.end()) << round;
        }
      }
    }
  }
  EXPECT_GT(hitCount, 1500U);
  EXPECT_GT(certain, 1500U);
}

TEST(RayCasting, NothingSlipsBetweenTrianglesThatShareAnEdge) {
  std::mt19937 random(21);
  facetbox::PolyMesh fan;  // a closed double cone around the origin, with crooked coordinates
  constexpr std::uint32_t kSides = 24;
  fan.points = {0.1, 0.2, 1.3, -0.1, 0.15, -1.1};
  for (std::uint32_t i = 0; i < kSides; ++i) {
    const double angle = 2 * 3.141592653589793 * i / kSides;
    fan.points.insert(fan.points.end(), {std::cos(angle), std::sin(angle), pick(random, -100, 100) / 999.0});
    const std::uint32_t a = 2 + i, b = 2 + (i + 1) % kSides;
    fan.counts.insert(fan.counts.end(), {3, 3});
    fan.indices.insert(fan.indices.end(), {0, a, b, 1, b, a});
  }
  const auto mesh = std::make_shared<util::SceneMesh>(std::make_shared<facetbox::PolyMesh>(fan));
  for (int round = 0; round < 40; ++round) {
    support::StateOfScene scene;
    facetbox::Transform transform;
    for (auto& row : transform.rows)
      for (double& x : row) x = pick(random, -1000, 1000) / 997.0;
    scene.add(0, mesh, transform);
    scene.state.update();
    if (!util::Placement(transform, 1).isInvertible()) continue;
    // From the middle to each corner and to points of each edge, as far as doubles have them.
    const Vec3 middle = support::placed(transform, {0.01, 0.02, 0.03});
    Rays rays;
    for (std::size_t c = 0; c < fan.indices.size(); ++c) {
      const std::size_t next = c % 3 == 2 ? c - 2 : c + 1;
      const Vec3 p = util::toVec3(&fan.points[3 * std::size_t{fan.indices[c]}]),
                 q = util::toVec3(&fan.points[3 * std::size_t{fan.indices[next]}]);
      for (const double share : {0.0, 0.25, 1.0 / 3, 0.7}) {
        const Vec3 to = support::placed(transform, p + share * (q - p)) - middle;
        rays.origins.insert(rays.origins.end(), {middle.x, middle.y, middle.z});
        rays.directions.insert(rays.directions.end(), {to.x, to.y, to.z});
      }
    }
    EXPECT_EQ(std::ranges::count(castRays(scene.state, rays.origins, rays.directions, {}).id, kNone), 0) << round;
  }
}

TEST(RayCasting, BoundsCountToTheLastBit) {
  std::mt19937 random(22);
  const support::StateOfScene scene = support::randomState(random, 20, 3, 1, 0);
  const Rays rays = randomRays(random, 500, 1, 0);
  const Hits hits = castRays(scene.state, rays.origins, rays.directions, {});
  std::vector<double> at = hits.t, before = hits.t;
  for (double& t : before) t = std::nextafter(t, -1.0);
  EXPECT_EQ(castRays(scene.state, rays.origins, rays.directions, {.limits = at}), hits);
  const Hits none = castRays(scene.state, rays.origins, rays.directions, {.limits = before});
  for (std::size_t i = 0; i < rays.size(); ++i) EXPECT_TRUE(hits.id[i] == kNone || none.id[i] == kNone);
  const std::vector<double> odd(rays.size(), std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(std::ranges::count(castRays(scene.state, rays.origins, rays.directions, {.limits = odd}).id, kNone),
            static_cast<std::ptrdiff_t>(rays.size()));
}

TEST(RayCasting, OddRaysHitNothingAndHarmNoOthers) {
  std::mt19937 random(23);
  const support::StateOfScene scene = support::randomState(random, 20, 3, 1, 0);
  const Rays rays = randomRays(random, 160, 1, 0);
  const Hits hits = castRays(scene.state, rays.origins, rays.directions, {});
  Rays odd = rays;
  const std::array<double, 6> values{std::nan(""), kInfinity, -kInfinity, 1e308, 5e-324, 0};
  for (std::size_t i = 0; i < rays.size(); i += 5) {
    const double value = values[i / 5 % values.size()];
    if (value == 0)
      std::fill_n(odd.directions.begin() + static_cast<std::ptrdiff_t>(3 * i), 3, 0.0);
    else
      (i % 2 == 0 ? odd.origins : odd.directions)[3 * i + i % 3] = value;
  }
  const Hits others = castRays(scene.state, odd.origins, odd.directions, {});
  for (std::size_t i = 0; i < rays.size(); ++i) {
    if (i % 5 != 0) {
      EXPECT_EQ(others.t[i], hits.t[i]);
      EXPECT_EQ(others.id[i], hits.id[i]);
    } else if (!std::isfinite(odd.origins[3 * i + i % 3] + odd.directions[3 * i + i % 3]) || values[i / 5 % 6] == 0) {
      EXPECT_EQ(others.id[i], kNone);
    }
  }
  EXPECT_THROW(castRays(scene.state, std::span(rays.origins).first(4), rays.directions, {}), std::invalid_argument);
  EXPECT_THROW(castRays(scene.state, rays.origins, std::span(rays.directions).first(3), {}), std::invalid_argument);
  EXPECT_THROW(castRays(scene.state, rays.origins, rays.directions, {.limits = std::span(values)}),
               std::invalid_argument);
}

}  // namespace
