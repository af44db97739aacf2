#include <facetbox/spatial/BoxJoin.h>

#include <algorithm>

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

}  // namespace

std::uint64_t BoxJoin::curveKey(const GridBox& box) {
  std::uint64_t key = 0;
  for (int axis = 0; axis < 3; ++axis) {
    const std::int64_t middleTwice = std::int64_t{box.min[axis]} + box.max[axis];  // 32 bits
    key |= spread(static_cast<std::uint64_t>(middleTwice) >> 11) << axis;
  }
  return key;
}

BoxJoin::BoxJoin(std::span<const GridBox> boxes) {
  std::size_t blocks = 0;
  for (std::size_t count = boxes.size(); count != 0; count = count == 1 ? 0 : count) {
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
  for (std::size_t i = 0; i < boxes.size(); ++i) extend(0, i, boxes[i]);
  for (std::size_t level = 1; level < mLevels.size(); ++level) {
    const std::size_t below = mLevels[level] - mLevels[level - 1];
    for (std::size_t child = 0; child < below * kWidth; ++child)
      extend(level, child / kWidth, childBox(level - 1, child));
  }
}

}  // namespace util
