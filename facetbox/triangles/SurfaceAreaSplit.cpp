#include <facetbox/triangles/SurfaceAreaSplit.h>

#include <algorithm>
#include <cassert>
#include <cstddef>

#include <facetbox/triangles/TriangleBvh.h>

namespace util {
namespace {

constexpr float kInfinity = FloatBounds::kInfinity;
constexpr std::uint32_t kBlockSize = TriangleBvh::kWidth;

constexpr int kMostBins = 16;
/// Few triangles get few bins.
constexpr std::uint32_t kFewestBins = 4, kTrianglesPerBin = 4;
/// An axis along which centers are less apart than this is not split: the reciprocal would be infinite.
constexpr float kSmallestExtent = 1e-30F;
/// The last center must not be rounded into a bin of its own.
constexpr float kShareOfBins = 0.99F;
static_assert(kShareOfBins * (1 + 0x1p-20F) < 1);

/// Where a range is cut: triangles whose bin on `axis` is below `bin` go left.
struct Cut {
  int axis = -1;
  int bin = 0;
  float cost = kInfinity;
};

/// Maps twice a center to its bin on all three axes at once.
struct Binning {
  Float4 origin, scale;
  int count;

  explicit Binning(const TriangleRange& range)
      : origin(range.centers.low),
        count(static_cast<int>(std::min<std::uint32_t>(kMostBins, kFewestBins + range.size() / kTrianglesPerBin))) {
    const Float4 extent = range.centers.high - range.centers.low;
    for (int a = 0; a < 3; ++a)
      scale[a] = extent[a] > kSmallestExtent ? kShareOfBins * static_cast<float>(count) / extent[a] : 0.0F;
    scale[3] = 0;
  }
  Float4 place(const TriangleBox& box) const { return (box.centerTwice() - origin) * scale; }
};

float blocksFor(std::uint32_t count) { return static_cast<float>((count + kBlockSize - 1) / kBlockSize); }

/// Costs of a side: its surface times the blocks that it needs.
void improve(Cut& best, int axis, const FloatBounds* bins, const std::uint32_t* counts, int n) {
  float costs[kMostBins];
  FloatBounds box;
  std::uint32_t count = 0;
  for (int b = n - 1; b > 0; --b) {
    box.extend(bins[b].low, bins[b].high);
    count += counts[b];
    costs[b] = count == 0 ? kInfinity : box.halfArea() * blocksFor(count);
  }
  box = FloatBounds();
  count = 0;
  for (int b = 1; b < n; ++b) {
    box.extend(bins[b - 1].low, bins[b - 1].high);
    count += counts[b - 1];
    if (count == 0) continue;
    const float cost = box.halfArea() * blocksFor(count) + costs[b];
    if (cost < best.cost) best = {axis, b, cost};
  }
}
Cut bestCut(std::span<const TriangleBox> boxes, const TriangleRange& range, const Binning& binning) {
  FloatBounds bins[3][kMostBins];
  std::uint32_t counts[3][kMostBins];
  const int n = binning.count;
  for (int a = 0; a < 3; ++a)
    for (int b = 0; b < n; ++b) {
      bins[a][b] = FloatBounds();
      counts[a][b] = 0;
    }
  for (std::uint32_t i = range.begin; i < range.end; ++i) {
    const TriangleBox& box = boxes[i];
    const Float4 place = binning.place(box);
    const int x = static_cast<int>(place[0]), y = static_cast<int>(place[1]), z = static_cast<int>(place[2]);
    bins[0][x].extend(box.low, box.high);
    bins[1][y].extend(box.low, box.high);
    bins[2][z].extend(box.low, box.high);
    ++counts[0][x];
    ++counts[1][y];
    ++counts[2][z];
  }
  Cut best;
  for (int a = 0; a < 3; ++a)
    if (binning.scale[a] > 0) improve(best, a, bins[a], counts[a], n);
  return best;
}

std::pair<TriangleRange, TriangleRange> finish(const TriangleRange& range, std::uint32_t middle, TriangleRange& left,
                                               TriangleRange& right) {
  left.begin = range.begin;
  left.end = right.begin = middle;
  right.end = range.end;
  return {left, right};
}

std::pair<TriangleRange, TriangleRange> partition(std::span<TriangleBox> boxes, const TriangleRange& range,
                                                  const Binning& binning, const Cut& cut) {
  TriangleRange left, right;
  TriangleBox* first = boxes.data() + range.begin;
  TriangleBox* last = boxes.data() + range.end;
  const auto goesLeft = [&](const TriangleBox& box) {
    return static_cast<int>((box.centerTwice()[cut.axis] - binning.origin[cut.axis]) * binning.scale[cut.axis]) <
           cut.bin;
  };
  for (;;) {
    while (first != last && goesLeft(*first)) left.add(*first++);
    while (first != last && !goesLeft(*(last - 1))) right.add(*--last);
    if (first == last) break;
    std::swap(*first, *(last - 1));
  }
  return finish(range, static_cast<std::uint32_t>(first - boxes.data()), left, right);
}

}  // namespace

std::pair<TriangleRange, TriangleRange> splitBySurfaceArea(std::span<TriangleBox> boxes, const TriangleRange& range) {
  assert(range.begin < range.end && range.end <= boxes.size());
  const Binning binning(range);
  const Cut cut = bestCut(boxes, range, binning);
  return cut.axis >= 0 ? partition(boxes, range, binning, cut) : halve(boxes, range);
}

std::pair<TriangleRange, TriangleRange> halve(std::span<const TriangleBox> boxes, const TriangleRange& range) {
  TriangleRange left, right;
  const std::uint32_t middle = range.begin + range.size() / 2;
  for (std::uint32_t i = range.begin; i < range.end; ++i) (i < middle ? left : right).add(boxes[i]);
  return finish(range, middle, left, right);
}

}  // namespace util
