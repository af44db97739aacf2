#include <facetbox/util/spatial/BoxIndex.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace util {

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr double kFarthestFloat = std::numeric_limits<float>::max();
constexpr std::size_t kAhead = 24;  // boxes are fetched before they are looked at, for they lie anywhere

float roundedDown(double value) {
  if (value < -kFarthestFloat) return -kInfinity;
  const auto rounded = static_cast<float>(std::min(value, kFarthestFloat));
  if (double{rounded} <= value) return rounded;
  // The float before it; there is one, and it is no NaN.
  const auto bits = std::bit_cast<std::uint32_t>(rounded);
  return std::bit_cast<float>(rounded > 0 ? bits - 1 : rounded < 0 ? bits + 1 : 0x80000001u);
}
float roundedUp(double value) { return -roundedDown(-value); }

/// For comparisons only: a box that goes from one infinity to the other has its middle at 0.
float middleOf(double min, double max) {
  const double sum = min / 2 + max / 2;
  return std::isnan(sum) ? 0.0f : roundedDown(sum);
}

}  // namespace

void BoxIndex::build(std::span<const Box> boxes) {
  std::vector<Key> keys;
  keys.reserve(boxes.size());
  mBlocks.clear();
  mLevelCount = 0;
  mSize = boxes.size();
  // A box that is empty on an axis, or NaN, meets nothing: it need not be found.
  for (std::uint32_t i = 0; i < boxes.size(); ++i) {
    const Vec3 &min = boxes[i].min, &max = boxes[i].max;
    if (min.x <= max.x && min.y <= max.y && min.z <= max.z)
      keys.push_back({{middleOf(min.x, max.x), middleOf(min.y, max.y), middleOf(min.z, max.z)}, i});
  }
  mOrder.clear();
  if (keys.empty()) return;
  arrange(keys);
  mOrder.reserve(keys.size());
  for (const Key& key : keys) mOrder.push_back(key.index);
  mBlocks.reserve(keys.size() / (kWidth - 1) + mLevels.size());

  std::size_t count = mOrder.size();
  do {
    const std::size_t start = mBlocks.size(), below = mLevelCount == 0 ? 0 : mLevels[mLevelCount - 1];
    for (std::size_t first = 0; first < count; first += kWidth) {
      BoxBlock block{};
      block.count = static_cast<std::uint32_t>(std::min(kWidth, count - first));
      for (std::size_t lane = 0; lane < block.count; ++lane) {
        float bounds[6];
        if (mLevelCount == 0) {
          if (first + lane + kAhead < count) __builtin_prefetch(&boxes[mOrder[first + lane + kAhead]]);
          const Box& box = boxes[mOrder[first + lane]];
          const float of[6] = {roundedDown(box.min.x), roundedDown(box.min.y), roundedDown(box.min.z),
                               roundedUp(box.max.x),   roundedUp(box.max.y),   roundedUp(box.max.z)};
          std::copy_n(of, 6, bounds);
        } else {
          const BoxBlock& child = mBlocks[below + first + lane];
          for (int row = 0; row < 6; ++row) {
            const float* values = child.bounds[row];
            bounds[row] = row < 3 ? *std::min_element(values, values + child.count)
                                  : *std::max_element(values, values + child.count);
          }
        }
        for (int row = 0; row < 6; ++row) {
          block.bounds[row][lane] = bounds[row];
          block.size = std::max(block.size, std::fabs(bounds[row]));
        }
      }
      mBlocks.push_back(block);
    }
    mLevels[mLevelCount] = start;
    ++mLevelCount;
    count = mBlocks.size() - start;
  } while (count > 1);
}

/// Orders the keys so that each run of a power of eight that a block stands for is a compact one.
void BoxIndex::arrange(std::span<Key> keys) {
  if (keys.size() <= kWidth) return;
  std::size_t unit = kWidth;
  while (unit * kWidth < keys.size()) unit *= kWidth;
  const std::size_t half = (keys.size() + unit - 1) / unit / 2 * unit;
  float extents[3];
  for (int axis = 0; axis < 3; ++axis) {
    float min = kInfinity, max = -kInfinity;
    for (const Key& key : keys) {
      min = std::min(min, key.middle[axis]);
      max = std::max(max, key.middle[axis]);
    }
    extents[axis] = max - min;
  }
  const auto axis = std::max_element(extents, extents + 3) - extents;
  std::ranges::nth_element(keys, keys.begin() + static_cast<std::ptrdiff_t>(half), {},
                           [axis](const Key& key) { return key.middle[axis]; });
  arrange(keys.first(half));
  arrange(keys.subspan(half));
}

void BoxIndex::find(const ViewVolume& volume, Found& found, Instructions instructions) const {
  for (auto* bits : {&found.inside, &found.firm, &found.doubtful}) bits->assign((mSize + 63) / 64, 0);
  if (mLevelCount == 0) return;
  BoxDescent descent;
  descent.blocks = mBlocks.data();
  descent.levels = mLevels.data();
  descent.order = mOrder.data();
  descent.count = mOrder.size();
  for (std::size_t i = 0; i < 6; ++i) {
    BoxDescent::Plane& plane = descent.planes[i];
    const Vec3 normal = volume.normal(i);
    plane.x = static_cast<float>(normal.x);
    plane.y = static_cast<float>(normal.y);
    plane.z = static_cast<float>(normal.z);
    plane.low = static_cast<float>(volume.offset(i));
    plane.high = static_cast<float>(volume.farthest(i));
    plane.bit = 1 << i;
    const bool isPositive[3] = {normal.x > 0, normal.y > 0, normal.z > 0};
    for (std::size_t axis = 0; axis < 3; ++axis) {
      plane.inner[axis] = kWidth * (isPositive[axis] ? axis : axis + 3);
      plane.outer[axis] = kWidth * (isPositive[axis] ? axis + 3 : axis);
    }
  }
  descent.size = volume.size();
  descent.isHull = volume.isHull();
  descent.inside = found.inside.data();
  descent.firm = found.firm.data();
  descent.doubtful = found.doubtful.data();
  const std::size_t room = mOrder.size() / kWidth + 1 + kWidth;
  if (found.mRoom.size() < 2 * room) found.mRoom.resize(2 * room);
  descent.room[0] = found.mRoom.data();
  descent.room[1] = found.mRoom.data() + room;

#if defined(FACETBOX_HAS_AVX2)
  static const bool hasAvx2 = __builtin_cpu_supports("avx2");
  if (instructions == Instructions::best && hasAvx2) return descendBoxesAvx2(descent, mLevelCount - 1);
#endif
  descendBoxesBase(descent, mLevelCount - 1);
}

}  // namespace util
