#include <facetbox/util/spatial/BoxIndex.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

namespace util {

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

using Floats = float __attribute__((vector_size(16)));
using Ints = std::int32_t __attribute__((vector_size(16)));

Floats load(const float* values) {
  Floats loaded;
  std::memcpy(&loaded, values, sizeof loaded);
  return loaded;
}

/// Bit i is set where lane i of the eight is 0.
unsigned zerosOf(Ints low, Ints high) {
  const Ints bits = (~low & Ints{1, 2, 4, 8}) | (~high & Ints{16, 32, 64, 128});
  std::uint64_t halves[2];
  std::memcpy(halves, &bits, sizeof halves);
  const std::uint64_t both = halves[0] | halves[1];
  return static_cast<unsigned>((both | both >> 32) & 255);
}

constexpr double kFarthestFloat = std::numeric_limits<float>::max();

float roundedDown(double value) {
  if (value < -kFarthestFloat) return -kInfinity;
  const auto rounded = static_cast<float>(std::min(value, kFarthestFloat));
  return double{rounded} <= value ? rounded : std::nextafter(rounded, -kInfinity);
}
float roundedUp(double value) { return -roundedDown(-value); }

/// For comparisons only: a box that goes from one infinity to the other has its middle at 0.
float middleOf(double min, double max) {
  const double sum = min / 2 + max / 2;
  return std::isnan(sum) ? 0.0f : roundedDown(sum);
}

}  // namespace

/// The planes of a volume in floats.
struct BoxIndex::Planes {
  float x[6], y[6], z[6], low[6], high[6];  // below low is inside, above high nothing
  int nearX[6], nearY[6], nearZ[6];         // rows of the bounds that are the farthest inside; the others are 3 apart
  double size;
};

// Rounding: a coordinate of a normal, of at most 1, is off by 2^-25 and a product and a sum by half an ulp each; so
// the sum of three is off by less than 3 (2^-25 + 3 2^-24) M, M being the largest coordinate there is, and the bound
// of a plane by 2^-24 sqrt(3) M: less than 8e-7 M. The rest is the volume's own margin of 4.8e-7 M.
constexpr double kMargin = 4e-6;
// Keeps margins clear of underflow, and squares of overflow.
constexpr double kSmallest = 1e-25, kLargest = 1e25;

