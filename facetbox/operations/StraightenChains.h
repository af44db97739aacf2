#pragma once

#include <cstdint>

#include <facetbox/mesh/MeshStorage.h>

namespace util {

/// removeVerticesColinear() against the corners that stay: takes the corners out of the faces, and nothing else.
/// @return number of corners taken out
std::uint64_t straightenChains(MeshStorage& mesh, double toleranceDegrees, bool keepTextureMapping);

}  // namespace util
