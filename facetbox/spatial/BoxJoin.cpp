#include <facetbox/spatial/BoxJoin.h>

#include <algorithm>
#include <array>

namespace util {
namespace {

/// Moves the lower 21 bits apart: bit i to 3 i.
std::uint64_t spread(std::uint64_t bits) {
  bits = (bits | bits << 32) & 0x001F00000000FFFFu;
  bits = (bits | bits << 16) & 0x001F0000FF0000FFu;
  bits = (bits | bits << 8) & 0x100F00F00F00F00Fu;
  bits = (bits | bits << 4) & 0x10C30C30C30C30C3u;
  return (bits | bits << 2) & 0x1249249249249249u;
}

struct Place {
  std::uint64_t key;
  std::uint32_t number;
};

/// Sorts by key, and keeps the order of equal ones. By the upper bits first, which mostly tell all apart that matters.
void sortByKey(Buffer<Place>& places) {
  constexpr int kDigits = 3, kBits = 11, kLowest = 63 - kDigits * kBits;
  constexpr std::ptrdiff_t kFew = 8;  // as many boxes may stay in any order
  Buffer<Place> other(places.size());
  for (int shift = kLowest; shift < 63; shift += kBits) {
    const auto digitOf = [shift](const Place& place) { return place.key >> shift & ((1u << kBits) - 1); };
    std::array<std::uint32_t, (1 << kBits) + 1> ends{};
    for (const Place& place : places) ++ends[digitOf(place) + 1];
    for (std::size_t digit = 1; digit < ends.size(); ++digit) ends[digit] += ends[digit - 1];
    for (const Place& place : places) other[ends[digitOf(place)]++] = place;
    places.swap(other);
  }
  for (auto begin = places.begin(); begin != places.end();) {
    const std::uint64_t upper = begin->key >> kLowest;
    const auto end =
        std::find_if(begin, places.end(), [=](const Place& place) { return place.key >> kLowest != upper; });
    if (end - begin > kFew) std::stable_sort(begin, end, [](const Place& a, const Place& b) { return a.key < b.key; });
    begin = end;
  }
}

}  // namespace

std::uint64_t BoxJoin::curveKey(const GridBox& box) {
  std::uint64_t key = 0;
  for (int axis = 0; axis < 3; ++axis) {
    const std::int64_t middleTwice = std::int64_t{box.min[axis]} + box.max[axis];  // 32 bits
    key |= spread(static_cast<std::uint64_t>(middleTwice) >> 11) << axis;
  }
  return key;
}

Buffer<std::uint32_t> BoxJoin::orderOnCurve(std::span<const GridBox> boxes) {
  Buffer<Place> places(boxes.size());
  for (std::size_t i = 0; i < boxes.size(); ++i) places[i] = {curveKey(boxes[i]), static_cast<std::uint32_t>(i)};
  sortByKey(places);
  Buffer<std::uint32_t> order(boxes.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = places[i].number;
  return order;
}

BoxJoin::BoxJoin(std::span<const GridBox> boxes, std::span<const std::uint32_t> order) {
  std::size_t blocks = 0;
  for (std::size_t count = order.size(); count != 0; count = count == 1 ? 0 : count) {
    mLevels.push_back(blocks);
    count = (count + kWidth - 1) / kWidth;
    blocks += count;
  }
  Block empty;
  std::fill_n(empty.min[0], 3 * kWidth, std::numeric_limits<std::int32_t>::max());
  std::fill_n(empty.max[0], 3 * kWidth, std::numeric_limits<std::int32_t>::min());
  mBlocks.resize(blocks, empty);
  const auto extend = [this](std::size_t level, std::size_t child, const GridBox& box) {
    Block& block = mBlocks[mLevels[level] + child / kWidth];
    const std::size_t lane = child % kWidth;
    for (int axis = 0; axis < 3; ++axis) {
      block.min[axis][lane] = std::min(block.min[axis][lane], box.min[axis]);
      block.max[axis][lane] = std::max(block.max[axis][lane], box.max[axis]);
    }
  };
  constexpr std::size_t kAhead = 24;  // boxes lie anywhere in memory
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (i + kAhead < order.size()) __builtin_prefetch(&boxes[order[i + kAhead]]);
    extend(0, i, boxes[order[i]]);
  }
  for (std::size_t level = 1; level < mLevels.size(); ++level) {
    const std::size_t below = mLevels[level] - mLevels[level - 1];
    for (std::size_t child = 0; child < below * kWidth; ++child)
      extend(level, child / kWidth, childBox(level - 1, child));
  }
}

GridBox BoxJoin::bounds() const {
  const std::size_t top = mLevels.size() - 1;
  GridBox box = childBox(top, 0);
  for (std::size_t child = 1; child < kWidth; ++child) {
    const GridBox other = childBox(top, child);
    for (int axis = 0; axis < 3; ++axis) {
      box.min[axis] = std::min(box.min[axis], other.min[axis]);
      box.max[axis] = std::max(box.max[axis], other.max[axis]);
    }
  }
  return box;
}

}  // namespace util