void BoxIndex::build(std::span<const Box> boxes) {
  mKeys.clear();
  mBlocks.clear();
  mBoxes.clear();
  mLevelCount = 0;
  // A box that is empty on an axis, or NaN, meets nothing: it need not be found.
  for (std::uint32_t i = 0; i < boxes.size(); ++i) {
    const Vec3 &min = boxes[i].min, &max = boxes[i].max;
    if (min.x <= max.x && min.y <= max.y && min.z <= max.z)
      mKeys.push_back({{middleOf(min.x, max.x), middleOf(min.y, max.y), middleOf(min.z, max.z)}, i});
  }
  if (mKeys.empty()) return;
  arrange(mKeys);
  for (const Key& key : mKeys) mBoxes.push_back(boxes[key.index]);

  std::size_t count = mBoxes.size(), reach = kWidth;
  do {
    const std::size_t start = mBlocks.size(), below = mLevelCount == 0 ? 0 : mLevels[mLevelCount - 1];
    for (std::size_t first = 0; first < count; first += kWidth) {
      Block block{};
      block.count = static_cast<std::uint32_t>(std::min(kWidth, count - first));
      for (std::size_t lane = 0; lane < block.count; ++lane) {
        float bounds[6];
        if (mLevelCount == 0) {
          const Box& box = mBoxes[first + lane];
          const float of[6] = {roundedDown(box.min.x), roundedDown(box.min.y), roundedDown(box.min.z),
                               roundedUp(box.max.x),   roundedUp(box.max.y),   roundedUp(box.max.z)};
          std::copy_n(of, 6, bounds);
        } else {
          const Block& child = mBlocks[below + first + lane];
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
    mReach[mLevelCount++] = reach;
    reach *= kWidth;
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

void BoxIndex::markMeeting(const ViewVolume& volume, std::span<std::uint64_t> marks) const {
  if (mLevelCount == 0) return;
  Planes planes;
  for (std::size_t i = 0; i < 6; ++i) {
    const Vec3& normal = volume.normal(i);
    planes.x[i] = static_cast<float>(normal.x);
    planes.y[i] = static_cast<float>(normal.y);
    planes.z[i] = static_cast<float>(normal.z);
    planes.low[i] = static_cast<float>(volume.offset(i));
    planes.high[i] = static_cast<float>(volume.farthest(i));
    planes.nearX[i] = normal.x > 0 ? 0 : 3;
    planes.nearY[i] = normal.y > 0 ? 1 : 4;
    planes.nearZ[i] = normal.z > 0 ? 2 : 5;
  }
  planes.size = volume.size();
  visit(mLevelCount - 1, 0, 63, volume, planes, marks);
}

/// @param open  bits of the planes that the block is not known to be inside of
void BoxIndex::visit(std::size_t level, std::size_t number, unsigned open, const ViewVolume& volume,
                     const Planes& planes, std::span<std::uint64_t> marks) const {
  const Block& block = mBlocks[mLevels[level] + number];
  const double size = planes.size + double{block.size};
  const float margin = size >= kSmallest && size <= kLargest ? static_cast<float>(kMargin * size) : kInfinity;

  const auto heights = [&](std::size_t i, int x, int y, int z, int from) {
    return planes.x[i] * load(block.bounds[x] + from) + planes.y[i] * load(block.bounds[y] + from) +
           planes.z[i] * load(block.bounds[z] + from);
  };
  Ints apartLow{}, apartHigh{};
  for (unsigned rest = open; rest != 0; rest &= rest - 1) {
    const auto i = static_cast<std::size_t>(std::countr_zero(rest));
    const float bound = planes.high[i] + margin;
    apartLow |= heights(i, planes.nearX[i], planes.nearY[i], planes.nearZ[i], 0) > bound;
    apartHigh |= heights(i, planes.nearX[i], planes.nearY[i], planes.nearZ[i], 4) > bound;
  }
  unsigned lanes = zerosOf(apartLow, apartHigh) & ((1u << block.count) - 1);
  if (lanes == 0) return;

  Ints openLow{}, openHigh{};
  for (unsigned rest = open; rest != 0; rest &= rest - 1) {
    const auto i = static_cast<std::size_t>(std::countr_zero(rest));
    const float bound = planes.low[i] - margin;
    const int bit = 1 << i;
    const int x = (planes.nearX[i] + 3) % 6, y = (planes.nearY[i] + 3) % 6, z = (planes.nearZ[i] + 3) % 6;
    openLow |= ~(heights(i, x, y, z, 0) < bound) & bit;
    openHigh |= ~(heights(i, x, y, z, 4) < bound) & bit;
  }
  std::int32_t openOf[kWidth];
  std::memcpy(openOf, &openLow, sizeof openLow);
  std::memcpy(openOf + 4, &openHigh, sizeof openHigh);

  const auto mark = [&](std::size_t place) {
    const std::uint32_t index = mKeys[place].index;
    marks[index / 64] |= std::uint64_t{1} << (index % 64);
  };
  for (; lanes != 0; lanes &= lanes - 1) {
    const auto lane = static_cast<std::size_t>(std::countr_zero(lanes));
    const std::size_t place = kWidth * number + lane;
    const auto still = static_cast<unsigned>(openOf[lane]);
    if (level == 0) {
      // A box inside all planes has its inner sphere there.
      if (still == 0 || volume.meets(mBoxes[place])) mark(place);
    } else if (still != 0) {
      visit(level - 1, place, still, volume, planes, marks);
    } else {
      const std::size_t reach = mReach[level - 1], end = std::min(mKeys.size(), (place + 1) * reach);
      for (std::size_t i = place * reach; i < end; ++i) mark(i);
    }
  }
}

}  // namespace util
