#pragma once

#include <facetbox/check.h>
#include <facetbox/checks/CheckedMesh.h>

namespace util {

/// Finds pairs of faces that intersect, and faces that cross themselves.
void checkSelfIntersections(const CheckedMesh& mesh, const facetbox::CheckOptions& options, facetbox::Defects& defects);

}  // namespace util
