#pragma once

#include <cstdint>
#include <span>

#include <facetbox/base/Monitor.h>

namespace util {

/// Sorts faces by decreasing area, ties by their order so far. Areas, addressed by face, are not NaN and not negative.
/// O(faces).
void sortByArea(std::span<std::uint32_t> faces, std::span<const double> areas, Monitor* monitor = nullptr);

}  // namespace util
