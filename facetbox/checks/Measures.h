#pragma once

#include <facetbox/check.h>
#include <facetbox/checks/CheckedMesh.h>

namespace util {

/// Measures area, volume and box, and finds zero edges, zero faces, unused vertices and faces that are left out.
/// O(vertices + corners).
void measure(const CheckedMesh& mesh, const facetbox::CheckOptions& options, facetbox::Defects& defects);

}  // namespace util
