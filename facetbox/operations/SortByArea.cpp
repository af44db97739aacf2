#include <facetbox/operations/SortByArea.h>

#include <array>
#include <bit>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

#include <facetbox/base/Buffer.h>

namespace util {
namespace {

// Stable radix sort on the bits of the area, which order like the areas themselves. With Boost's spreadsort, which is
// not stable and takes a second pass over ties, merging a million corners takes 6 % (gridded boxes) to 11 % (a city)
// longer.
constexpr int kDigitBits = 11, kDigits = 6;
constexpr std::size_t kDigitValues = std::size_t{1} << kDigitBits;
static_assert(kDigitBits * kDigits >= 64);

struct Item {
  std::uint64_t key;
  std::uint32_t face;
};

std::size_t digitOf(const Item& item, int digit) { return item.key >> digit * kDigitBits & (kDigitValues - 1); }

}  // namespace

void sortByArea(std::span<std::uint32_t> faces, std::span<const double> areas, Monitor* monitor) {
  if (faces.empty()) return;
  Buffer<Item> items(faces.size()), sorted(faces.size());
  std::vector<std::array<std::uint32_t, kDigitValues>> counts(kDigits);
  for (std::size_t i = 0; i < faces.size(); ++i) {
    assert(!std::signbit(areas[faces[i]]) && !std::isnan(areas[faces[i]]));
    items[i] = {~std::bit_cast<std::uint64_t>(areas[faces[i]]), faces[i]};
    for (int d = 0; d < kDigits; ++d) ++counts[d][digitOf(items[i], d)];
  }
  for (int d = 0; d < kDigits; ++d) {
    if (monitor) monitor->look();
    auto& count = counts[d];
    if (count[digitOf(items[0], d)] == items.size()) continue;  // the digit tells nothing
    std::uint32_t start = 0;
    for (std::uint32_t& c : count) start += std::exchange(c, start);
    for (const Item& item : items) sorted[count[digitOf(item, d)]++] = item;
    std::swap(items, sorted);
  }
  for (std::size_t i = 0; i < faces.size(); ++i) faces[i] = items[i].face;
}

}  // namespace util
