// Tests a table made of two instances: is it in view, does a mask cover it, where is it nearest, where does a ray hit
// it? Then moves it and tests again.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include <facetbox/intersector/Intersector.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>

namespace {

// A block from (-1, -1, -1) to (1, 1, 1), faces outward.
util::Mesh block() {
  const float coords[] = {-1, -1, -1, 1, -1, -1, 1, 1, -1, -1, 1, -1, -1, -1, 1, 1, -1, 1, 1, 1, 1, -1, 1, 1};
  const std::uint32_t corners[] = {0, 3, 2, 1, 4, 5, 6, 7, 0, 1, 5, 4, 2, 3, 7, 6, 1, 2, 6, 5, 0, 4, 7, 3};
  const std::int32_t counts[] = {4, 4, 4, 4, 4, 4};
  return {"block", 24, coords, corners, 6, counts, nullptr, 0, nullptr};
}

void ask(const char* when, Intersector& intersector, std::size_t table) {
  // Looks from (0, 0, 10) along -z, without perspective: x from -8 to 8, y from -6 to 6, z from 10 to -10.
  const float view[16] = {1 / 8.0f, 0, 0, 0, 0, 1 / 6.0f, 0, 0, 0, 0, -0.1f, 0, 0, 0, 0, 1};

  // In view partly, and completely.
  const bool inView = intersector.intersectsFrustum(table, view, false);
  const bool wholly = intersector.intersectsFrustum(table, view, true);

  // A mask of the view, 16 by 12 pixels: the right half is set. Rows count from the top.
  constexpr int kWidth = 16, kHeight = 12;
  std::vector<std::int32_t> mask(kWidth * kHeight);
  for (int cell = 0; cell < kWidth * kHeight; ++cell) mask[static_cast<std::size_t>(cell)] = cell % kWidth >= 8 ? 1 : 0;
  const int viewport[4] = {0, 0, kWidth, kHeight};
  const bool onMask = intersector.testRaster(table, view, viewport, mask.data(), kWidth, kHeight, 0, 0);
  std::printf("%s: %s, %s\n", when,
              wholly   ? "in view"
              : inView ? "partly in view"
                       : "out of view",
              onMask ? "on the mask" : "not on the mask");

  // The nearest point in the volume, with the triangle that it lies on.
  const float eye[] = {0, 0, 10}, forward[] = {0, 0, -1};
  float point[3], a[3], b[3], c[3];
  if (intersector.findNearestInFrustum(table, view, eye, forward, point, a, b, c))
    std::printf("  nearest at depth %g\n", static_cast<double>(eye[2] - point[2]));

  // A ray straight down. Small triangles are skipped if its direction is short, so make it long.
  constexpr float kLength = 1e6f;
  const float above[] = {5, 9, 0}, down[] = {0, -kLength, 0};
  float distance = 0, normal[3];
  if (intersector.intersectsRay(table, above, down, &distance, normal))
    std::printf("  a ray from above hits after %g\n", static_cast<double>(distance * kLength));
}

}  // namespace

int main() {
  const std::unique_ptr<Intersector> intersector(Intersector::createIntersector());
  util::Triangulator triangulator;  // one per thread
  const util::Mesh mesh = block();

  // One object: a foot, and a board on it. Matrices are column-major.
  const std::size_t table = intersector->createHandle();
  const double foot[16] = {0.5, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 1};
  const double board[16] = {2, 0, 0, 0, 0, 0.25, 0, 0, 0, 0, 2, 0, 0, 1.25, 0, 1};
  intersector->addEntry(table, mesh, foot, triangulator);
  intersector->addEntry(table, mesh, board, triangulator);
  // A box around both, in the world: if it lies outside the view, the instances need no test.
  const double around[16] = {2, 0, 0, 0, 0, 1.25, 0, 0, 0, 0, 2, 0, 0, 0.25, 0, 1};
  const std::unique_ptr<util::Mesh> box(mesh.derive(around, false));
  intersector->setOABBox(table, *box, triangulator);

  ask("at first", *intersector, table);
  intersector->relocate(table, 4, 0, 0);
  ask("moved by 4", *intersector, table);
  intersector->relocate(table, 3, 0, 0);
  ask("moved by 7", *intersector, table);
  intersector->dispose(table);  // do not use the handle afterwards
  intersector->applyPendingCommands();
  std::printf("%d changes left\n", static_cast<int>(intersector->getPendingCommandCount()));
}
