#pragma once

#include <cstddef>

#include "CleanupWorkloads.h"

// Records that were made to be expensive. Every generator takes the approximate number of corners and gives the same
// record each time.

/// A plate with long thin holes side by side, at an angle to the axes: all their boxes overlap.
CleanupWorkload slits(std::size_t corners);
/// A plate with holes of the shape of a C, each in the mouth of the next larger one.
CleanupWorkload nestedCs(std::size_t corners);
/// A plate with such slits, every second of which crosses one listed before.
CleanupWorkload crossedSlits(std::size_t corners);

/// Quads that cannot be welded; this becomes known for one after the other only, from the last to the first.
CleanupWorkload chainOfPinches(std::size_t corners);

/// Copies of one triangle whose texture coordinates are random.
CleanupWorkload copiesWithTexture(std::size_t corners);
/// Copies of one polygon of twelve corners; any two of them have the same texture coordinates at all corners but one or
/// two, which differ from copy to copy.
CleanupWorkload copiesApartAtOneCorner(std::size_t corners);
/// Faces with the same edges in different orders: they visit one vertex many times.
CleanupWorkload reorderedLoops(std::size_t corners);
