#pragma once

#include <facetbox/check.h>

namespace support {

/// What check() says of a mesh without a fatal problem, but for self-intersections and dropped holes: each list by
/// comparing everything with everything. For coordinates on a small grid, where no limit is in doubt.
facetbox::Defects plainCheck(const facetbox::PolyMesh& mesh);

}  // namespace support
