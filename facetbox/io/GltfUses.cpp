#include <facetbox/io/GltfUses.h>

#include <cstddef>

namespace facetbox {

GltfUses::GltfUses(const std::vector<const std::vector<std::uint32_t>*>& lists) {
  std::uint32_t first = 0xFFFFFFFFu, last = 0;
  std::size_t corners = 0;
  for (const auto* list : lists) {
    corners += list->size();
    for (const std::uint32_t element : *list) {
      first = std::min(first, element);
      last = std::max(last, element);
    }
  }
  if (corners == 0) return;
  const std::size_t range = std::size_t{last} - first + 1;
  if (range <= corners) {
    mRanks.resize(range);
    numberRange(lists, first);
    return;
  }
  mElements.reserve(corners);
  for (const auto* list : lists) mElements.insert(mElements.end(), list->begin(), list->end());
  std::sort(mElements.begin(), mElements.end());
  mElements.erase(std::unique(mElements.begin(), mElements.end()), mElements.end());
}

void GltfUses::numberRange(const std::vector<const std::vector<std::uint32_t>*>& lists, std::uint32_t first) {
  std::size_t used = 0;
  for (const auto* list : lists)
    for (const std::uint32_t element : *list) {
      used += mRanks[element - first] == 0 ? 1 : 0;
      mRanks[element - first] = 1;
    }
  mElements.reserve(used);
  for (std::size_t i = 0; i < mRanks.size(); ++i) {
    if (mRanks[i] == 0) continue;
    mRanks[i] = static_cast<std::uint32_t>(mElements.size());
    mElements.push_back(static_cast<std::uint32_t>(first + i));
  }
}

}  // namespace facetbox
