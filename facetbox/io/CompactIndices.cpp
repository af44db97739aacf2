#include <facetbox/io/CompactIndices.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include <facetbox/PolyMesh.h>

namespace facetbox {

std::vector<std::uint32_t> compactIndices(std::vector<std::uint32_t>& indices, std::vector<std::uint32_t> extra) {
  std::vector<std::uint32_t> used = std::move(extra);
  std::copy_if(indices.begin(), indices.end(), std::back_inserter(used),
               [](std::uint32_t index) { return index != kNone; });
  if (used.empty()) return used;
  const auto [lowest, highest] = std::minmax_element(used.begin(), used.end());
  const std::uint32_t base = *lowest;
  const std::size_t window = std::size_t{*highest} - base + 1;
  if (window / 16 > used.size()) {  // a few indices, far apart
    std::sort(used.begin(), used.end());
    used.erase(std::unique(used.begin(), used.end()), used.end());
    for (std::uint32_t& index : indices) {
      if (index != kNone)
        index = static_cast<std::uint32_t>(std::lower_bound(used.begin(), used.end(), index) - used.begin());
    }
    return used;
  }
  std::vector<std::uint32_t> newIndices(window, kNone);
  for (const std::uint32_t index : used) newIndices[index - base] = 0;
  used.clear();
  for (std::size_t i = 0; i < window; ++i) {
    if (newIndices[i] == kNone) continue;
    newIndices[i] = static_cast<std::uint32_t>(used.size());
    used.push_back(base + static_cast<std::uint32_t>(i));
  }
  for (std::uint32_t& index : indices) {
    if (index != kNone) index = newIndices[index - base];
  }
  return used;
}

}  // namespace facetbox
