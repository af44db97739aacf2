// Draws two placed copies of one mesh with a ray per letter, and asks what is closest to a point.

#include <facetbox/Scene.h>
#include <array>
#include <cstdio>

int main() {
  // A square with a square hole.
  const auto frame = std::make_shared<const facetbox::PolyMesh>(
      facetbox::PolyMesh{.points = {0, 0, 0, 4, 0, 0, 4, 4, 0, 0, 4, 0, 1, 1, 0, 1, 3, 0, 3, 3, 0, 3, 1, 0},
                         .counts = {4, 4},
                         .indices = {0, 1, 2, 3, 4, 5, 6, 7},
                         .holes = {0, 1, facetbox::kNone}});
  facetbox::Scene scene;
  scene.add(frame);                                                 // object 0
  scene.add(frame, {{{1, 0, 0, 2}, {0, 1, 0, 2}, {0, 0, 1, -1}}});  // object 1, moved by (2, 2, -1)

  std::vector<double> origins, directions;
  for (int row = 0; row < 6; ++row)
    for (int column = 0; column < 12; ++column) {
      origins.insert(origins.end(), {0.5 * column + 0.25, 5.5 - row, 10});
      directions.insert(directions.end(), {0, 0, -1});  // straight down
    }
  const facetbox::Hits hits = scene.castRays(origins, directions);
  for (std::size_t i = 0; i < hits.id.size(); ++i)
    std::printf("%s%s", hits.id[i] == facetbox::kNone ? "-" : hits.id[i] == 0 ? "0" : "1", i % 12 == 11 ? "\n" : "");

  const std::array<double, 3> point = {2, 2.5, 0};
  const facetbox::Nearest nearest = scene.nearest(point)[0].value();
  std::printf("object %u, face %u, %g away\n", nearest.id, nearest.face, nearest.distance);
}
