// check() beside other libraries, in turns within one process.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <facetbox/check.h>

#include "../../CheckWorkloads.h"
#include "../pick/Turns.h"
#include "CgalCheckPeer.h"

namespace {

using facetbox::Defects;

Defects checkMesh(const facetbox::PolyMesh& mesh, bool selfIntersections) {
  facetbox::CheckOptions options;
  options.selfIntersections = selfIntersections;
  return facetbox::check(mesh, options);
}

bool areSame(const std::vector<Defects::Pair>& a, const std::vector<std::pair<std::uint32_t, std::uint32_t>>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const Defects::Pair& p, const auto& q) { return p[0] == q.first && p[1] == q.second; });
}

/// All of check() against the one list of theirs; how much of it the other lists are is printed besides.
void compare(const std::string& name, const facetbox::PolyMesh& mesh, std::size_t pairs) {
  const CgalTriangleMesh peer(mesh);
  Defects ours;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> theirs;
  std::vector<double> others;
  const Turns turns = inTurns(
      pairs,
      [&](std::size_t) {
        others.push_back(secondsOf([&] { checkMesh(mesh, false); }));
        return secondsOf([&] { ours = checkMesh(mesh, true); });
      },
      [&](std::size_t) { return secondsOf([&] { theirs = peer.selfIntersections(); }); });
  Row{name, 1e3 * turns.ours, "CGAL self_intersections", 1e3 * turns.theirs, 1 / turns.speed, 0.5, Row::atMost}.print();
  std::printf("  %zu triangles, %zu pairs; CGAL finds %zu%s; all other lists of ours take %.4g ms, %.4g ns a corner\n",
              mesh.counts.size(), ours.selfIntersections.size(), theirs.size(),
              areSame(ours.selfIntersections, theirs) ? ", the same" : "", 1e3 * median(others),
              1e9 * median(others) / static_cast<double>(mesh.indices.size()));
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
  printHeading("Checks with self-intersections, ms of CPU time", "ours", "ratio");
  compare("sphere", meshOf(sphereOfTriangles(triangles)), pairs);
  compare("terrain", meshOf(gridOfTriangles(triangles)), pairs);
  compare("soup, 1 % cross", soupWithCrossings(triangles), pairs);
  if (!scan.empty()) compare("scan, copies side by side", sideBySide(readScan(scan), 3 * triangles), pairs);
}
