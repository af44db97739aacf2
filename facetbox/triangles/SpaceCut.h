#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/math/Vec3.h>

namespace util {

/// Cuts an outline that no direction shows without crossings into corners - 2 triangles, along diagonals: every edge of
/// it is in one triangle, every diagonal in two, in opposite directions. The triangles turn as the outline does.
///
/// Up to 64 corners: as few thin triangles as possible, and of what that leaves the smallest area; long edges count a
/// little. A longer outline is first cut where it is narrow, into pieces of so many corners.
/// O(corners) times a few thousand.
/// @param triangles  three positions in the outline per triangle are appended to it
void cutInSpace(std::span<const Vec3> outline, std::vector<std::uint32_t>& triangles);

}  // namespace util
