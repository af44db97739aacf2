#pragma once

#include <tests/support/PlainMesh.h>

namespace support {

/// Coplanar merging as it is defined, everything looked at anew after every step; limits against crafted input left
/// out. For vertices whose coordinates are integers below a million or not finite; distances as if one unit were
/// `unit`.
std::uint64_t removeEdgesCoplanar(PlainMesh& mesh, double toleranceDegrees, bool compareAttributes, double unit);

}  // namespace support
