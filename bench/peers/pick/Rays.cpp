#include <algorithm>
#include <cfloat>

#include <facetbox/triangles/TriangleBvh.h>

#include "RayPeers.h"
#include "Turns.h"

namespace {

constexpr std::size_t kTimedRays = 250'000;

class OurCaster final : public RayCaster {
 public:
  OurCaster(const Sphere& sphere, util::Instructions instructions) : mSphere(sphere), mInstructions(instructions) {}

  void cast(std::span<const Ray> rays, std::span<double> distances) override {
    for (std::size_t i = 0; i < rays.size(); ++i) {
      double t, normal[3];
      distances[i] = mSphere.intersect(rays[i], mInstructions, &t, normal) ? t : kMiss;
    }
  }

 private:
  const Sphere& mSphere;
  const util::Instructions mInstructions;
};

class PickerCaster final : public RayCaster {
 public:
  explicit PickerCaster(Sphere& sphere) : mSphere(sphere) {}

  void cast(std::span<const Ray> rays, std::span<double> distances) override {
    for (std::size_t i = 0; i < rays.size(); ++i) {
      float distance, normal[3];
      distances[i] = mSphere.pick(rays[i], &distance, normal) ? double{distance} : kMiss;
    }
  }

 private:
  Sphere& mSphere;
};

class LoopCaster final : public RayCaster {
 public:
  explicit LoopCaster(const Sphere& sphere) : mSphere(sphere) {}

  void cast(std::span<const Ray> rays, std::span<double> distances) override {
    for (std::size_t i = 0; i < rays.size(); ++i) {
      double t, normal[3];
      distances[i] = mSphere.intersectPlain(rays[i], &t, normal) ? t : kMiss;
    }
  }

 private:
  const Sphere& mSphere;
};

/// Both sides on the same rays: as many as the other side casts in some 60 ms, a new stretch for every pair.
Turns compare(const Options& options, const std::vector<Ray>& rays, RayCaster& ours, RayCaster& theirs,
              std::size_t& count) {
  std::vector<double> distances(rays.size());
  const auto secondsFor = [&](RayCaster& caster, std::size_t first, std::size_t n) {
    return secondsOf([&] { caster.cast(std::span(rays).subspan(first, n), distances); });
  };
  // From the middle of an image, where rays hit.
  count = std::min<std::size_t>(rays.size(), 16);
  double seconds = secondsFor(theirs, rays.size() / 2, count);
  while (seconds < 0.03 && count < rays.size()) {
    count = std::min(rays.size(), count * std::clamp<std::size_t>(static_cast<std::size_t>(0.06 / seconds), 2, 10));
    seconds = secondsFor(theirs, (rays.size() - count) / 2, count);
  }
  const auto firstOf = [&](std::size_t pair) { return (rays.size() - count) * (pair * 8 % 13) / 12; };
  return inTurns(
      options.pairs, [&](std::size_t pair) { return secondsFor(ours, firstOf(pair), count); },
      [&](std::size_t pair) { return secondsFor(theirs, firstOf(pair), count); });
}

double hitShare(RayCaster& caster, const std::vector<Ray>& rays) {
  std::vector<double> distances(rays.size());
  caster.cast(rays, distances);
  return static_cast<double>(std::ranges::count_if(distances, [](double d) { return d != RayCaster::kMiss; })) /
         static_cast<double>(rays.size());
}

std::string caseName(const char* what, std::size_t triangles) {
  return std::string(what) + "/" + std::to_string(triangles);
}

}  // namespace

void compareRays(const Options& options) {
  printHeading("Rays against one bumpy sphere, one call per ray: ns per ray", "ours", "speed");
  for (std::size_t triangles = options.smallest; triangles <= options.largest; triangles *= 10) {
    Sphere sphere(triangles, {0, 0, 0});
    OurCaster best(sphere, util::Instructions::best), base(sphere, util::Instructions::base);
    LoopCaster loop(sphere);
    PickerCaster picker(sphere);
    std::vector<std::vector<Ray>> rays;
    for (const RayKind kind : kRayKinds) {
      rays.push_back(raysOf(kind, kTimedRays, sphere.center));
      std::printf("# %s: %zu triangles, %.1f %% of the rays hit\n", nameOf(kind), sphere.placed.count(),
                  100 * hitShare(best, rays.back()));
    }
    const auto row = [&](const std::string& what, std::size_t kind, RayCaster& ours, const std::string& against,
                         RayCaster& theirs, double bar) {
      std::size_t count;
      const Turns turns = compare(options, rays[kind], ours, theirs, count);
      const double each = 1e9 / static_cast<double>(count);
      Row{caseName((what + nameOf(kRayKinds[kind])).c_str(), triangles),
          each * turns.ours,
          against,
          each * turns.theirs,
          turns.speed,
          bar}
          .print();
    };
    for (const RayPeer& peer : rayPeers()) {
      const std::unique_ptr<RayCaster> theirs = peer.build(sphere.placed);
      const bool isEmbree = peer.name.starts_with("Embree"), isCgal = peer.name.starts_with("CGAL");
      for (std::size_t kind = 0; kind < rays.size(); ++kind) {
        const double embreeBar = kRayKinds[kind] != RayKind::incoherent ? 0.9 : triangles <= 10'000 ? 0.65 : 0.5;
        row("", kind, best, peer.name, *theirs, isEmbree ? embreeBar : 0);
        if (isCgal) row("base/", kind, base, peer.name, *theirs, 3);
      }
    }
    for (std::size_t kind = 0; kind < rays.size(); ++kind) row("", kind, best, "the plain loop", loop, 0);
    for (std::size_t kind = 0; kind < rays.size(); ++kind) {
      std::size_t count;
      const Turns turns = compare(options, rays[kind], picker, best, count);
      const double each = 1e9 / static_cast<double>(count);
      Row{caseName((std::string("pickRay/") + nameOf(kRayKinds[kind])).c_str(), triangles),
          each * turns.ours,
          "the ray test itself, ns more",
          each * turns.theirs,
          each * turns.difference,
          100,
          Row::atMost}
          .print();
    }
  }
}

void compareHierarchies(const Options& options) {
  printHeading("Building what rays traverse: us per triangle; bytes per triangle", "ours", "us; bytes");
  for (std::size_t triangles = options.smallest; triangles <= options.largest; triangles *= 10) {
    const Sphere sphere(triangles, {0, 0, 0});
    const auto coordinates = sphere.mesh->vertexCoordinates();
    const auto indices = sphere.mesh->indices();
    const auto count = static_cast<double>(sphere.placed.count());
    const auto build = [&](std::size_t) {
      std::unique_ptr<util::TriangleBvh> hierarchy;  // released outside the time
      return secondsOf([&] { hierarchy = std::make_unique<util::TriangleBvh>(coordinates, indices); });
    };
    for (const RayPeer& peer : rayPeers()) {
      if (peer.isSlow) continue;
      const Turns turns = inTurns(options.pairs, build, [&](std::size_t) {
        std::unique_ptr<RayCaster> theirs;
        return secondsOf([&] { theirs = peer.build(sphere.placed); });
      });
      Row{caseName("build", triangles), 1e6 * turns.ours / count,         peer.name,  1e6 * turns.theirs / count,
          1e6 * turns.ours / count,     triangles <= 100'000 ? 0.5 : 1.0, Row::atMost}
          .print();
    }
    const double bytes = static_cast<double>(sphere.mesh->hierarchy()->bytes()) / count;
    Row{caseName("bytes", triangles), bytes, "", -1, bytes, 150, Row::atMost}.print();
  }
}
