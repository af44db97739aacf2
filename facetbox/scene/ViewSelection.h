#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include <facetbox/Scene.h>
#include <facetbox/scene/SceneState.h>

namespace util {

/// The slots of the objects that facetbox::Scene::select() finds, in no order.
///
/// Each corner is placed in the world, then taken to (x, y, z, w) by the matrix, in doubles. It lies in the volume
/// where w > 0 and none of w - x, w + x, w - y, ... is negative. A triangle touches the volume where something of it is
/// left after each of these six functions has cut off what is negative, with w > 0. The objects' boxes and their
/// hierarchies only pass over what this decides.
std::vector<std::uint32_t> slotsInView(const SceneState& state, const facetbox::Matrix& viewProjection,
                                       facetbox::Select which);

}  // namespace util
