#include <facetbox/operations/TexCoordTree.h>

#include <algorithm>
#include <bit>
#include <cassert>
#include <limits>
#include <numeric>

namespace util {
namespace {

constexpr std::size_t kLeafSize = 12;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// What comparing two copies costs, in steps of sorting them.
constexpr double kPairCost = 8;

/// A split that leaves no more of the pairs than this is good enough.
constexpr double kGoodSplit = 0.6;

/// Writes a set's coordinates at the corners, which are sorted by vertex.
void writeSet(const PrimitiveList& faces, const Buffer<Vec2>& pairs, std::uint32_t face, int set,
              std::span<const std::uint32_t> corners, double* out) {
  const std::size_t n = corners.size();
  const auto pairOf = [&](std::size_t i) { return faces.cornerSet(face, set)[corners[i]]; };
  bool isMatchable = faces.carries(face, set);
  for (std::size_t i = 0; isMatchable && i < n; ++i) isMatchable = pairOf(i) < pairs.size();
  if (!isMatchable) {
    std::fill_n(out, 2 * n, -kInfinity);
    return;
  }
  const auto vertexOf = [&](std::size_t i) { return faces.corners(face)[corners[i]]; };
  for (std::size_t begin = 0, end = 0; begin < n; begin = end) {
    bool isFinite = true;
    for (; end < n && vertexOf(end) == vertexOf(begin); ++end) {
      const Vec2 pair = pairs[pairOf(end)];
      isFinite = isFinite && std::isfinite(pair.x) && std::isfinite(pair.y);
      out[end] = pair.x;
      out[n + end] = pair.y;
    }
    // A pair with one finite coordinate may still be at a NaN distance from others, and that counts as close.
    for (double* axis : {out, out + n})
      if (isFinite)
        std::sort(axis + begin, axis + end);
      else
        std::fill(axis + begin, axis + end, std::numeric_limits<double>::quiet_NaN());
  }
}

}  // namespace

TexCoordTree::TexCoordTree(const MeshStorage& mesh, std::span<const std::uint32_t> copies, double tolerance)
    : mTolerance(tolerance), mItems(copies.size()), mNodes(1) {
  assert(!copies.empty() && std::ranges::is_sorted(copies));
  fillValues(mesh, copies);
  std::iota(mItems.begin(), mItems.end(), 0u);
  build(0, mItems, 0);
}

void TexCoordTree::fillValues(const MeshStorage& mesh, std::span<const std::uint32_t> copies) {
  const PrimitiveList& faces = mesh.mFaces;
  std::uint32_t sets = 0;
  for (const std::uint32_t face : copies) sets |= faces.mask(face) & ((1u << PrimitiveList::kTexCoordSets) - 1);
  const std::size_t n = faces.cornerCount(copies[0]);
  mDimensions = 2 * n * static_cast<std::size_t>(std::popcount(sets));
  mValues.resize(copies.size() * mDimensions);
  std::vector<std::uint32_t> corners(n);
  double* out = mValues.data();
  for (const std::uint32_t face : copies) {
    std::iota(corners.begin(), corners.end(), 0u);
    std::ranges::sort(corners, {}, [vertices = faces.corners(face)](std::uint32_t i) { return vertices[i]; });
    for (std::uint32_t bits = sets; bits != 0; bits &= bits - 1, out += 2 * n) {
      const int set = std::countr_zero(bits);
      writeSet(faces, mesh.mTexCoords[static_cast<std::size_t>(set)], face, set, corners, out);
    }
  }
}

void TexCoordTree::build(std::uint32_t node, std::span<std::uint32_t> items, std::size_t firstTried) {
  const auto count = static_cast<double>(items.size());
  mNodes[node] = {
      static_cast<std::uint32_t>(items.size()), 0, 0, 0, 0, static_cast<std::uint32_t>(items.data() - mItems.data())};
  if (items.size() <= kLeafSize) return;
  const Split split = chooseSplit(items, firstTried);
  // Only what saves more than it costs.
  const double buildCost = static_cast<double>(mDimensions) * count * std::bit_width(items.size());
  if (!((count * count - split.cost) * kPairCost > buildCost)) return;

  const std::size_t dimension = split.dimension;
  const auto rest =
      std::partition(items.begin(), items.end(), [&](std::uint32_t i) { return !std::isnan(value(i, dimension)); });
  const auto upper =
      std::partition(items.begin(), rest, [&](std::uint32_t i) { return value(i, dimension) < split.upperBegin; });

  const auto children = static_cast<std::uint32_t>(mNodes.size());
  mNodes[node].children = children;
  mNodes[node].dimension = static_cast<std::uint32_t>(dimension);
  mNodes[node].lowerEnd = split.lowerEnd;
  mNodes[node].upperBegin = split.upperBegin;
  mNodes.resize(children + 3);
  // In turns: halves along ever the same dimension would soon be as thin as the tolerance.
  const std::size_t next = dimension + 1 < mDimensions ? dimension + 1 : 0;
  build(children, {items.begin(), upper}, next);
  build(children + 1, {upper, rest}, next);
  build(children + 2, {rest, items.end()}, next);
}

TexCoordTree::Split TexCoordTree::chooseSplit(std::span<const std::uint32_t> items, std::size_t firstTried) {
  const auto pairs = static_cast<double>(items.size()) * static_cast<double>(items.size());
  Split best{0, 0, 0, pairs};
  for (std::size_t i = 0; i < mDimensions && best.cost > kGoodSplit * pairs; ++i)
    rateDimension((firstTried + i) % mDimensions, items, best);
  return best;
}

/// Looks for the place along one dimension that leaves the fewest pairs (one searched for, one looked at).
void TexCoordTree::rateDimension(std::size_t dimension, std::span<const std::uint32_t> items, Split& best) {
  mSorted.clear();
  std::size_t absent = 0;
  for (const std::uint32_t item : items) {
    const double at = value(item, dimension);
    if (std::isnan(at)) continue;
    absent += std::isinf(at) ? 1 : 0;
    mSorted.push_back(at);
  }
  const std::size_t count = mSorted.size(), free = items.size() - count;
  if (count < 2) return;
  // @param lookLower, lookUpper  how many of the copies, those without a place apart, look at a part
  const auto rate = [&](std::size_t cut, double lowerEnd, std::size_t lookLower, std::size_t lookUpper) {
    const double cost = static_cast<double>(cut) * static_cast<double>(lookLower + free) +
                        static_cast<double>(count - cut) * static_cast<double>(lookUpper + free) +
                        static_cast<double>(free) * static_cast<double>(items.size());
    if (cost < best.cost) best = {dimension, lowerEnd, mSorted[cut], cost};
  };

  rateHalves(rate);
  if (best.cost > kGoodSplit * static_cast<double>(items.size()) * static_cast<double>(items.size()))
    rateAllCuts(absent, rate);
}

/// Rates the cut between the halves of mSorted, which needs no sorting, if a value separates them.
template <class Rate>
void TexCoordTree::rateHalves(Rate rate) {
  const std::size_t cut = mSorted.size() / 2;
  const auto middle = mSorted.begin() + static_cast<std::ptrdiff_t>(cut);
  std::nth_element(mSorted.begin(), middle, mSorted.end());
  const double lowerEnd = *std::max_element(mSorted.begin(), middle);
  if (!(lowerEnd < *middle)) return;
  std::size_t lookLower = 0, lookUpper = 0;
  for (const double at : mSorted) {
    lookLower += at - lowerEnd >= mTolerance ? 0 : 1;
    lookUpper += *middle - at >= mTolerance && !std::isinf(at) ? 0 : 1;
  }
  rate(cut, lowerEnd, lookLower, lookUpper);
}

/// Rates every cut; sorts mSorted.
/// @param absent  how many of them lack the set
template <class Rate>
void TexCoordTree::rateAllCuts(std::size_t absent, Rate rate) {
  const std::size_t count = mSorted.size();
  std::ranges::sort(mSorted);
  if (!(mSorted.back() - mSorted.front() >= mTolerance)) return;  // nothing is told from anything
  std::size_t reachLower = 0, reachUpper = 0;  // end of those that look at the lower part, begin of the upper's
  for (std::size_t cut = 1; cut < count; ++cut) {
    while (reachLower < count && !(mSorted[reachLower] - mSorted[cut - 1] >= mTolerance)) ++reachLower;
    while (mSorted[cut] - mSorted[reachUpper] >= mTolerance) ++reachUpper;
    // Those that lack the set look everywhere.
    const std::size_t upper = count - std::max(reachUpper, absent) + absent;
    if (mSorted[cut - 1] < mSorted[cut]) rate(cut, mSorted[cut - 1], reachLower, upper);
  }
}

}  // namespace util
