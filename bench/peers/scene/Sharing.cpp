#include <atomic>
#include <string>
#include <thread>

#include "../Turns.h"
#include "Options.h"
#include "SceneWorkloads.h"

namespace {

/// Seconds of wall time in which each of some threads asks for all rays, a few at a time.
double askedBy(std::size_t threads, const facetbox::Scene& scene, const SceneRays& rays) {
  constexpr std::size_t kAtOnce = 64;
  return wallSecondsOf([&] {
    std::vector<std::jthread> asking;
    for (std::size_t i = 0; i < threads; ++i)
      asking.emplace_back([&] {
        for (std::size_t ray = 0; ray + kAtOnce <= rays.count(); ray += kAtOnce)
          scene.castRays(std::span(rays.origins).subspan(3 * ray, 3 * kAtOnce),
                         std::span(rays.directions).subspan(3 * ray, 3 * kAtOnce), {.threads = 1});
      });
  });
}

}  // namespace

void measureSharing(const Options& options) {
  printHeading("Threads that ask for 64 rays at a time, in wall time: ns per ray of all", "two", "speed");
  const InstancedScene instanced(options.instances);
  facetbox::Scene scene;
  std::vector<facetbox::Id> ids;
  for (const Instance& instance : instanced.instances)
    ids.push_back(scene.add(instanced.meshes[instance.mesh], instance.transform));
  scene.size();
  const SceneRays rays(RayKind::screenful);
  const double each = 1e9 / static_cast<double>(rays.count());
  const auto row = [&](const char* name, double bar) {
    const Turns turns = inTurns(
        options.pairs, [&](std::size_t) { return askedBy(2, scene, rays) / 2; },
        [&](std::size_t) { return askedBy(1, scene, rays); });
    Row{name, each * turns.ours, "one thread", each * turns.theirs, turns.leastTheirs / turns.leastOurs, bar}.print();
  };
  row("nothing moves", 1.8);
  std::atomic<std::size_t> moves{0};
  const auto begin = wallSecondsOf([&] {
    std::jthread moving([&](const std::stop_token& stop) {
      std::mt19937_64 random(11);
      while (!stop.stop_requested()) {
        scene.move(ids[random() % ids.size()], randomPlace(random));
        ++moves;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
    });
    row("a third thread moves objects", 0);
  });
  std::printf("# %.0f moves a second\n", static_cast<double>(moves) / begin);
}
