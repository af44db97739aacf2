// Cleans a box that a careless exporter wrote, and tells what was wrong, where, and what became of each face.

#include <cstdio>

#include <facetbox/check.h>
#include <facetbox/clean.h>

int main() {
  // A unit box far from the origin: its top is two triangles that do not quite meet, its front stands there twice.
  const double x = 85227.43, y = 446522.057;
  const facetbox::PolyMesh box{
      .points = {x, y, 0,        x + 1, y,     0,       x + 1, y + 1, 0, x, y + 1, 0,  // 0 to 3, below
                 x, y, 1,        x + 1, y,     1,       x + 1, y + 1, 1, x, y + 1, 1,  // 4 to 7, above
                 x, y, 1 + 1e-6, x + 1, y + 1, 1 + 1e-6},                              // 8 and 9, nearly at 4 and 6
      .counts = {4, 4, 4, 4, 4, 3, 3, 4},                                              // corners per face
      .indices = {0, 3, 2, 1, 0, 1, 5, 4, 1, 2, 6, 5, 2, 3, 7, 6, 3, 0, 4, 7, 4, 5, 6, 8, 9, 7, 0, 1, 5, 4}};

  const auto print = [](const char* when, const facetbox::Defects& defects) {
    std::printf("%s: %s, volume %.3f\n", when, defects.isClosed ? "closed" : "not closed", defects.volume);
    for (const auto& [a, b] : defects.openEdges) std::printf("  the edge from vertex %u to %u is open\n", a, b);
    for (const auto& [kept, other] : defects.doubleFaces) std::printf("  face %u repeats face %u\n", other, kept);
  };
  print("before", facetbox::check(box));
  const facetbox::Cleaned cleaned = facetbox::clean(box, facetbox::allSteps(1e-3, 1.7));
  print("after", facetbox::check(cleaned.mesh));

  for (std::size_t face = 0; face < cleaned.faceMap.size(); ++face) {
    const std::uint32_t now = cleaned.faceMap[face];
    if (now == facetbox::kNone)
      std::printf("face %zu is gone\n", face);
    else if (now != face)
      std::printf("face %zu is now part of face %u\n", face, now);
  }
}
