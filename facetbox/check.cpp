#include <facetbox/check.h>

#include <algorithm>
#include <tuple>

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
std::vector<DroppedHole> droppedHolesOf(const MeshView& mesh) {
  if (mesh.holes.empty()) return {};
  MeshView bare = mesh;
  bare.texCoords = {};
  bare.texIndices = bare.labels = {};
  std::vector<DroppedHole> dropped = clean(bare, {}).droppedHoles;
  std::ranges::sort(dropped, {}, [](const DroppedHole& d) { return std::tie(d.outer, d.hole); });
  return dropped;
}

}  // namespace

Defects check(const MeshView& mesh, const CheckOptions& options) {
  requireValid(mesh);
  const util::CheckedMesh checked(mesh);
  Defects defects;
  util::measure(checked, options, defects);
  util::checkPlaces(checked, defects);
  util::checkRepeats(checked, defects);
  util::checkEdges(checked, defects);
  if (options.tCorners) util::checkTCorners(checked, options, defects);
  defects.droppedHoles = droppedHolesOf(mesh);
  if (options.selfIntersections) util::checkSelfIntersections(checked, options, defects);
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
