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

Floats all(double value) {
  const auto rounded = static_cast<float>(value);
  return Floats{rounded, rounded, rounded, rounded};
}

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

/// A volume in floats.
struct BoxIndex::Planes {
  struct Plane {
    Floats x, y, z;    // of the normal
    Floats low, high;  // below low is inside, above high nothing
    Ints bit;
    // Rows of the bounds that are the farthest inside and outside, as numbers of floats from the first.
    std::array<std::size_t, 3> inner, outer;

    Floats heights(const Block& block, const std::array<std::size_t, 3>& rows, std::size_t from) const {
      const float* bounds = block.bounds[0] + from;
      return x * load(bounds + rows[0]) + y * load(bounds + rows[1]) + z * load(bounds + rows[2]);
    }
  };

  explicit Planes(const ViewVolume& ofVolume) : volume(ofVolume) {
    for (std::size_t i = 0; i < 6; ++i) {
      const Vec3 normal = volume.normal(i);
      Plane& plane = of[i];
      plane.x = all(normal.x);
      plane.y = all(normal.y);
      plane.z = all(normal.z);
      plane.low = all(volume.offset(i));
      plane.high = all(volume.farthest(i));
      const int bit = 1 << i;
      plane.bit = Ints{bit, bit, bit, bit};
      const bool isPositive[3] = {normal.x > 0, normal.y > 0, normal.z > 0};
      for (std::size_t axis = 0; axis < 3; ++axis) {
        plane.inner[axis] = kWidth * (isPositive[axis] ? axis : axis + 3);
        plane.outer[axis] = kWidth * (isPositive[axis] ? axis + 3 : axis);
      }
    }
  }

  const ViewVolume& volume;
  Plane of[6];
};

// Rounding: a coordinate of a normal, of at most 1, is off by 2^-25 and a product and a sum by half an ulp each; so
// the sum of three is off by less than 3 (2^-25 + 3 2^-24) M, M being the largest coordinate there is, and the bound
// of a plane by 2^-24 sqrt(3) M: less than 8e-7 M. With the volume's own margin of 4.8e-7 M a box is beyond a plane.
//
// A box is inside, or a point in the sense of ViewVolume::isHull(), when it is below a plane by more: 4.8e-7 M, by
// which the faces of a hull may bend, a firm margin of 1.44e-6 M and that times sqrt(3) for the rims that a box or one
// around it has to do without, and 2e-7 M, by which a corner was rounded outward, make 5.4e-6 M.
constexpr double kMargin = 6e-6;
// Keeps margins clear of underflow, and squares of overflow.
constexpr double kSmallest = 1e-25, kLargest = 1e25;

