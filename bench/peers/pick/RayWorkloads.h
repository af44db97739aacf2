#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <facetbox/picker/Picker.h>
#include <facetbox/triangles/RayTest.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>

#include "../../Workloads.h"

/// The same ray in the number types that each side takes: doubles with float values. Converted beforehand, because a
/// conversion right before a call costs our ray test some 12 ns.
struct Ray {
  float origin[3];
  float direction[3];  ///< of unit length, up to rounding
  double exactOrigin[3];
  double exactDirection[3];
};

enum class RayKind {
  camera,      ///< an image, row by row, around the object: about 64 % hit
  screenful,   ///< an image that the object fills
  incoherent,  ///< from all around to points within the object
};
constexpr RayKind kRayKinds[] = {RayKind::camera, RayKind::screenful, RayKind::incoherent};
const char* nameOf(RayKind kind);

/// About `count` rays at a sphere of radius 100 around `center`; images are square.
std::vector<Ray> raysOf(RayKind kind, std::size_t count, const std::array<double, 3>& center);

/// Placed triangles, for libraries that have no matrix.
struct Triangles {
  std::vector<double> coordinates;     ///< x, y, z per vertex
  std::vector<std::uint32_t> indices;  ///< three per triangle

  std::size_t count() const { return indices.size() / 3; }
};

/// A working mesh with a record's faces.
std::unique_ptr<util::Mesh> meshOf(const Workload& record);
std::unique_ptr<util::TriangleMesh> triangleMeshOf(const util::Mesh& mesh, const Workload& record);

std::array<double, 16> translationBy(const std::array<double, 3>& offset);

/// A bumpy sphere of radius 100 in one place, as the ray test, the picker and the peers have it.
struct Sphere {
  Sphere(std::size_t triangleCount, const std::array<double, 3>& centerAt);

  /// By the picker, which has the object under the id 0.
  bool pick(const Ray& ray, float* distance, float* normal) {
    return picker->pickRay(handle, 0, ray.origin, ray.direction, distance, normal);
  }
  /// By the ray test.
  bool intersect(const Ray& ray, util::Instructions instructions, double* t, double* normal) const {
    return util::intersectRay(*mesh, placement, matrix.data(), ray.exactOrigin, ray.exactDirection, t, normal,
                              instructions);
  }
  bool intersectPlain(const Ray& ray, double* t, double* normal) const {
    return util::intersectRayPlain(*mesh, matrix.data(), ray.exactOrigin, ray.exactDirection, t, normal);
  }

  std::array<double, 3> center;
  std::array<double, 16> matrix;
  std::unique_ptr<util::TriangleMesh> mesh;
  util::RayTransform placement;
  std::unique_ptr<Picker> picker;
  std::size_t handle;
  Triangles placed;
};
