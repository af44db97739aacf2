#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/math/OverlapsBox.h>
#include <facetbox/triangles/ClipProjection.h>
#include <facetbox/util/Triangulator.h>

// The tests of an object against the clip cube as they are defined: what a host would write down.

/// @param projected  scratch
inline bool plainOverlapsClipCube(const util::TriangleMesh& mesh, const double c[16], std::vector<double>& projected) {
  const std::span<const double> vertices = mesh.vertexCoordinates();
  projected.assign(vertices.size(), 0.0);
  for (std::size_t v = 0; v < vertices.size(); v += 3) util::projectToClipSpace(c, &vertices[v], &projected[v]);
  const std::span<const std::uint32_t> indices = mesh.indices();
  for (std::size_t i = 0; i < indices.size(); i += 3)
    if (util::overlapsBox(&projected[3 * std::size_t{indices[i]}], &projected[3 * std::size_t{indices[i + 1]}],
                          &projected[3 * std::size_t{indices[i + 2]}], util::kClipCubeCenter, util::kClipCubeHalf))
      return true;
  return false;
}

inline bool plainLiesInClipCube(const util::TriangleMesh& mesh, const double c[16]) {
  const std::span<const double> vertices = mesh.vertexCoordinates();
  double p[3] = {0, 0, 0};
  for (std::size_t v = 0; v < vertices.size(); v += 3) {
    util::projectToClipSpace(c, &vertices[v], p);
    if (!util::isInClipCube(p)) return false;
  }
  return true;
}