void BoxIndex::build(std::span<const Box> boxes) {
  mKeys.clear();
  mBlocks.clear();
  mLevelCount = 0;
  mSize = boxes.size();
  // A box that is empty on an axis, or NaN, meets nothing: it need not be found.
  for (std::uint32_t i = 0; i < boxes.size(); ++i) {
    const Vec3 &min = boxes[i].min, &max = boxes[i].max;
    if (min.x <= max.x && min.y <= max.y && min.z <= max.z)
      mKeys.push_back({{middleOf(min.x, max.x), middleOf(min.y, max.y), middleOf(min.z, max.z)}, i});
  }
  if (mKeys.empty()) return;
  arrange(mKeys);

  std::size_t count = mKeys.size(), reach = kWidth;
  do {
    const std::size_t start = mBlocks.size(), below = mLevelCount == 0 ? 0 : mLevels[mLevelCount - 1];
    for (std::size_t first = 0; first < count; first += kWidth) {
      Block block{};
      block.count = static_cast<std::uint32_t>(std::min(kWidth, count - first));
      for (std::size_t lane = 0; lane < block.count; ++lane) {
        float bounds[6];
        if (mLevelCount == 0) {
          const Box& box = boxes[mKeys[first + lane].index];
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

void BoxIndex::find(const ViewVolume& volume, Found& found) const {
  for (auto* bits : {&found.inside, &found.firm, &found.doubtful}) bits->assign((mSize + 63) / 64, 0);
  if (mLevelCount != 0) visit(mLevelCount - 1, 0, 63, Planes(volume), found);
}

/// @param open  bits of the planes that the block is not known to be inside of
void BoxIndex::visit(std::size_t level, std::size_t number, unsigned open, const Planes& planes, Found& found) const {
  const Block& block = mBlocks[mLevels[level] + number];
  const double size = planes.volume.size() + double{block.size};
  const Floats margin = all(size >= kSmallest && size <= kLargest ? kMargin * size : kInfinity);

  Ints apartLow{}, apartHigh{};
  for (unsigned rest = open; rest != 0; rest &= rest - 1) {
    const Planes::Plane& plane = planes.of[std::countr_zero(rest)];
    const Floats bound = plane.high + margin;
    apartLow |= plane.heights(block, plane.inner, 0) > bound;
    apartHigh |= plane.heights(block, plane.inner, 4) > bound;
  }
  unsigned lanes = zerosOf(apartLow, apartHigh) & ((1u << block.count) - 1);
  if (lanes == 0) return;

  // Bits of the planes that a lane is not known to be inside of.
  std::int32_t openOf[kWidth];
  unsigned firm = 0;
  Ints isUnfirm[2]{};
  for (std::size_t from = 0; from < kWidth; from += 4) {
    if ((lanes >> from & 15) == 0) continue;
    Ints opened{}, shallow{}, isBeyond{}, isCentreOut{};
    for (unsigned rest = open; rest != 0; rest &= rest - 1) {
      const Planes::Plane& plane = planes.of[std::countr_zero(rest)];
      const Floats bound = plane.low - margin, highest = plane.heights(block, plane.outer, from);
      opened |= ~(highest < bound) & plane.bit;
      if (level != 0) continue;
      const Floats lowest = plane.heights(block, plane.inner, from);
      shallow |= ~(lowest < bound) & plane.bit;
      isBeyond |= highest > plane.high + margin;
      isCentreOut |= ~(0.5f * (lowest + highest) < bound);
    }
    std::memcpy(openOf + from, &opened, sizeof opened);
    // Inside all planes is the centre, or the corner that is the farthest inside the only plane that is open.
    const Ints isCornerOut = ((opened & (opened - 1)) != 0) | ((opened & shallow) != 0);
    isUnfirm[from / 4] = ~isBeyond | (isCentreOut & isCornerOut);
    for (int row = 0; row < 3; ++row)
      isUnfirm[from / 4] |= ~(load(block.bounds[row + 3] + from) - load(block.bounds[row] + from) > margin);
  }
  if (level == 0 && planes.volume.isHull()) firm = zerosOf(isUnfirm[0], isUnfirm[1]);

  const auto mark = [this](std::size_t place, std::vector<std::uint64_t>& bits) {
    const std::uint32_t index = mKeys[place].index;
    bits[index / 64] |= std::uint64_t{1} << (index % 64);
  };
  for (; lanes != 0; lanes &= lanes - 1) {
    const auto lane = static_cast<std::size_t>(std::countr_zero(lanes));
    const std::size_t place = kWidth * number + lane;
    const auto still = static_cast<unsigned>(openOf[lane]);
    if (level == 0) {
      // A box inside all planes has its inner sphere there.
      mark(place, still == 0 ? found.inside : (firm >> lane & 1) != 0 ? found.firm : found.doubtful);
    } else if (still != 0) {
      visit(level - 1, place, still, planes, found);
    } else {
      const std::size_t reach = mReach[level - 1], end = std::min(mKeys.size(), (place + 1) * reach);
      for (std::size_t i = place * reach; i < end; ++i) mark(i, found.inside);
    }
  }
}

}  // namespace util
