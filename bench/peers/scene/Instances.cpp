#include <cmath>
#include <string>

#include "../Turns.h"
#include "EmbreeScene.h"
#include "Options.h"
#include "SceneWorkloads.h"

namespace {

#ifdef FACETBOX_PEER_EMBREE
void build(const InstancedScene& scene, EmbreeScene& embree) {
  for (const auto& mesh : scene.meshes) embree.addMesh(trianglesOf(*mesh));
  for (const Instance& instance : scene.instances) embree.addInstance(instance.mesh, instance.transform.rows);
  embree.commit();
}
#endif

/// @param passes  of moving everything, on both sides
void compareFrames(const Options& options, const InstancedScene& instanced, facetbox::Scene& scene,
                   const std::vector<facetbox::Id>& ids, [[maybe_unused]] EmbreeScene* embree) {
  printHeading("Moving all instances, and a screenful of rays: us per object", "ours", "speed");
  const SceneRays rays(RayKind::screenful);
  std::mt19937_64 random(5);
  std::vector<facetbox::Transform> places;
  for (std::size_t i = 0; i < instanced.instances.size(); ++i) places.push_back(instanced.instances[i].transform);
  const auto step = [&](std::size_t pair) {
    for (facetbox::Transform& place : places) place.rows[0][3] += pair % 2 == 0 ? 0.5 : -0.5;
  };
  const double each = 1e6 / static_cast<double>(places.size());
  // The first ray executes the changes.
  const auto move = [&](std::size_t pair) {
    step(pair);
    return secondsOf([&] {
      for (std::size_t i = 0; i < places.size(); ++i) scene.move(ids[i], places[i]);
      scene.castRays(std::span(rays.origins).first(3), std::span(rays.directions).first(3), {.threads = 1});
    });
  };
  const auto frame = [&](std::size_t pair) {
    return move(pair) + secondsOf([&] { scene.castRays(rays.origins, rays.directions, {.threads = 1}); });
  };
#ifdef FACETBOX_PEER_EMBREE
  const auto moveTheirs = [&](std::size_t pair) {
    step(pair);
    return secondsOf([&] {
      for (std::size_t i = 0; i < places.size(); ++i) embree->move(i, places[i].rows);
      embree->commit();
    });
  };
  const auto frameTheirs = [&](std::size_t pair) { return moveTheirs(pair) + secondsOf([&] { embree->cast(); }); };
  embree->prepare(rays.rays, Packets::none, true);
  const Turns moves = inTurns(options.pairs, move, moveTheirs);
  Row{"move", each * moves.ours, "Embree: transforms and commit", each * moves.theirs, moves.speed, 0}.print();
  const Turns frames = inTurns(options.pairs, frame, frameTheirs);
  Row{"frame of " + std::to_string(rays.count()) + " rays",
      each * frames.ours,
      "Embree, single rays",
      each * frames.theirs,
      frames.speed,
      0}
      .print();
#else
  const Turns frames = inTurns(options.pairs, frame, move);
  Row{"frame", each * frames.ours, "only the moves", each * frames.theirs, frames.speed, 0}.print();
#endif
}

}  // namespace

void compareInstances(const Options& options) {
  const std::string title =
      std::to_string(options.instances) + " instances of 10 meshes, castRays on one thread: ns per ray";
  printHeading(title.c_str(), "ours", "speed");
  const InstancedScene instanced(options.instances);
  facetbox::Scene scene;
  std::vector<facetbox::Id> ids;
  for (const Instance& instance : instanced.instances)
    ids.push_back(scene.add(instanced.meshes[instance.mesh], instance.transform));
  EmbreeScene* embree = nullptr;
#ifdef FACETBOX_PEER_EMBREE
  EmbreeScene embreeScene;
  build(instanced, embreeScene);
  embree = &embreeScene;
  for (const RayKind kind : kRayKinds) {
    const SceneRays rays(kind);
    const double each = 1e9 / static_cast<double>(rays.count());
    facetbox::Hits hits;
    const auto row = [&](const char* against, Packets packets, double bar) {
      embree->prepare(rays.rays, packets, kind != RayKind::incoherent);
      const Turns turns = inTurns(
          options.pairs,
          [&](std::size_t) {
            return secondsOf([&] { hits = scene.castRays(rays.origins, rays.directions, {.threads = 1}); });
          },
          [&](std::size_t) { return secondsOf([&] { embree->cast(); }); });
      Row{nameOf(kind), each * turns.ours, against, each * turns.theirs, turns.speed, bar}.print();
    };
    row("Embree robust, instanced, packets", Packets::of16, 0);
    row("Embree robust, instanced, single", Packets::none, 0.7);
    const std::vector<float> theirs = embree->distances();
    std::size_t hit = 0, different = 0;
    for (std::size_t i = 0; i < rays.count(); ++i) {
      hit += std::isfinite(hits.t[i]);
      different += std::isfinite(hits.t[i]) != std::isfinite(theirs[i]) ||
                   (std::isfinite(theirs[i]) && !(std::fabs(double{theirs[i]} - hits.t[i]) <= 1e-4 * hits.t[i]));
    }
    std::printf("# %s: %zu of %zu rays hit; Embree differs from ours in %zu\n", nameOf(kind), hit, rays.count(),
                different);
  }
#endif
  compareFrames(options, instanced, scene, ids, embree);
}
