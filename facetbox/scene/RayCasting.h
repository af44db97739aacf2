#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include <facetbox/Scene.h>
#include <facetbox/base/Processor.h>
#include <facetbox/scene/SceneState.h>

namespace util {

/// As facetbox::Scene::castRays() and anyHit(), on a scene that does not change meanwhile.
facetbox::Hits castRays(const SceneState& state, std::span<const double> origins, std::span<const double> directions,
                        const facetbox::RayOptions& options, Instructions instructions = Instructions::best);
std::vector<std::uint8_t> anyHit(const SceneState& state, std::span<const double> origins,
                                 std::span<const double> directions, const facetbox::RayOptions& options,
                                 Instructions instructions = Instructions::best);

/// All hits of a ray, in no order.
std::vector<facetbox::Hit> allHits(const SceneState& state, const double origin[3], const double direction[3],
                                   double limit);

}  // namespace util
