#pragma once

#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/scene/SceneState.h>
#include <tests/support/Meshes.h>
#include <tests/support/PolyMeshes.h>

/// Scenes of random meshes and transforms, as a plain list of placed triangles as well.
namespace support {

struct PlacedTriangle {
  facetbox::Id id;
  std::uint32_t triangle, face;
  util::Vec3 corner[3];
};

inline util::Vec3 placed(const facetbox::Transform& transform, const util::Vec3& p) {
  const auto along = [&](const double* row) { return row[0] * p.x + row[1] * p.y + row[2] * p.z + row[3]; };
  return {along(transform.rows[0]), along(transform.rows[1]), along(transform.rows[2])};
}

inline facetbox::Transform scaledBy(facetbox::Transform transform, double factor) {
  for (auto& row : transform.rows) row[3] *= factor;
  return transform;
}

inline double determinantOf(const facetbox::Transform& transform) {
  const auto& rows = transform.rows;
  return dot(util::toVec3(rows[0]), cross(util::toVec3(rows[1]), util::toVec3(rows[2])));
}

/// Turns, mirrors, shears, flattens, stretches.
inline facetbox::Transform randomTransform(std::mt19937& random, int reach) {
  facetbox::Transform transform;
  const int kind = pick(random, 0, 5);
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c)
      if (kind == 1 || kind == 2) transform.rows[r][c] = pick(random, -100, 100) / 50.0;
    if (kind == 3) transform.rows[r][r] = pick(random, 0, 1) == 0 ? -1 : 2;
    if (kind == 4) transform.rows[r][r] = pick(random, 0, 2) / 2.0;
    if (kind == 5) transform.rows[r][r] = std::ldexp(1.0, pick(random, -12, 6));
    transform.rows[r][3] = pick(random, -8 * reach, 8 * reach) / 8.0;
  }
  if (kind == 2)  // all but flat
    for (int c = 0; c < 3; ++c)
      transform.rows[2][c] = transform.rows[0][c] + transform.rows[1][c] + 1e-7 * transform.rows[2][c];
  return transform;
}

/// Some cubes, a flat grid whose triangles share corners and edges, or a single triangle.
inline facetbox::PolyMesh randomSceneMesh(std::mt19937& random) {
  const int kind = pick(random, 0, 4);
  if (kind == 0) return polyMeshOf({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}});
  if (kind > 1) return randomScene(random);
  facetbox::PolyMesh grid;
  constexpr std::uint32_t kSide = 9;
  for (std::uint32_t y = 0; y <= kSide; ++y)
    for (std::uint32_t x = 0; x <= kSide; ++x) {
      grid.points.insert(grid.points.end(), {x / 2.0 - 2, y / 2.0 - 2, pick(random, 0, 3) / 4.0});
      const std::uint32_t v = y * (kSide + 1) + x;
      if (x == kSide || y == kSide) continue;
      grid.counts.push_back(4);
      grid.indices.insert(grid.indices.end(), {v, v + 1, v + kSide + 2, v + kSide + 1});
    }
  return grid;
}

/// A scene that is built up as it comes.
struct StateOfScene {
  util::SceneState state;
  std::vector<PlacedTriangle> triangles;

  void add(facetbox::Id id, std::shared_ptr<const util::SceneMesh> mesh, const facetbox::Transform& transform) {
    std::vector<util::Vec3> corners;
    std::vector<double> points;
    for (std::size_t i = 0; i < mesh->coordinates().size(); i += 3) {
      corners.push_back(placed(transform, (1 / mesh->scale()) * util::toVec3(&mesh->coordinates()[i])));
      points.insert(points.end(), {corners.back().x, corners.back().y, corners.back().z});
    }
    for (std::uint32_t t = 0; t < mesh->triangleCount(); ++t) {
      const std::uint32_t* v = &mesh->triangles()[3 * std::size_t{t}];
      triangles.push_back({id, t, mesh->faceOf(t), {corners[v[0]], corners[v[1]], corners[v[2]]}});
    }
    util::Placement placement(transform, mesh->scale());
    if (!placement.isInvertible()) {
      mesh = std::make_shared<util::SceneMesh>(*mesh, std::move(points));
      placement = util::Placement({}, mesh->scale());
    }
    state.add({id, std::move(mesh), placement});
  }
};

/// @param unit    a power of two that everything is multiplied by
/// @param origin  that everything is moved to, in units
/// @param jitter  by which objects are moved off the grid; then none is flat
inline StateOfScene randomState(std::mt19937& random, int objects, int reach, double unit, double origin,
                                double jitter = 0) {
  StateOfScene scene;
  std::vector<std::shared_ptr<const util::SceneMesh>> meshes;
  for (int i = 0; i < objects; ++i) {
    if (meshes.empty() || pick(random, 0, 2) == 0)
      meshes.push_back(std::make_shared<util::SceneMesh>(
          std::make_shared<facetbox::PolyMesh>(scaledBy(randomSceneMesh(random), unit))));
    facetbox::Transform transform;
    do transform = randomTransform(random, reach);
    while (jitter > 0 && std::fabs(determinantOf(transform)) < 0.05);
    transform.rows[0][3] += origin;
    for (auto& row : transform.rows) row[3] += jitter * pick(random, -1000, 1000) / 1000;
    // Ids do not follow each other.
    scene.add(static_cast<facetbox::Id>((i * 7919 + 13) % 10007),
              meshes[static_cast<std::size_t>(pick(random, 0, static_cast<int>(meshes.size()) - 1))],
              scaledBy(transform, unit));
  }
  scene.state.update();
  return scene;
}

}  // namespace support
