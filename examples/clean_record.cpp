// Welds the corners of two triangles that only touch, and prints what is left.

#include <facetbox/cleanup/Cleanup.h>

#include <cstdint>
#include <cstdio>

int main() {
  // A square as two separate triangles: six vertices, two of them doubled up to 0.001, and a needle without area.
  float coords[] = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 0, 0.001f, 1, 1, 0.001f, 0, 1, 0};
  std::uint32_t indices[] = {0, 1, 2, 3, 4, 5, 0, 1, 0};
  std::uint32_t counts[] = {3, 3, 3};

  Cleanup::MeshData mesh{};
  mesh.mVertexCoords = coords;
  mesh.mVCCount = 18;
  mesh.mIndices = indices;
  mesh.mIndexCount = 9;
  mesh.mCounts = counts;
  mesh.mCountCount = 3;

  const Cleanup::MeshData* cleaned = Cleanup::removeFacesZero(1e-6f, mesh);
  if (!cleaned) return 1;
  std::printf("%d faces, %d vertices\n", cleaned->mCountCount, cleaned->mVCCount / 3);
  Cleanup::freeMeshData(cleaned);
}
