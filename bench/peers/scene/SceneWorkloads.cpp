#include "SceneWorkloads.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <facetbox/triangulate.h>

#include "../../Workloads.h"

using util::Vec3;

SceneRays::SceneRays(RayKind kindOfRays)
    : kind(kindOfRays), rays(raysOf(kindOfRays, kImageSide * kImageSide, {0, 0, 0})) {
  for (const Ray& ray : rays) {
    origins.insert(origins.end(), ray.exactOrigin, ray.exactOrigin + 3);
    directions.insert(directions.end(), ray.exactDirection, ray.exactDirection + 3);
  }
}

std::vector<Ray> inTiles(const std::vector<Ray>& image) {
  constexpr std::size_t kSide = SceneRays::kImageSide, kTile = 4;
  std::vector<Ray> tiles;
  tiles.reserve(image.size());
  for (std::size_t y = 0; y < kSide; y += kTile)
    for (std::size_t x = 0; x < kSide; x += kTile)
      for (std::size_t i = 0; i < kTile * kTile; ++i) tiles.push_back(image[(y + i / kTile) * kSide + x + i % kTile]);
  return tiles;
}

std::shared_ptr<const facetbox::PolyMesh> sphereMesh(std::size_t triangleCount) {
  Workload record = sphereOfTriangles(triangleCount);
  auto mesh = std::make_shared<facetbox::PolyMesh>();
  mesh->points.assign(record.coords.begin(), record.coords.end());
  mesh->counts = std::move(record.counts);
  mesh->indices = std::move(record.indices);
  return mesh;
}

Triangles trianglesOf(const facetbox::PolyMesh& mesh) { return {mesh.points, facetbox::triangulate(mesh).triangles}; }

facetbox::Transform randomPlace(std::mt19937_64& random) {
  const auto between = [&](double low, double high) { return low + (high - low) * uniform(random); };
  Vec3 x{}, y{}, at{};
  do at = {between(-100, 100), between(-100, 100), between(-100, 100)};
  while (length(at) > 100);
  do x = {between(-1, 1), between(-1, 1), between(-1, 1)};
  while (length(x) < 0.1);
  x = x / length(x);
  do y = cross(x, {between(-1, 1), between(-1, 1), between(-1, 1)});
  while (length(y) < 0.1);
  y = y / length(y);
  const Vec3 z = cross(x, y);
  const double size = between(0.003, 0.009);  // of spheres of radius 100
  return {{{size * x.x, size * y.x, size * z.x, at.x},
           {size * x.y, size * y.y, size * z.y, at.y},
           {size * x.z, size * y.z, size * z.z, at.z}}};
}

InstancedScene::InstancedScene(std::size_t count) {
  constexpr std::size_t kMeshes = 10, kFewest = 300, kMore = 75;
  for (std::size_t i = 0; i < kMeshes; ++i) meshes.push_back(sphereMesh(kFewest + i * kMore));
  std::mt19937_64 random(3);
  for (std::size_t i = 0; i < count; ++i) instances.push_back({i % kMeshes, randomPlace(random)});
}
