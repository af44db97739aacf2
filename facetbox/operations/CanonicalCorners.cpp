#include <facetbox/operations/CanonicalCorners.h>

#include <algorithm>
#include <cstddef>

namespace util {
namespace {

/// Where the smallest of the rotations of a cycle begins. O(size). After Shiloach, Fast Canonization of Circular
/// Strings, 1981, in its simpler form with two candidates.
template <class At>
std::size_t smallestRotation(std::size_t size, At at) {
  std::size_t i = 0, j = 1;
  for (std::size_t same = 0; i < size && j < size && same < size;) {
    const std::uint32_t a = at((i + same) % size), b = at((j + same) % size);
    if (a == b) {
      ++same;
      continue;
    }
    (a > b ? i : j) += same + 1;
    if (i == j) ++j;
    same = 0;
  }
  return std::min(i, j);
}

}  // namespace

void writeCanonicalCorners(std::span<const std::uint32_t> corners, std::uint32_t* out,
                           std::vector<std::uint32_t>& scratch) {
  const std::size_t n = corners.size();
  const auto write = [n](auto at, std::uint32_t* to) {
    const std::size_t begin = smallestRotation(n, at);
    for (std::size_t i = 0; i < n; ++i) to[i] = at((begin + i) % n);
  };
  scratch.resize(n);
  write([&](std::size_t i) { return corners[i]; }, out);
  write([&](std::size_t i) { return corners[n - 1 - i]; }, scratch.data());
  if (std::ranges::lexicographical_compare(scratch, std::span(out, n))) std::ranges::copy(scratch, out);
}

}  // namespace util
