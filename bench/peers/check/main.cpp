// check() beside other libraries, in turns within one process.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <facetbox/check.h>
#include <facetbox/triangles/SelfIntersections.h>

#include "../../CheckWorkloads.h"
#include "../pick/Turns.h"
#include "CgalCheckPeer.h"

namespace {

using facetbox::Defects;

Defects checkMesh(const facetbox::PolyMesh& mesh) {
  facetbox::CheckOptions options;
  options.selfIntersections = true;
  return facetbox::check(mesh, options);
}

bool areSame(const std::vector<Defects::Pair>& a, const std::vector<std::pair<std::uint32_t, std::uint32_t>>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const Defects::Pair& p, const auto& q) { return p[0] == q.first && p[1] == q.second; });
}

/// Ours in turns with theirs, in CPU time; the last results of theirs are kept in `theirs`.
template <class Ours>
void compare(const std::string& name, double bar, std::size_t pairs, Ours ours, const CgalTriangleMesh& peer,
             std::vector<std::pair<std::uint32_t, std::uint32_t>>& theirs) {
  const Turns turns = inTurns(
      pairs, [&](std::size_t) { return secondsOf(ours); },
      [&](std::size_t) { return secondsOf([&] { theirs = peer.selfIntersections(); }); });
  Row{name, 1e3 * turns.ours, "CGAL self_intersections", 1e3 * turns.theirs, 1 / turns.speed, bar, Row::atMost}.print();
}

void compare(const std::string& name, const facetbox::PolyMesh& mesh, std::size_t pairs) {
  const CgalTriangleMesh peer(mesh);
  std::vector<std::pair<std::uint32_t, std::uint32_t>> theirs;
  const auto search = [&] {
    util::findSelfIntersections({mesh.points, mesh.indices, {}, {}}, facetbox::CheckOptions().mostListed);
  };
  compare(name + ": this list", 0.5, pairs, search, peer, theirs);
  Defects ours;
  compare(
      name + ": all lists", 0, pairs, [&] { ours = checkMesh(mesh); }, peer, theirs);
  std::printf("  %zu triangles, %zu pairs; CGAL finds %zu%s\n", mesh.counts.size(), ours.selfIntersections.size(),
              theirs.size(), areSame(ours.selfIntersections, theirs) ? ", the same" : "");
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
  compare("sphere", polyMeshOf(sphereOfTriangles(triangles)), pairs);
  compare("terrain", polyMeshOf(gridOfTriangles(triangles)), pairs);
  compare("soup, 1 % cross", soupWithCrossings(triangles), pairs);
  if (!scan.empty()) compare("scan, copies side by side", sideBySide(readScan(scan), 3 * triangles), pairs);
}
