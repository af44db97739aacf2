// check() beside other libraries, in turns within one process.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include <facetbox/triangles/SelfIntersections.h>

#include "../../CheckWorkloads.h"
#include "../pick/Turns.h"
#include "CgalCheckPeer.h"

namespace {

using Pairs = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

void compare(const std::string& name, const facetbox::PolyMesh& mesh, std::size_t pairs) {
  const CgalTriangleMesh peer(mesh);
  Pairs ours, theirs;
  const Turns turns = inTurns(
      pairs,
      [&](std::size_t) {
        return secondsOf([&] {
          ours = util::findSelfIntersections({mesh.points, mesh.indices, {}, {}}, 100'000'000).pairs;
        });
      },
      [&](std::size_t) { return secondsOf([&] { theirs = peer.selfIntersections(); }); });
  Row row{name, 1e3 * turns.ours, "CGAL self_intersections", 1e3 * turns.theirs, 1 / turns.speed, 0.5, Row::atMost};
  row.print();
  std::printf("  %zu triangles, %zu pairs; CGAL finds %zu%s\n", mesh.counts.size(), ours.size(), theirs.size(),
              ours == theirs ? ", the same" : "");
}

}  // namespace

/// @param arguments  [--triangles n] [--pairs n] [--scan file]; a scan is one as readScan() takes it
int main(int argc, char** argv) {
  std::size_t triangles = 1'000'000, pairs = 5;
  std::string scan;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    if (option == "--triangles") triangles = std::strtoull(argv[i + 1], nullptr, 10);
    if (option == "--pairs") pairs = std::strtoull(argv[i + 1], nullptr, 10);
    if (option == "--scan") scan = argv[i + 1];
  }
  printHeading("Self-intersections, ms of CPU time", "ours", "ratio");
  compare("sphere", meshOf(sphereOfTriangles(triangles)), pairs);
  compare("terrain", meshOf(gridOfTriangles(triangles)), pairs);
  compare("soup, 1 % cross", soupWithCrossings(triangles), pairs);
  if (!scan.empty()) compare("scan, copies side by side", sideBySide(readScan(scan), 3 * triangles), pairs);
}
