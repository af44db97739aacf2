#include <facetbox/spatial/BoxTree.h>

#include <algorithm>
#include <cassert>
#include <cmath>

#include <facetbox/math/Rounding.h>

namespace util {

namespace {

constexpr float kInfinity = FloatBox::kInfinity;
/// 0 for a box that goes from one infinity to the other.
template <class Real>
float middleOf(Real min, Real max) {
  const Real sum = min / 2 + max / 2;
  return std::isnan(sum) ? 0.0f : roundedDown(sum);
}

}  // namespace

FloatBox FloatBox::around(const Box& box) {
  return {{roundedDown(box.min.x), roundedDown(box.min.y), roundedDown(box.min.z)},
          {roundedUp(box.max.x), roundedUp(box.max.y), roundedUp(box.max.z)}};
}

void FloatBox::extend(const FloatBox& box) {
  for (int axis = 0; axis < 3; ++axis) {
    min[axis] = std::min(min[axis], box.min[axis]);
    max[axis] = std::max(max[axis], box.max[axis]);
  }
}

BoxKey BoxKey::of(std::uint32_t number, const Box& box) {
  return {{middleOf(box.min.x, box.max.x), middleOf(box.min.y, box.max.y), middleOf(box.min.z, box.max.z)}, number};
}

BoxKey BoxKey::of(std::uint32_t number, const FloatBox& box) {
  return {{middleOf(box.min[0], box.max[0]), middleOf(box.min[1], box.max[1]), middleOf(box.min[2], box.max[2])},
          number};
}

void splitAtMedian(std::span<BoxKey> keys, std::size_t half) {
  float extents[3];
  for (int axis = 0; axis < 3; ++axis) {
    float min = kInfinity, max = -kInfinity;
    for (const BoxKey& key : keys) {
      min = std::min(min, key.middle[axis]);
      max = std::max(max, key.middle[axis]);
    }
    extents[axis] = max - min;
  }
  const auto axis = std::max_element(extents, extents + 3) - extents;
  std::ranges::nth_element(keys, keys.begin() + static_cast<std::ptrdiff_t>(half), {},
                           [axis](const BoxKey& key) { return key.middle[axis]; });
}

/// Orders the keys so that the boxes below each block, of any level, lie close together.
void BoxTree::arrange(std::span<BoxKey> keys) {
  if (keys.size() <= kWidth) return;
  std::size_t unit = kWidth;
  while (unit * kWidth < keys.size()) unit *= kWidth;
  const std::size_t half = (keys.size() + unit - 1) / unit / 2 * unit;
  splitAtMedian(keys, half);
  arrange(keys.first(half));
  arrange(keys.subspan(half));
}

/// Makes room for the blocks of all levels, and one to append to.
void BoxTree::allocateBlocks() {
  mLevels.clear();
  std::size_t blocks = 0, count = mBuilt;
  while (count != 0) {
    mLevels.push_back(static_cast<std::uint32_t>(blocks));
    count = (count + kWidth - 1) / kWidth;
    blocks += count;
    if (count == 1) break;
  }
  mLevels.push_back(static_cast<std::uint32_t>(blocks));
  mBlocks.resize(blocks + 1);
}

/// Makes a child of a block, or enlarges it.
void BoxTree::enlarge(BoxBlock& block, std::size_t lane, const FloatBox& box) {
  const bool isNew = lane >= block.count;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    float &min = block.bounds[axis][lane], &max = block.bounds[axis + 3][lane];
    min = isNew ? box.min[axis] : std::min(min, box.min[axis]);
    max = isNew ? box.max[axis] : std::max(max, box.max[axis]);
    block.magnitude = std::max({block.magnitude, std::fabs(min), std::fabs(max)});
  }
  if (isNew) block.count = static_cast<std::uint32_t>(lane + 1);
}

FloatBox BoxTree::boundsOf(const BoxBlock& block) {
  FloatBox bounds;
  for (std::size_t lane = 0; lane < block.count; ++lane)
    for (std::size_t axis = 0; axis < 3; ++axis) {
      bounds.min[axis] = std::min(bounds.min[axis], block.bounds[axis][lane]);
      bounds.max[axis] = std::max(bounds.max[axis], block.bounds[axis + 3][lane]);
    }
  return bounds;
}

void BoxTree::append(std::uint32_t number, const FloatBox& box) {
  assert(hasRoom());
  mOrder.push_back(number);
  mBounds.extend(box);
  enlarge(mBlocks.back(), mOrder.size() - 1 - mBuilt, box);
}

void BoxTree::extend(std::size_t place, const FloatBox& box) {
  assert(place < mBuilt);
  mBounds.extend(box);
  for (std::size_t level = 0; level + 1 < mLevels.size(); ++level) {
    const std::size_t block = place / kWidth;
    enlarge(mBlocks[mLevels[level] + block], place % kWidth, box);
    place = block;
  }
}

}  // namespace util
