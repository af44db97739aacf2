#include <facetbox/spatial/OctreeOrder.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <numeric>

namespace util {

void OctreeOrder::add(const Box& box, const ChunkedVector<Box>& boxes) {
  mPlaces.makeRoom();
  const OctreeRoot root = mRoot.holding(box, mUnion);
  if (!isSame(root, mRoot)) {
    std::vector<std::uint32_t> order = numbersByTurn(), scratch(order.size());
    grow(root, order, scratch.data(), boxes);
    setTurns(order);
  }
  if (OctreeRoot::hasPlace(box)) mUnion.extend(box);
  mPlaces.push_back({static_cast<std::uint32_t>(mPlaces.size()), cellOf(box)});
}

std::vector<std::uint32_t> OctreeOrder::numbersByTurn() const {
  std::vector<std::uint32_t> order(mPlaces.size());
  for (std::uint32_t number = 0; number < order.size(); ++number) order[mPlaces[number].turn] = number;
  return order;
}

void OctreeOrder::setTurns(std::span<const std::uint32_t> numbers) {
  for (std::uint32_t turn = 0; turn < numbers.size(); ++turn) mPlaces[numbers[turn]].turn = turn;
}

std::vector<std::uint32_t> OctreeOrder::numbers() const {
  std::vector<std::uint32_t> sorted(mPlaces.size());
  sort(numbersByTurn(), sorted.data());
  return sorted;
}

/// Sorts by cell, and keeps the order within a cell.
void OctreeOrder::sort(std::span<const std::uint32_t> numbers, std::uint32_t* sorted) const {
  if (numbers.size() < 256) {  // too few for a pass over all cells to pay
    std::ranges::copy(numbers, sorted);
    std::stable_sort(sorted, sorted + numbers.size(),
                     [&](std::uint32_t a, std::uint32_t b) { return mPlaces[a].cell < mPlaces[b].cell; });
    return;
  }
  std::array<std::uint32_t, OctreeRoot::kCells[0]> next{};
  for (const std::uint32_t number : numbers) ++next[mPlaces[number].cell];
  std::exclusive_scan(next.begin(), next.end(), next.begin(), 0u);
  for (const std::uint32_t number : numbers) sorted[next[mPlaces[number].cell]++] = number;
}

/// Inserts these boxes, which come in the order of their turns, into another root.
void OctreeOrder::grow(const OctreeRoot& root, std::span<std::uint32_t> numbers, std::uint32_t* scratch,
                       const ChunkedVector<Box>& boxes) {
  assert(numbers.size() <= mPlaces.size() && mPlaces.size() == boxes.size());
  sort(numbers, scratch);
  std::copy_n(scratch, numbers.size(), numbers.begin());
  mRoot = root;
  if (numbers.size() == mPlaces.size()) {  // all: in the order of memory
    for (std::size_t number = 0; number < numbers.size(); ++number) mPlaces[number].cell = cellOf(boxes[number]);
    return;
  }
  for (const std::uint32_t number : numbers) mPlaces[number].cell = cellOf(boxes[number]);
}

}  // namespace util
