// Welds the corners of two triangles that only nearly touch, and merges them into one square.

#include <cstdint>
#include <cstdio>
#include <memory>

#include <facetbox/cleanup/Cleanup.h>

int main() {
  float coords[] = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 0, 0.001f, 1, 1, 0.001f, 0, 1, 0};  // six vertices: x, y, z
  std::uint32_t corners[] = {0, 1, 2, 3, 4, 5};                                       // of both triangles
  std::uint32_t counts[] = {3, 3};                                                    // corners per face

  Cleanup::MeshData mesh{};  // all counts and pointers that we do not need stay zero
  mesh.mVertexCoords = coords;
  mesh.mVCCount = 18;
  mesh.mIndices = corners;
  mesh.mIndexCount = 6;
  mesh.mCounts = counts;
  mesh.mCountCount = 2;

  using Record = std::unique_ptr<const Cleanup::MeshData, void (*)(const Cleanup::MeshData*)>;
  const Record welded(Cleanup::mergeVertices(0.01f, mesh), Cleanup::freeMeshDataAndHoles);
  if (!welded) return 1;  // nothing left
  const Record merged(Cleanup::removeEdgesCoplanar(0.1f, false, *welded), Cleanup::freeMeshDataAndHoles);
  std::printf("%d vertices, %d face of %u corners\n", merged->mVCCount / 3, merged->mCountCount, merged->mCounts[0]);
}
