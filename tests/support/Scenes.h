#pragma once

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <span>
#include <vector>

#include <facetbox/picker/Picker.h>
#include <facetbox/viewVolume.h>
#include <tests/support/Meshes.h>
#include <tests/support/PlainPicker.h>

/// Small scenes on a grid, and views of them.
namespace support {

inline Matrix shifted(double x, double y, double z) { return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1}; }

/// The cube of half-edge `size` around the origin, seen along -z.
inline Matrix ortho(double size) { return {1 / size, 0, 0, 0, 0, 1 / size, 0, 0, 0, 0, -1 / size, 0, 0, 0, 0, 1}; }

struct View {
  std::array<float, 16> mMatrix{};
  std::array<float, 24> mCorners{};
};

inline View viewOf(const Matrix& viewProjection) {
  View view;
  std::transform(viewProjection.begin(), viewProjection.end(), view.mMatrix.begin(),
                 [](double x) { return static_cast<float>(x); });
  EXPECT_TRUE(facetbox::viewVolumeCorners(view.mMatrix.data(), view.mCorners.data()));
  return view;
}

/// From around the scene, with or without perspective, all of it or a window; now and then on the grid.
inline Matrix randomViewProjection(std::mt19937& random, int reach) {
  const double turn = pick(random, 0, 3) == 0 ? 0 : pick(random, 0, 628) / 100.0,
               tilt =
                   pick(random, 0, 3) == 0 ? std::numbers::pi / 2 * pick(random, 0, 3) : pick(random, 0, 628) / 100.0;
  const Matrix around{std::cos(turn),  0, std::sin(turn), 0, 0, 1, 0, 0,
                      -std::sin(turn), 0, std::cos(turn), 0, 0, 0, 0, 1};
  const Matrix over{1, 0, 0, 0, 0, std::cos(tilt), std::sin(tilt), 0, 0, -std::sin(tilt), std::cos(tilt),
                    0, 0, 0, 0, 1};
  const double size = pick(random, 1, 2 * reach);
  const double nearby = 1.0, far = 4.0 * reach;
  const Matrix perspective{
      1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -(far + nearby) / (far - nearby), -1, 0, 0, -2 * far * nearby / (far - nearby), 0};
  const bool isFlat = pick(random, 0, 1) == 0;
  const Matrix projection = isFlat ? ortho(size) : perspective;
  const double zoom = isFlat ? 1 : 1.0 / pick(random, 1, 8) * 8;
  const Matrix window{zoom, 0, 0, 0, 0, zoom, 0, 0, 0, 0, 1, 0, pick(random, -4, 4) / 8.0 * zoom, 0, 0, 1};
  return product(window, product(projection, product(product(over, around),
                                                     shifted(pick(random, -reach, reach), pick(random, -reach, reach),
                                                             pick(random, -reach, reach)))));
}

/// Scales a row of a matrix into clip space so that the outermost of some points, or the innermost, lies on a plane of
/// the cube, give or take some ulps.
inline void tuneToPlane(std::mt19937& random, Matrix& c, std::span<const double> points) {
  const std::size_t axis = random() % 3;
  const bool outermost = oneIn(random, 2);
  const double side = oneIn(random, 2) ? 1 : -1;
  double extreme = outermost ? -INFINITY : INFINITY;
  for (std::size_t v = 0; v + 2 < points.size(); v += 3) {
    const auto row = [&](std::size_t r) {
      return c[r] * points[v] + c[4 + r] * points[v + 1] + c[8 + r] * points[v + 2] + c[12 + r];
    };
    const double at = side * row(axis) / std::fabs(row(3));
    extreme = outermost ? std::max(extreme, at) : std::min(extreme, at);
  }
  if (!(1e-6 < extreme && extreme < 1e6)) return;
  for (const std::size_t column : {0, 4, 8, 12}) c[column + axis] *= (1 + pick(random, -3, 3) * 0x1p-52) / extreme;
}

