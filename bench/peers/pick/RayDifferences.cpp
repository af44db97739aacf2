#include <cfloat>
#include <cmath>
#include <cstring>

#include "RayPeers.h"
#include "Turns.h"

namespace {

constexpr std::size_t kLargestForTheLoop = 10'000;

/// The result of a ray test.
struct Answer {
  bool hit = false;
  double t = 0;
  double normal[3] = {0, 0, 0};
};

template <class Test>
std::vector<Answer> answersOf(const std::vector<Ray>& rays, Test test) {
  std::vector<Answer> answers(rays.size());
  for (std::size_t i = 0; i < rays.size(); ++i) answers[i].hit = test(rays[i], &answers[i].t, answers[i].normal);
  return answers;
}

bool isSame(const Answer& a, const Answer& b) {
  return a.hit == b.hit && std::memcmp(&a.t, &b.t, sizeof(a.t)) == 0 &&
         std::memcmp(a.normal, b.normal, sizeof(a.normal)) == 0;
}

std::size_t differences(const std::vector<Answer>& reference, const std::vector<Answer>& answers) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < reference.size(); ++i) count += !isSame(reference[i], answers[i]);
  return count;
}

/// The results of pickRay, which rounds to floats.
std::size_t pickerDifferences(Sphere& sphere, const std::vector<Ray>& rays, const std::vector<Answer>& reference) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < rays.size(); ++i) {
    const Answer& expected = reference[i];
    float distance, normal[3];
    const bool hit = sphere.pick(rays[i], &distance, normal);
    bool same = hit == expected.hit && distance == (hit ? static_cast<float>(expected.t) : FLT_MAX);
    for (int axis = 0; axis < 3; ++axis) same = same && normal[axis] == static_cast<float>(expected.normal[axis]);
    count += !same;
  }
  return count;
}

void printCount(const char* where, RayKind kind, std::size_t triangles, const std::string& who, std::size_t rays,
                const char* reference, std::size_t misses, std::size_t phantoms, std::size_t distances, bool isOurs) {
  std::printf("%-8s %-10s %8zu  %-34s %8zu %-10s %8zu %8zu %8zu", where, nameOf(kind), triangles, who.c_str(), rays,
              reference, misses, phantoms, distances);
  std::printf(isOurs ? "  = 0 %s\n" : "\n", distances == 0 ? "met" : "MISSED");
  std::fflush(stdout);
}

void countIn(const char* where, const std::array<double, 3>& center, std::size_t triangles, const Options& options) {
  Sphere sphere(triangles, center);
  const bool canLoop = triangles <= kLargestForTheLoop;
  const char* reference = canLoop ? "plain loop" : "ours";
  for (const RayKind kind : kRayKinds) {
    const std::vector<Ray> rays = raysOf(kind, options.rays, center);
    const std::vector<Answer> best = answersOf(rays, [&](const Ray& ray, double* t, double* normal) {
      return sphere.intersect(ray, util::Instructions::best, t, normal);
    });
    const std::vector<Answer> expected =
        canLoop ? answersOf(rays, [&](const Ray& ray, double* t,
                                      double* normal) { return sphere.intersectPlain(ray, t, normal); })
                : best;
    const std::vector<Answer> base = answersOf(rays, [&](const Ray& ray, double* t, double* normal) {
      return sphere.intersect(ray, util::Instructions::base, t, normal);
    });
    const auto printOurs = [&](const char* who, std::size_t count) {
      printCount(where, kind, triangles, who, rays.size(), reference, 0, 0, count, true);
    };
    if (canLoop) printOurs("ours, any bit", differences(expected, best));
    printOurs("ours, base instructions, any bit", differences(expected, base));
    printOurs("pickRay, any bit of its floats", pickerDifferences(sphere, rays, expected));

    for (const RayPeer& peer : rayPeers()) {
      const std::size_t step = peer.isSlow ? 10 : 1;
      std::vector<Ray> some;
      for (std::size_t i = 0; i < rays.size(); i += step) some.push_back(rays[i]);
      std::vector<double> distances(some.size());
      peer.build(sphere.placed)->cast(some, distances);
      std::size_t misses = 0, phantoms = 0, others = 0;
      for (std::size_t i = 0; i < some.size(); ++i) {
        const Answer& right = expected[i * step];
        const bool hit = distances[i] != RayCaster::kMiss;
        misses += right.hit && !hit;
        phantoms += !right.hit && hit;
        others += right.hit && hit && !(std::fabs(distances[i] - right.t) <= 1e-4 * right.t);
      }
      printCount(where, kind, triangles, peer.name, some.size(), reference, misses, phantoms, others, false);
    }
  }
}

}  // namespace

void countRayDifferences(const Options& options) {
  std::printf(
      "\nAnswers that differ. Of others: hits missed, hits where there are none, distances off by more than 1e-4 of\n"
      "themselves. Up to %zu triangles against the plain loop in doubles; beyond, where it would take hours, against\n"
      "ours, which equalled it before.\n",
      kLargestForTheLoop);
  std::printf("%-8s %-10s %8s  %-34s %8s %-10s %8s %8s %8s\n", "object", "rays", "size", "who", "rays", "against",
              "missed", "phantoms", "differ");
  for (std::size_t triangles = options.smallest; triangles <= options.largest; triangles *= 10) {
    countIn("origin", {0, 0, 0}, triangles, options);
    countIn("1e6 off", {1e6, 1e6, 1e6}, triangles, options);
  }
}
