// Two triangles that only nearly touch become one square.

#include <facetbox/clean.h>
#include <cstdio>

int main() {
  const facetbox::PolyMesh mesh{.points = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 0, 1e-4, 1, 1, 1e-4, 0, 1, 0},
                                .counts = {3, 3},
                                .indices = {0, 1, 2, 3, 4, 5}};
  const facetbox::Cleaned cleaned = facetbox::clean(mesh, facetbox::allSteps(1e-3, 1.4));
  std::printf("%zu face of %u corners\n", cleaned.mesh.counts.size(), cleaned.mesh.counts[0]);
}