inline View randomView(std::mt19937& random, int reach) { return viewOf(randomViewProjection(random, reach)); }

/// On the grid, scaled, turned, mirrored, flat, and now and then with a perspective of its own.
inline Matrix randomPlace(std::mt19937& random, int reach) {
  Matrix m = shifted(pick(random, -reach, reach), pick(random, -reach, reach), pick(random, -reach, reach));
  switch (pick(random, 0, 5)) {
    case 0:
      for (const std::size_t i : {0, 5, 10}) m[i] = pick(random, -2, 2);
      break;
    case 1:
      for (const std::size_t i : {0, 1, 2, 4, 5, 6, 8, 9, 10}) m[i] = pick(random, -3, 3) / 3.0;
      break;
    case 2:
      if (pick(random, 0, 4) == 0) m[pick(random, 0, 1) == 0 ? 3 : 11] = pick(random, -2, 2) / 2.0;
      break;
    default:
      break;
  }
  return m;
}

/// A few meshes that scenes share.
class SceneMeshes {
 public:
  SceneMeshes() {
    const Surface cube = surfaceOf({{0, 0, 0}}, 2.0);
    std::vector<Vec3> centered;
    for (const Vec3& p : cube.mPoints) centered.push_back(p - Vec3{1, 1, 1});
    mMeshes.push_back(meshOf(centered, cube.mFaces));
    const Surface pile = surfaceOf({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 2}}, 0.5);
    mMeshes.push_back(meshOf(pile.mPoints, pile.mFaces));
    // Flat; its last vertex is part of no face.
    mMeshes.push_back(meshOf({{0, 0, 0}, {3, 0, 0}, {3, 2, 0}, {1, 1, 0}, {0, 2, 0}, {9, 9, 9}}, {{0, 1, 2, 3, 4}}));
    mMeshes.push_back(meshOf({{0, 0, 0}, {1, 1, 1}}, {}));
  }

  const util::Mesh& cube() const { return mMeshes[0]; }
  /// None, one or a few of them.
  std::vector<const util::Mesh*> some(std::mt19937& random) const {
    std::vector<const util::Mesh*> chosen;
    for (int count = pick(random, 0, 9) == 0 ? pick(random, 0, 3) : 1; count > 0; --count)
      chosen.push_back(&mMeshes[random() % mMeshes.size()]);
    return chosen;
  }

 private:
  std::vector<util::Mesh> mMeshes;
};

/// A star of so many points, wound so often, that its edges cross in more places than a face may have.
inline util::Mesh tangledStar() {
  constexpr std::uint32_t kCount = 61;
  std::vector<Vec3> points;
  Faces faces(1);
  for (std::uint32_t i = 0; i < kCount; ++i) {
    const double angle = 2 * std::numbers::pi * i / kCount;
    points.push_back({std::cos(angle), std::sin(angle), 0});
    faces[0].push_back(30 * i % kCount);
  }
  return meshOf(points, faces);
}

inline std::vector<std::uint32_t> picked(Picker& picker, std::size_t handle, const View& view, bool wholeInside) {
  std::vector<std::uint32_t> ids(4);
  std::int64_t count = 0;
  while ((count = picker.pickFrustum(handle, view.mCorners.data(), view.mMatrix.data(), wholeInside, ids.data(),
                                     ids.size())) < 0)
    ids.resize(static_cast<std::size_t>(-count));
  ids.resize(static_cast<std::size_t>(count));
  return ids;
}

inline RayAnswer rayPicked(Picker& picker, std::size_t handle, std::int32_t id, const std::array<float, 3>& origin,
                           const std::array<float, 3>& direction) {
  RayAnswer answer;
  answer.mHit = picker.pickRay(handle, id, origin.data(), direction.data(), &answer.mDistance, answer.mNormal.data());
  return answer;
}

}  // namespace support
