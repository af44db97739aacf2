#pragma once

#include <cstddef>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <facetbox/triangulate.h>

namespace tool {

/// A mesh in triangles, without holes.
struct Triangles {
  facetbox::PolyMesh mMesh;                     ///< all vertices of the polygons, then the made points
  std::vector<facetbox::SkippedFace> mSkipped;  ///< the polygons without triangles
  std::size_t mMadePoints = 0;
};

/// Cuts a mesh into triangles; they have the labels and texture coordinates of their faces.
Triangles trianglesOf(const facetbox::PolyMesh& mesh);

}  // namespace tool
