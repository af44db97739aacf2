#pragma once

#include <algorithm>
#include <cstdint>
#include <numeric>

#include <facetbox/base/Buffer.h>

namespace util {

/// Sets of numbers that are joined one by one; each is known by its lowest number. Nearly O(1) a call.
class DisjointSets {
 public:
  explicit DisjointSets(std::size_t count) : mParents(count) { std::iota(mParents.begin(), mParents.end(), 0u); }

  std::uint32_t lowestOf(std::uint32_t number) {
    // Each number on the way is led past its parent.
    while (mParents[number] != number) number = mParents[number] = mParents[mParents[number]];
    return number;
  }
  void join(std::uint32_t a, std::uint32_t b) {
    a = lowestOf(a);
    b = lowestOf(b);
    mParents[std::max(a, b)] = std::min(a, b);
  }

 private:
  Buffer<std::uint32_t> mParents;  // never higher than the number
};

}  // namespace util
