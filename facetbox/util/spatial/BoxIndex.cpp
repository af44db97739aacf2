#include <facetbox/util/spatial/BoxIndex.h>

#include <algorithm>
#include <cmath>

namespace util {

namespace {

constexpr std::size_t kLeafSize = 8;

/// Twice the middle, for comparisons. A box that goes from one infinity to the other has its middle at 0.
double middleOn(const Box& box, int axis) {
  const double sum = axis == 0 ? box.min.x + box.max.x : axis == 1 ? box.min.y + box.max.y : box.min.z + box.max.z;
  return std::isnan(sum) ? 0.0 : sum;
}

}  // namespace

BoxIndex::BoxIndex(std::span<const Box> boxes) : mSize(boxes.size()) {
  mEntries.reserve(boxes.size());
  // A box that is empty on an axis, or NaN, meets nothing: it need not be found.
  for (std::uint32_t i = 0; i < boxes.size(); ++i) {
    const Box& box = boxes[i];
    if (box.min.x <= box.max.x && box.min.y <= box.max.y && box.min.z <= box.max.z) mEntries.push_back({box, i});
  }
  mNodes.reserve(mEntries.size() / (kLeafSize / 4) + 1);
  if (!mEntries.empty()) build(mEntries);
}

void BoxIndex::build(std::span<Entry> entries) {
  const std::size_t node = mNodes.size();
  mNodes.emplace_back();
  Box bounds;
  for (const Entry& entry : entries) bounds.extend(entry.box);
  mNodes[node].bounds = bounds;
  if (entries.size() <= kLeafSize) {
    mNodes[node].first = static_cast<std::uint32_t>(entries.data() - mEntries.data());
    mNodes[node].count = static_cast<std::uint32_t>(entries.size());
  } else {
    const Vec3 extent = bounds.max - bounds.min;
    const int axis = extent.x >= extent.y && extent.x >= extent.z ? 0 : extent.y >= extent.z ? 1 : 2;
    const auto half = static_cast<std::ptrdiff_t>(entries.size() / 2);
    std::ranges::nth_element(entries, entries.begin() + half, {},
                             [axis](const Entry& entry) { return middleOn(entry.box, axis); });
    mNodes[node].first = mNodes[node].count = 0;
    build(entries.first(static_cast<std::size_t>(half)));
    build(entries.subspan(static_cast<std::size_t>(half)));
  }
  mNodes[node].next = static_cast<std::uint32_t>(mNodes.size());
}

void BoxIndex::markMeeting(const ViewVolume& volume, std::span<std::uint64_t> marks) const {
  for (std::size_t n = 0; n < mNodes.size();) {
    const Node& node = mNodes[n];
    if (volume.isCertainlyApart(node.bounds)) {
      n = node.next;
      continue;
    }
    for (std::uint32_t i = node.first; i < node.first + node.count; ++i) {
      const Entry& entry = mEntries[i];
      if (volume.meets(entry.box)) marks[entry.index / 64] |= std::uint64_t{1} << (entry.index % 64);
    }
    ++n;
  }
}

}  // namespace util
