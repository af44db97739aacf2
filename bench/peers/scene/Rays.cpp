#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include <facetbox/scene/SurfaceTest.h>

#include "../Turns.h"
#include "EmbreeScene.h"
#include "Options.h"
#include "SceneWorkloads.h"

namespace {

/// The nearest hit by looking at all triangles.
double plainDistance(const Triangles& triangles, const Ray& ray, std::uint32_t& nearest) {
  const util::SurfaceRay surfaceRay = util::makeSurfaceRay(ray.exactOrigin, ray.exactDirection);
  double t = std::numeric_limits<double>::infinity();
  nearest = facetbox::kNone;
  for (std::uint32_t i = 0; i < triangles.count(); ++i) {
    double corners[9];
    for (std::size_t k = 0; k < 3; ++k)
      std::memcpy(corners + 3 * k, &triangles.coordinates[3 * std::size_t{triangles.indices[3 * i + k]}],
                  3 * sizeof(double));
    util::SurfaceMeeting meeting;
    if (!meetSurface(surfaceRay, corners, meeting) || !(meeting.t < t)) continue;
    t = meeting.t;
    nearest = i;
  }
  return t;
}

/// What is not as the plain loop has it, among rays from all over.
void printDifferences(const facetbox::Scene& scene, const Triangles& triangles, const SceneRays& rays,
                      const std::vector<float>& theirs) {
  constexpr std::size_t kTests = 200'000'000;
  const std::size_t wanted = std::max<std::size_t>(kTests / triangles.count(), 100);
  const std::size_t step = std::max<std::size_t>(rays.count() / wanted, 1) | 1;
  const facetbox::Hits hits = scene.castRays(rays.origins, rays.directions);
  std::size_t compared = 0, ours = 0, missed = 0, phantoms = 0, off = 0, hit = 0;
  for (std::size_t i = 0; i < rays.count(); i += step, ++compared) {
    std::uint32_t triangle;
    const double t = plainDistance(triangles, rays.rays[i], triangle);
    ours += hits.t[i] != t || hits.triangle[i] != triangle;
    hit += std::isfinite(t);
    if (theirs.empty()) continue;
    missed += std::isfinite(t) && !std::isfinite(theirs[i]);
    phantoms += !std::isfinite(t) && std::isfinite(theirs[i]);
    off += std::isfinite(t) && std::isfinite(theirs[i]) && !(std::fabs(double{theirs[i]} - t) <= 1e-4 * t);
  }
  std::printf(
      "# %s: of %zu rays %zu hit; not as the plain loop: ours %zu; Embree's single rays: missed %zu, phantoms "
      "%zu, off by 1e-4 %zu\n",
      nameOf(rays.kind), compared, hit, ours, missed, phantoms, off);
}

}  // namespace

void compareRays(const Options& options) {
  printHeading("castRays on one thread, a bumpy sphere: ns per ray", "ours", "speed");
  for (std::size_t size = options.smallest; size <= options.largest; size *= 10) {
    const auto mesh = sphereMesh(size);
    const Triangles triangles = trianglesOf(*mesh);
    facetbox::Scene scene;
    scene.add(mesh);
#ifdef FACETBOX_PEER_EMBREE
    EmbreeScene embree;
    embree.add(triangles);
    embree.commit();
#endif
    for (const RayKind kind : kRayKinds) {
      const SceneRays rays(kind);
      const bool isCoherent = kind != RayKind::incoherent;
      const double each = 1e9 / static_cast<double>(rays.count());
      const auto ours = [&](std::size_t) {
        return secondsOf([&] { scene.castRays(rays.origins, rays.directions, {.threads = 1}); });
      };
      const auto name = [&](const char* what) {
        return std::string(what) + nameOf(kind) + "/" + std::to_string(triangles.count());
      };
      [[maybe_unused]] std::vector<float> theirs;
#ifdef FACETBOX_PEER_EMBREE
      const auto row = [&](const char* against, const std::vector<Ray>& order, Packets packets, double bar) {
        embree.prepare(order, packets, isCoherent);
        const Turns turns =
            inTurns(options.pairs, ours, [&](std::size_t) { return secondsOf([&] { embree.cast(); }); });
        Row{name(""), each * turns.ours, against, each * turns.theirs, turns.speed, bar}.print();
      };
      row("Embree robust, single rays", rays.rays, Packets::none, isCoherent ? 2 : 0.8);
      theirs = embree.distances();
      row("Embree robust, 16-packets", rays.rays, Packets::of16, isCoherent ? 0.5 : 0);
      if (isCoherent) row("Embree robust, 16-packets of 4 x 4", inTiles(rays.rays), Packets::of16, 0.5);
#endif
      const Turns any = inTurns(
          options.pairs,
          [&](std::size_t) { return secondsOf([&] { scene.anyHit(rays.origins, rays.directions, {.threads = 1}); }); },
          ours);
      Row{name("anyHit/"), each * any.ours, "castRays", each * any.theirs, any.speed, 0}.print();
      printDifferences(scene, triangles, rays, theirs);
    }
  }
}

void measureThreads(const Options& options) {
  printHeading("castRays on two threads, in wall time: ns per ray", "two", "speed");
  for (std::size_t size = options.smallest; size <= options.largest; size *= 10) {
    facetbox::Scene scene;
    scene.add(sphereMesh(size));
    for (const RayKind kind : {RayKind::camera, RayKind::incoherent}) {
      const SceneRays rays(kind);
      const auto cast = [&](unsigned threads) {
        return wallSecondsOf([&] { scene.castRays(rays.origins, rays.directions, {.threads = threads}); });
      };
      const Turns turns = inTurns(
          options.pairs, [&](std::size_t) { return cast(2); }, [&](std::size_t) { return cast(1); });
      const double each = 1e9 / static_cast<double>(rays.count());
      Row{std::string(nameOf(kind)) + "/" + std::to_string(size),
          each * turns.ours,
          "one thread",
          each * turns.theirs,
          turns.leastTheirs / turns.leastOurs,
          1.8}
          .print();
    }
  }
  std::printf("# speed: of the fastest runs, as other programs disturb\n");
}
