#include <facetbox/scene/RayCasting.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string>

#include <tbb/blocked_range.h>
#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <facetbox/scene/RayKernel.h>

namespace util {
namespace {

using facetbox::Hits;
using facetbox::kNone;
using facetbox::RayOptions;

constexpr std::size_t kBundle = RayBundle::kSize;
constexpr double kInfinity = std::numeric_limits<double>::infinity(), kLargest = std::numeric_limits<double>::max();

/// Rays of one task; of one round between two questions whether to go on, per thread; and of a call that is not worth a
/// second thread.
constexpr std::size_t kTask = 1024, kRound = 16 * kTask, kFew = 2 * kTask;

struct Rays {
  std::span<const double> origins, directions, limits;

  std::size_t size() const { return origins.size() / 3; }
};

Rays checkedRays(std::span<const double> origins, std::span<const double> directions, std::span<const double> limits) {
  if (origins.size() % 3 != 0)
    throw std::invalid_argument("Rays: " + std::to_string(origins.size()) +
                                " numbers of origins, which is no multiple of three");
  if (origins.size() != directions.size())
    throw std::invalid_argument("Rays: " + std::to_string(origins.size()) + " numbers of origins, but " +
                                std::to_string(directions.size()) + " of directions");
  if (!limits.empty() && limits.size() != origins.size() / 3)
    throw std::invalid_argument("Rays: " + std::to_string(limits.size()) + " limits for " +
                                std::to_string(origins.size() / 3) + " rays");
  return {origins, directions, limits};
}

/// A power of two. Its exponent lies from -1022 to 1023.
double powerOfTwo(int exponent) { return std::bit_cast<double>(static_cast<std::uint64_t>(exponent + 1023) << 52); }

/// Puts a ray into a bundle, its direction scaled by a power of two to a largest coordinate from 1/2 to 1.
/// @return the exponent of that power, by which t has to be scaled back
int load(const double* origin, const double* direction, double limit, int i, RayBundle& bundle) {
  const double size = largestMagnitude(toVec3(direction));
  double zero = 0;  // or NaN, if a number is not finite
  for (int a = 0; a < 3; ++a) zero += 0 * origin[a] + 0 * direction[a];
  const bool isRay = zero == 0 && size > 0 && limit >= 0;
  bundle.id[i] = bundle.slot[i] = bundle.triangle[i] = kNone;
  bundle.rays |= static_cast<unsigned>(isRay) << i;
  for (int a = 0; a < 3; ++a) bundle.origin[a][i] = isRay ? origin[a] : 0;
  const double bound = std::min(limit, kLargest);
  constexpr double kSmall = 0x1p-1000, kLarge = 0x1p1000;
  if (isRay && size > kSmall && size < kLarge) {
    const int exponent = static_cast<int>(std::bit_cast<std::uint64_t>(size) >> 52) - 1022;
    const double scale = powerOfTwo(-exponent);
    for (int a = 0; a < 3; ++a) bundle.direction[a][i] = direction[a] * scale;
    bundle.best[i] = std::min(bound * powerOfTwo(exponent), kLargest);
    return exponent;
  }
  int exponent = 0;
  std::frexp(size, &exponent);
  for (int a = 0; a < 3; ++a) bundle.direction[a][i] = isRay ? std::ldexp(direction[a], -exponent) : 1;
  bundle.best[i] = isRay ? std::min(std::ldexp(bound, exponent), kLargest) : -1;
  return exponent;
}

double scaledBack(double t, int exponent) {
  constexpr int kModest = 500;
  if (std::abs(exponent) < kModest) return std::min(t * powerOfTwo(-exponent), kLargest);
  return std::min(std::ldexp(t, -exponent), kLargest);
}

struct Exponents {
  int of[kBundle];
};

/// Loads the rays from `first` on; where there are fewer than a bundle has room for, the others repeat the last.
Exponents load(const Rays& rays, std::size_t first, std::size_t count, RayBundle& bundle) {
  Exponents exponents;
  bundle.rays = 0;
  for (std::size_t i = 0; i < kBundle; ++i) {
    const std::size_t ray = first + std::min(i, count - 1);
    exponents.of[i] = load(rays.origins.data() + 3 * ray, rays.directions.data() + 3 * ray,
                           rays.limits.empty() ? kInfinity : rays.limits[ray], static_cast<int>(i), bundle);
  }
  bundle.rays &= (2U << (count - 1)) - 1;
  return exponents;
}

bool isModest(double size) {
  constexpr double kSmall = 1e-60, kLarge = 1e60;
  return size > kSmall && size < kLarge;
}

/// The same as the kernels compute, but that products neither overflow nor vanish.
Vec3 unitNormal(const Placement& placement, const Vec3& edge1, const Vec3& edge2) {
  Vec3 e1 = placement.directionToWorld(edge1), e2 = placement.directionToWorld(edge2);
  if (!isModest(largestMagnitude(e1)) || !isModest(largestMagnitude(e2))) {
    for (Vec3* e : {&e1, &e2}) {
      int exponent = 0;
      std::frexp(largestMagnitude(*e), &exponent);
      *e = {std::ldexp(e->x, -exponent), std::ldexp(e->y, -exponent), std::ldexp(e->z, -exponent)};
    }
  }
  const Vec3 normal = cross(e1, e2);
  const double size = length(normal);
  return size > 0 ? normal / size : Vec3{0, 0, 0};
}

facetbox::Hit hitOf(const SceneState& state, const RayMeeting& meeting, int exponent) {
  const SceneObject& object = state[meeting.slot];
  const Vec3 normal = unitNormal(object.placement, meeting.edge1, meeting.edge2);
  return {scaledBack(meeting.t, exponent),
          meeting.id,
          object.mesh->faceOf(meeting.triangle),
          meeting.triangle,
          {meeting.second / meeting.all, meeting.third / meeting.all},
          {normal.x, normal.y, normal.z}};
}

/// Stores what ray i of a bundle has hit.
inline void store(const SceneState& state, const RayBundle& bundle, std::size_t i, int exponent, std::size_t ray,
                  Hits& hits) {
  const SceneObject& object = state[bundle.slot[i]];
  hits.t[ray] = scaledBack(bundle.best[i], exponent);
  hits.id[ray] = bundle.id[i];
  hits.face[ray] = object.mesh->faceOf(bundle.triangle[i]);
  hits.triangle[ray] = bundle.triangle[i];
  hits.uv[2 * ray] = bundle.u[i];
  hits.uv[2 * ray + 1] = bundle.v[i];
  Vec3 normal{bundle.normal[0][i], bundle.normal[1][i], bundle.normal[2][i]};
  if (!isModest(bundle.edgeSize1[i]) || !isModest(bundle.edgeSize2[i]) || std::isnan(normal.x))
    normal = unitNormal(object.placement, {bundle.edge1[0][i], bundle.edge1[1][i], bundle.edge1[2][i]},
                        {bundle.edge2[0][i], bundle.edge2[1][i], bundle.edge2[2][i]});
  hits.normal[3 * ray] = normal.x;
  hits.normal[3 * ray + 1] = normal.y;
  hits.normal[3 * ray + 2] = normal.z;
}

CastRays& kernelFor([[maybe_unused]] Instructions instructions) {
#if defined(FACETBOX_HAS_AVX2)
  if (mayUseAvx2(instructions)) return castRaysAvx2;
#endif
  return castRaysBase;
}

/// Calls take(bundle, first ray, count, exponents) for each bundle, after it has been cast; on several threads.
template <class Take>
void castAll(const SceneState& state, RayMode mode, const Rays& rays, const RayOptions& options,
             Instructions instructions, Take take) {
  const std::size_t count = rays.size();
  const auto stopIfCancelled = [&] {
    if (options.isCancelled && options.isCancelled()) throw facetbox::Cancelled();
  };
  stopIfCancelled();
  const RayScene scene = state.rayScene();
  if (count == 0 || scene.root == ObjectTree::kNothing) return;
  CastRays& kernel = kernelFor(instructions);
  const auto cast = [&](std::size_t begin, std::size_t end) {
    RayBundle bundle{};  // what no hit sets shall be numbers
    for (std::size_t first = begin; first < end; first += kBundle) {
      const std::size_t size = std::min(kBundle, end - first);
      const Exponents exponents = load(rays, first, size, bundle);
      if (bundle.rays != 0) kernel(scene, mode, bundle);
      take(bundle, first, size, exponents);
    }
  };
  const bool isAlone = options.threads == 1 || count <= kFew;
  // More than there are would only wait; so any number may be asked for.
  const int most = tbb::info::default_concurrency();
  const int threads =
      options.threads == 0 || options.threads > static_cast<unsigned>(most) ? most : static_cast<int>(options.threads);
  const std::size_t round =
      options.isCancelled ? (isAlone ? kRound : kRound * static_cast<std::size_t>(threads)) : count;
  const auto run = [&] {
    for (std::size_t begin = 0; begin < count; begin += round) {
      if (begin != 0) stopIfCancelled();
      const std::size_t end = std::min(count, begin + round);
      if (isAlone) {
        cast(begin, end);
        continue;
      }
      tbb::parallel_for(tbb::blocked_range<std::size_t>(0, (end - begin + kTask - 1) / kTask), [&](const auto& tasks) {
        cast(begin + tasks.begin() * kTask, std::min(end, begin + tasks.end() * kTask));
      });
    }
  };
  // Isolated: while it waits, this thread must not take up a task of its caller's that asks the scene as well.
  if (isAlone)
    run();
  else if (threads == most)
    tbb::this_task_arena::isolate(run);
  else
    tbb::task_arena(threads).execute([&] { tbb::this_task_arena::isolate(run); });
}

}  // namespace

Hits castRays(const SceneState& state, std::span<const double> origins, std::span<const double> directions,
              const RayOptions& options, Instructions instructions) {
  const Rays rays = checkedRays(origins, directions, options.limits);
  const std::size_t count = rays.size();
  Hits hits{std::vector<double>(count, kInfinity),    std::vector<facetbox::Id>(count, kNone),
            std::vector<std::uint32_t>(count, kNone), std::vector<std::uint32_t>(count, kNone),
            std::vector<double>(2 * count),           std::vector<double>(3 * count)};
  castAll(state, RayMode::nearest, rays, options, instructions,
          [&](const RayBundle& bundle, std::size_t first, std::size_t size, const Exponents& exponents) {
            for (std::size_t i = 0; i < size; ++i)
              if (bundle.id[i] != kNone) store(state, bundle, i, exponents.of[i], first + i, hits);
          });
  return hits;
}

std::vector<std::uint8_t> anyHit(const SceneState& state, std::span<const double> origins,
                                 std::span<const double> directions, const RayOptions& options,
                                 Instructions instructions) {
  const Rays rays = checkedRays(origins, directions, options.limits);
  std::vector<std::uint8_t> isHit(rays.size());
  castAll(state, RayMode::any, rays, options, instructions,
          [&](const RayBundle& bundle, std::size_t first, std::size_t size, const Exponents&) {
            for (std::size_t i = 0; i < size; ++i) isHit[first + i] = bundle.id[i] != kNone;
          });
  return isHit;
}

std::vector<facetbox::Hit> allHits(const SceneState& state, const double origin[3], const double direction[3],
                                   double limit) {
  std::vector<facetbox::Hit> hits;
  RayBundle bundle;
  bundle.rays = 0;
  const int exponent = load(origin, direction, limit, 0, bundle);
  const RayScene scene = state.rayScene();
  if (bundle.rays == 0 || scene.root == ObjectTree::kNothing) return hits;
  for (const RayMeeting& meeting : collectHits(scene, 0, bundle)) hits.push_back(hitOf(state, meeting, exponent));
  return hits;
}

}  // namespace util
