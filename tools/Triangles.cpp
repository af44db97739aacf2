#include <tools/Triangles.h>

#include <utility>

namespace tool {

Triangles trianglesOf(const facetbox::PolyMesh& mesh) {
  facetbox::Triangulation cut = facetbox::triangulate(mesh);
  Triangles result{.mMesh = {.points = mesh.points,
                             .counts = std::vector<std::uint32_t>(cut.faces.size(), 3),
                             .indices = std::move(cut.triangles),
                             .texCoords = mesh.texCoords,
                             .texIndices = std::move(cut.texIndices)},
                   .mSkipped = std::move(cut.skipped),
                   .mMadePoints = cut.madePoints.size() / 3};
  facetbox::PolyMesh& triangles = result.mMesh;
  triangles.points.insert(triangles.points.end(), cut.madePoints.begin(), cut.madePoints.end());
  triangles.texCoords.insert(triangles.texCoords.end(), cut.madeTexCoords.begin(), cut.madeTexCoords.end());
  if (!mesh.labels.empty())
    for (const std::uint32_t face : cut.faces) triangles.labels.push_back(mesh.labels[face]);
  return result;
}

}  // namespace tool
