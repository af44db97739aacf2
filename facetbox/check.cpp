#include <facetbox/check.h>

#include <algorithm>
#include <tuple>
#include <utility>

#include <facetbox/base/Monitor.h>
#include <facetbox/checks/CheckedMesh.h>
#include <facetbox/checks/EdgeUses.h>
#include <facetbox/checks/FaceIntersections.h>
#include <facetbox/checks/Measures.h>
#include <facetbox/checks/Repeats.h>
#include <facetbox/checks/TCorners.h>
#include <facetbox/clean.h>
#include <facetbox/mesh/RequireValid.h>

namespace facetbox {
namespace {

/// The holes that a clean-up without a step drops.
std::vector<DroppedHole> droppedHolesOf(const MeshView& mesh, const CheckOptions& options) {
  if (mesh.holes.empty()) return {};
  MeshView bare = mesh;
  bare.texCoords = {};
  bare.texIndices = bare.labels = {};
  std::vector<DroppedHole> dropped = clean(bare, {}, {.isCancelled = options.isCancelled}).droppedHoles;
  std::ranges::sort(dropped, {}, [](const DroppedHole& d) { return std::tie(d.outer, d.hole); });
  return dropped;
}

}  // namespace

Defects check(const MeshView& mesh, const CheckOptions& options) {
  requireValid(mesh);
  util::Monitor monitor([&options](double fraction) {
    if (options.isCancelled && options.isCancelled()) throw Cancelled();
    if (options.progress) options.progress(fraction);
  });
  util::Monitor* const asked = options.isCancelled || options.progress ? &monitor : nullptr;
  monitor.start();
  // Self-intersections take several times as long as all others together.
  double done = 0;
  const double rest = options.selfIntersections ? 0.2 : 1.0;
  const auto doPart = [&](double end, auto look) {
    const util::Monitor::Part part(asked, std::exchange(done, end), end);
    return look();
  };
  const util::CheckedMesh checked = doPart(0.2 * rest, [&] { return util::CheckedMesh(mesh, asked); });
  Defects defects;
  doPart(0.3 * rest, [&] { util::measure(checked, options, defects); });
  doPart(0.4 * rest, [&] { util::checkPlaces(checked, defects); });
  doPart(0.6 * rest, [&] { util::checkRepeats(checked, defects); });
  doPart(0.8 * rest, [&] { util::checkEdges(checked, defects); });
  doPart(0.9 * rest, [&] {
    if (options.tCorners) util::checkTCorners(checked, options, defects);
  });
  doPart(rest, [&] { defects.droppedHoles = droppedHolesOf(mesh, options); });
  if (options.selfIntersections) doPart(1.0, [&] { util::checkSelfIntersections(checked, options, defects); });
  monitor.finish();
  return defects;
}

Measures measure(const MeshView& mesh) {
  requireValid(mesh);
  const util::CheckedMesh checked(mesh);
  Defects defects;
  util::measure(checked, {}, defects);
  util::checkEdges(checked, defects);
  return {.openEdges = defects.openEdges.size(),
          .isClosed = defects.isClosed,
          .isOriented = defects.isOriented,
          .area = defects.area,
          .volume = defects.volume};
}

}  // namespace facetbox
