#pragma once

#include <cstdint>
#include <vector>

#include <facetbox/io/Model.h>

namespace tool {

/// Per object the vertices, ascending, that a weld up to `reach` might join with those of other objects: all that are
/// near one of another object, and all that are within reach of these, one after the other. In any order of welding,
/// the vertices that are left out are joined with vertices that are left out only, which are of their object.
/// O(vertices) where few are near; never much more.
std::vector<std::vector<std::uint32_t>> verticesNearOthers(const facetbox::Model& model, double reach);

}  // namespace tool
