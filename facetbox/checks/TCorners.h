#pragma once

#include <facetbox/check.h>
#include <facetbox/checks/CheckedMesh.h>

namespace util {

/// Finds the vertices that lie inside open edges. To be called once these and vertices at one place are
/// listed.
/// O(n log n) in vertices and open edges, and what a search along each edge passes.
void checkTCorners(const CheckedMesh& mesh, const facetbox::CheckOptions& options, facetbox::Defects& defects);

}  // namespace util
