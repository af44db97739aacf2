#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace util {

/// Writes a face's corners from where and in the direction in which they are the lexicographically smallest sequence:
/// equal for faces that have the same corners in the same cyclic order or in the reversed one, and for no others.
/// O(corners).
/// @param out      room for all of the corners
/// @param scratch  kept between calls, so that it is not allocated each time
void writeCanonicalCorners(std::span<const std::uint32_t> corners, std::uint32_t* out,
                           std::vector<std::uint32_t>& scratch);

}  // namespace util
