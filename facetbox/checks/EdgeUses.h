#pragma once

#include <facetbox/check.h>
#include <facetbox/checks/CheckedMesh.h>

namespace util {

/// Finds open, overused and same-direction edges, components, and whether the mesh is closed and oriented.
/// O(vertices + corners) and sorting around single vertices.
void checkEdges(const CheckedMesh& mesh, facetbox::Defects& defects);

}  // namespace util
