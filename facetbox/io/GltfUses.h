#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace facetbox {

/// The elements that lists of corners name, in ascending order. O(corners) memory, however far apart the elements are.
class GltfUses {
 public:
  explicit GltfUses(const std::vector<const std::vector<std::uint32_t>*>& lists);

  const std::vector<std::uint32_t>& elements() const { return mElements; }

  /// Where an element stands among those that are named, which it is.
  std::uint32_t rank(std::uint32_t element) const {
    if (!mRanks.empty()) return mRanks[element - mElements.front()];
    const auto found = std::lower_bound(mElements.begin(), mElements.end(), element);
    return static_cast<std::uint32_t>(found - mElements.begin());
  }

 private:
  void numberRange(const std::vector<const std::vector<std::uint32_t>*>& lists, std::uint32_t first);

  std::vector<std::uint32_t> mElements;
  std::vector<std::uint32_t> mRanks;  // of the first element to the last, where these are not far apart
};

}  // namespace facetbox
