#pragma once

#include <cstddef>

#include <facetbox/mesh/PrimitiveList.h>

namespace util {

/// Reverses the orientation of a face: its corner cycle with everything that belongs to the corners, and its normal.
///
/// The cycle (a, b, c, d) becomes (b, a, d, c). Indices that describe the edge after a corner instead of the corner
/// keep the first place, (a, d, c, b): those of the outgoing-edge set, and normal indices where the per-vertex-normal
/// flag is set. Where it is clear, normal indices turn like the corners; this asymmetry is intended.
void flipFace(PrimitiveList& faces, std::size_t face);

/// The same, but the stored normal stays, outdated or never computed.
void flipCorners(PrimitiveList& faces, std::size_t face);

}  // namespace util
