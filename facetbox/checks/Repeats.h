#pragma once

#include <facetbox/check.h>
#include <facetbox/checks/CheckedMesh.h>

namespace util {

/// Finds vertices at one place. O(vertices) expected, O(n log n) at worst.
void checkPlaces(const CheckedMesh& mesh, facetbox::Defects& defects);

/// Finds faces that repeat a vertex, and faces that repeat another face. O(corners) expected, O(n log n) at worst.
void checkRepeats(const CheckedMesh& mesh, facetbox::Defects& defects);

}  // namespace util
