#include <facetbox/check.h>

#include <algorithm>
#include <utility>

#include <facetbox/checks/CheckedMesh.h>
#include <facetbox/checks/EdgeUses.h>
#include <facetbox/checks/FaceIntersections.h>
#include <facetbox/checks/Measures.h>
#include <facetbox/checks/Repeats.h>
#include <facetbox/checks/TCorners.h>

namespace facetbox {

Defects check(const MeshView& mesh, const CheckOptions& options) {
  if (auto problems = validate(mesh); std::ranges::any_of(problems, &Problem::isFatal))
    throw InvalidMesh(std::move(problems));
  const util::CheckedMesh checked(mesh);
  Defects defects;
  util::measure(checked, options, defects);
  util::checkPlaces(checked, defects);
  util::checkRepeats(checked, defects);
  util::checkEdges(checked, defects);
  util::checkTCorners(checked, options, defects);
  if (options.selfIntersections) util::checkSelfIntersections(checked, options, defects);
  return defects;
}

}  // namespace facetbox
