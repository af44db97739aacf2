#include "RayWorkloads.h"

#include <algorithm>
#include <cmath>
#include <random>

#include <facetbox/math/Matrix4.h>
#include <facetbox/math/Vec3.h>

using util::Vec3;

namespace {

constexpr double kRadius = 100;

Ray rayBetween(const Vec3& from, const Vec3& through) {
  const Vec3 way = through - from, direction = way / util::length(way);
  Ray ray{{static_cast<float>(from.x), static_cast<float>(from.y), static_cast<float>(from.z)},
          {static_cast<float>(direction.x), static_cast<float>(direction.y), static_cast<float>(direction.z)},
          {},
          {}};
  std::ranges::copy(ray.origin, ray.exactOrigin);
  std::ranges::copy(ray.direction, ray.exactDirection);
  return ray;
}

/// @param halfWidth  of the image, one unit away
std::vector<Ray> image(std::size_t count, double halfWidth, const Vec3& center) {
  const Vec3 toEye = Vec3{0.8, 0.5, 0.33166247903554} /* of unit length */, forward = -toEye;
  const Vec3 across = util::cross(forward, Vec3{0, 0, 1}), right = across / util::length(across),
             up = util::cross(right, forward), eye = center + 3 * kRadius * toEye;
  const auto side = static_cast<std::size_t>(std::lround(std::sqrt(static_cast<double>(count))));
  const auto at = [&](std::size_t i) {
    return halfWidth * (2 * (static_cast<double>(i) + 0.5) / static_cast<double>(side) - 1);
  };
  std::vector<Ray> rays;
  rays.reserve(side * side);
  for (std::size_t y = 0; y < side; ++y)
    for (std::size_t x = 0; x < side; ++x) rays.push_back(rayBetween(eye, eye + forward + at(x) * right + at(y) * up));
  return rays;
}

Vec3 onSphere(double radius, std::mt19937_64& random) {
  for (;;) {
    const Vec3 p{2 * uniform(random) - 1, 2 * uniform(random) - 1, 2 * uniform(random) - 1};
    const double length = util::length(p);
    if (length > 0.01 && length <= 1) return (radius / length) * p;
  }
}

}  // namespace

const char* nameOf(RayKind kind) {
  return kind == RayKind::camera ? "camera" : kind == RayKind::screenful ? "screenful" : "incoherent";
}

std::vector<Ray> raysOf(RayKind kind, std::size_t count, const std::array<double, 3>& center) {
  const Vec3 middle{center[0], center[1], center[2]};
  // The silhouette lies at a tangent of 0.354.
  if (kind == RayKind::camera) return image(count, 0.392, middle);
  if (kind == RayKind::screenful) return image(count, 0.235, middle);
  std::mt19937_64 random(7);
  std::vector<Ray> rays;
  rays.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const Vec3 from = middle + onSphere(1.5 * kRadius, random);
    rays.push_back(rayBetween(from, middle + onSphere(0.9 * kRadius, random)));
  }
  return rays;
}

std::unique_ptr<util::Mesh> meshOf(const Workload& record) {
  const std::vector<std::int32_t> counts(record.counts.begin(), record.counts.end());
  return std::make_unique<util::Mesh>(nullptr, static_cast<int>(record.coords.size()), record.coords.data(),
                                      record.indices.data(), static_cast<int>(counts.size()), counts.data(), nullptr, 0,
                                      nullptr);
}

std::unique_ptr<util::TriangleMesh> triangleMeshOf(const util::Mesh& mesh, const Workload& record) {
  return std::unique_ptr<util::TriangleMesh>(
      util::Triangulator().triangulate(mesh, std::vector<double>(record.coords.begin(), record.coords.end()), 0));
}

std::array<double, 16> translationBy(const std::array<double, 3>& offset) {
  return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, offset[0], offset[1], offset[2], 1};
}

Sphere::Sphere(std::size_t triangleCount, const std::array<double, 3>& centerAt)
    : center(centerAt),
      matrix(translationBy(centerAt)),
      picker(Picker::createPicker()),
      handle(picker->createHandle()) {
  const Workload record = sphereOfTriangles(triangleCount);
  const std::unique_ptr<util::Mesh> polygons = meshOf(record);
  mesh = triangleMeshOf(*polygons, record);
  mesh->buildHierarchy();
  placement = util::RayTransform(*mesh, matrix.data());
  picker->addEntry(handle, 0, {polygons.get()}, matrix.data());
  picker->applyPendingCommands();

  const auto coordinates = mesh->vertexCoordinates();
  for (std::size_t v = 0; v < coordinates.size(); v += 3) {
    const Vec3 p = util::transformPoint(matrix.data(), {coordinates[v], coordinates[v + 1], coordinates[v + 2]});
    placed.coordinates.insert(placed.coordinates.end(), {p.x, p.y, p.z});
  }
  placed.indices.assign(mesh->indices().begin(), mesh->indices().end());
}
