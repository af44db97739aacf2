#pragma once

#include <cstdint>
#include <vector>

#include <facetbox/Scene.h>
#include <facetbox/scene/SceneState.h>

namespace util {

/// Keeps the objects of which a ray from the near plane reaches a corner, or the middle of the largest triangle of a
/// face, that lies in the view volume: nothing of another object lies before it, but for a part of 1e-9 of the way.
/// None where the matrix has no inverse. Rays are cast in batches, until one of an object's has arrived.
void keepVisible(const SceneState& state, const facetbox::Matrix& viewProjection, std::vector<std::uint32_t>& slots);

}  // namespace util
