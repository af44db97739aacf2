#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include <facetbox/mesh/PrimitiveList.h>

namespace util {

/// Closes the gaps in a list with an entry per corner. `isKept` is asked for each position, in ascending order, before
/// its entry moves.
template <class IsKept>
void packEntries(std::span<std::uint32_t> entries, IsKept isKept) {
  std::size_t write = 0;
  for (std::size_t i = 0; i < entries.size(); ++i)
    if (isKept(i)) entries[write++] = entries[i];
}

/// Takes corners out of a face, with their entries in all lists but that of normals. `isKept` is asked by position; the
/// corners themselves move last, each after it was asked for.
/// @param count  of the corners that are kept
template <class IsKept>
void packCorners(PrimitiveList& faces, std::size_t face, std::uint32_t count, IsKept isKept) {
  for (std::uint32_t bits = faces.mask(face); bits != 0; bits &= bits - 1)
    packEntries(faces.cornerSet(face, std::countr_zero(bits)), isKept);
  packEntries(faces.corners(face), isKept);
  faces.shrink(face, count);
}

}  // namespace util
