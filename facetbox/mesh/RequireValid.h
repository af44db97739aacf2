#pragma once

#include <facetbox/PolyMesh.h>

namespace facetbox {

/// What every call does first with a mesh from outside.
/// @throws InvalidMesh where validate() finds a fatal problem. O(vertices + corners + holes).
FACETBOX_LOCAL void requireValid(const MeshView& mesh);

}  // namespace facetbox
