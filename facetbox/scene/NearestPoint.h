#pragma once

#include <optional>
#include <span>
#include <vector>

#include <facetbox/Scene.h>
#include <facetbox/base/Processor.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/scene/SceneState.h>

namespace util {

/// The point of a scene's surface that is closest to a point; nothing without triangles, or where the point is not
/// finite.
///
/// The corners of each triangle are placed in the world by Placement::toWorld(), in doubles; they and the point are
/// multiplied by a power of two that makes the distance about 1, so that no product overflows or vanishes. Then
/// closestOnTriangle() decides. Of equal squared distances that of the lower id counts, within an object that of the
/// earlier triangle. The hierarchies only propose: this is, bit for bit, what a loop over all triangles finds.
///
/// Allocates nothing. O(log triangles), mostly.
std::optional<facetbox::Nearest> nearestPoint(const SceneState& scene, const Vec3& point,
                                              Instructions instructions = Instructions::best);

/// For each of many points, on all processors.
/// @param points  x, y, z per point
/// @throws std::invalid_argument  where their number is no multiple of three
std::vector<std::optional<facetbox::Nearest>> nearestPoints(const SceneState& scene, std::span<const double> points);

}  // namespace util
