#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <vector>

#include <facetbox/Scene.h>
#include <facetbox/math/Vec3.h>

#include "../pick/RayWorkloads.h"

/// Rays as our calls take them, and as others do. Images are kImageSide squared, row by row.
struct SceneRays {
  static constexpr std::size_t kImageSide = 512;

  explicit SceneRays(RayKind kind);

  std::size_t count() const { return rays.size(); }

  RayKind kind;
  std::vector<Ray> rays;
  std::vector<double> origins, directions;
};

/// The same rays in tiles of 4 x 4 pixels.
std::vector<Ray> inTiles(const std::vector<Ray>& image);

/// A bumpy sphere of radius 100 around the origin.
std::shared_ptr<const facetbox::PolyMesh> sphereMesh(std::size_t triangleCount);
/// As scenes cut it.
Triangles trianglesOf(const facetbox::PolyMesh& mesh);

struct Instance {
  std::size_t mesh;
  facetbox::Transform transform;
};

/// Ten meshes of 300 to 1000 triangles, many times: turned, of different sizes, anywhere within 100 units.
struct InstancedScene {
  explicit InstancedScene(std::size_t count);

  std::vector<std::shared_ptr<const facetbox::PolyMesh>> meshes;
  std::vector<Instance> instances;
};

/// Somewhere within 100 units, turned in any way.
facetbox::Transform randomPlace(std::mt19937_64& random);
