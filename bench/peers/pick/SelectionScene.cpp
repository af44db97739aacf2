#include "SelectionScene.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>

#include <facetbox/math/Matrix4.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/FrustumCulling.h>
#include <facetbox/viewVolume.h>

#include "RayWorkloads.h"

namespace {

using Matrix = std::array<double, 16>;

constexpr double kReach = 100;

Matrix turned(std::size_t axis, double angle) {
  Matrix m{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  const std::size_t a = (axis + 1) % 3, b = (axis + 2) % 3;
  m[5 * a] = m[5 * b] = std::cos(angle);
  m[4 * a + b] = std::sin(angle);
  m[4 * b + a] = -std::sin(angle);
  return m;
}

Matrix operator*(const Matrix& a, const Matrix& b) {
  Matrix product;
  util::multiply(a.data(), b.data(), product.data());
  return product;
}

Matrix randomPlace(double size, std::mt19937_64& random) {
  Matrix place = translationBy(
      {kReach * (2 * uniform(random) - 1), kReach * (2 * uniform(random) - 1), kReach * (2 * uniform(random) - 1)});
  for (std::size_t axis = 0; axis < 3; ++axis) place = place * turned(axis, 6.28 * uniform(random));
  for (std::size_t column = 0; column < 3; ++column) {
    const double scale = size * (0.3 + 0.7 * uniform(random));
    for (std::size_t row = 0; row < 3; ++row) place[4 * column + row] *= scale;
  }
  return place;
}

}  // namespace

SelectionScene::SelectionScene(std::size_t count) {
  std::mt19937_64 random(11);
  Workload cube;
  addCube(cube, 1, [](const std::array<double, 3>& point) { return point; });
  // A third of the way from one to the next.
  const double size = kReach / std::cbrt(static_cast<double>(count)) / 3;
  objects.resize(count);
  for (Object& object : objects) {
    object.matrix = randomPlace(size, random);
    object.polygons = meshOf(cube);
    object.mesh = triangleMeshOf(*object.polygons, cube);
    const auto vertices = object.mesh->vertexCoordinates();
    for (std::size_t v = 0; v < vertices.size(); v += 3)
      object.box.extend(util::transformPoint(object.matrix.data(), {vertices[v], vertices[v + 1], vertices[v + 2]}));
  }
}

std::vector<Window> windowsOf(double width, std::size_t count) {
  // From outside; of the scene, only corners lie beyond the edge of the screen.
  constexpr double kDistance = 400, kNear = 150, kFar = 700, kHalfAngleTangent = 0.33;
  const Matrix projection{1 / kHalfAngleTangent,
                          0,
                          0,
                          0,
                          0,
                          1 / kHalfAngleTangent,
                          0,
                          0,
                          0,
                          0,
                          (kFar + kNear) / (kNear - kFar),
                          -1,
                          0,
                          0,
                          2 * kFar * kNear / (kNear - kFar),
                          0};
  const Matrix view = translationBy({0, 0, -kDistance}) * turned(0, 0.4) * turned(1, 0.7);
  std::mt19937_64 random(13);
  std::vector<Window> windows(count);
  for (Window& window : windows) {
    const double x = (1 - width) * (2 * uniform(random) - 1), y = (1 - width) * (2 * uniform(random) - 1);
    const Matrix stretch{1 / width, 0, 0, 0, 0, 1 / width, 0, 0, 0, 0, 1, 0, -x / width, -y / width, 0, 1};
    const Matrix all = stretch * projection * view;
    std::ranges::transform(all, window.matrix, [](double value) { return static_cast<float>(value); });
    if (!facetbox::viewVolumeCorners(window.matrix, window.corners)) throw std::logic_error("a window has no corners");
  }
  return windows;
}
