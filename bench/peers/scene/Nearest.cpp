#include <cmath>
#include <string>

#include <facetbox/scene/NearestPoint.h>

#include "../../Workloads.h"
#include "../Turns.h"
#include "NearestPeer.h"
#include "Options.h"
#include "SceneWorkloads.h"

namespace {

using Points = std::vector<std::array<double, 3>>;

struct PointKind {
  const char* name;
  double nearby;  ///< how far from the surface; 0: anywhere in a cube
  double reach;   ///< of the cube around the sphere of radius 100
};
constexpr PointKind kKinds[] = {
    {"on the surface", 1e-6, 0}, {"near the surface", 1, 0}, {"all around", 0, 200}, {"far", 0, 2000}};

Points pointsOf(const PointKind& kind, const Triangles& triangles, std::size_t count) {
  std::mt19937_64 random(9);
  const auto between = [&](double reach) { return reach * (2 * uniform(random) - 1); };
  Points points(count);
  for (auto& point : points) {
    double v = uniform(random), w = uniform(random);
    if (v + w > 1) v = 1 - v, w = 1 - w;
    const std::size_t triangle = random() % triangles.count();
    for (std::size_t a = 0; a < 3; ++a) {
      const auto corner = [&](std::size_t k) {
        return triangles.coordinates[3 * std::size_t{triangles.indices[3 * triangle + k]} + a];
      };
      point[a] = kind.reach > 0 ? between(kind.reach)
                                : (1 - v - w) * corner(0) + v * corner(1) + w * corner(2) + between(kind.nearby);
    }
  }
  return points;
}

}  // namespace

void compareNearest([[maybe_unused]] const Options& options) {
  printHeading("The closest point of a bumpy sphere of radius 100, one thread: ns per point", "ours", "speed");
#ifdef FACETBOX_PEER_CGAL
  for (std::size_t size = options.smallest; size <= options.largest; size *= 10) {
    const auto mesh = sphereMesh(size);
    const Triangles triangles = trianglesOf(*mesh);
    util::SceneState scene;
    const auto shape = std::make_shared<util::SceneMesh>(mesh);
    scene.add({0, shape, util::Placement({}, shape->scale())});
    scene.update();
    const std::unique_ptr<NearestPeer> cgal = cgalNearest(triangles);
    for (const PointKind& kind : kKinds) {
      const std::size_t count = kind.reach > 0 ? std::max<std::size_t>(10'000'000 / triangles.count(), 1000) : 20'000;
      const Points points = pointsOf(kind, triangles, std::min<std::size_t>(count, 20'000));
      std::vector<double> ours(points.size()), theirs(points.size());
      const Turns turns = inTurns(
          options.pairs,
          [&](std::size_t) {
            return secondsOf([&] {
              for (std::size_t i = 0; i < points.size(); ++i)
                ours[i] = util::nearestPoint(scene, util::toVec3(points[i].data()))->distance;
            });
          },
          [&](std::size_t) {
            return secondsOf([&] {
              for (std::size_t i = 0; i < points.size(); ++i) theirs[i] = cgal->find(points[i]);
            });
          });
      const double each = 1e9 / static_cast<double>(points.size());
      Row{std::string(kind.name) + "/" + std::to_string(triangles.count()),
          each * turns.ours,
          "CGAL AABB tree",
          each * turns.theirs,
          turns.speed,
          3}
          .print();
      std::size_t different = 0;
      for (std::size_t i = 0; i < points.size(); ++i) different += !(std::fabs(ours[i] - theirs[i]) <= 1e-10);
      if (different != 0) std::printf("# %zu distances differ by more than 1e-10\n", different);
    }
  }
#endif
}
