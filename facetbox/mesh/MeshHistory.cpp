#include <facetbox/mesh/MeshHistory.h>

#include <algorithm>
#include <cassert>
#include <numeric>
#include <utility>

namespace util {

NumberHistory::NumberHistory(std::size_t count) {
  for (std::vector<std::uint32_t>* numbers : {&mMap, &mSources}) {
    reserveLarge(*numbers, count);
    numbers->resize(count);
  }
  std::iota(mMap.begin(), mMap.end(), std::uint32_t{0});
  std::iota(mSources.begin(), mSources.end(), std::uint32_t{0});
}

void NumberHistory::join(std::uint32_t item, std::uint32_t target) {
  assert(item < mSources.size() && target < mSources.size() && item != target);
  if (mTargets.size() <= item) mTargets.resize(mSources.size(), kNone);
  if (mTargets[item] == kNone) mTargets[item] = target;
}

std::uint32_t NumberHistory::firstItemOf(std::uint32_t item) {
  if (mFirstItems.empty()) {
    mFirstItems.resize(mSources.size(), kNone);
    for (auto first = static_cast<std::uint32_t>(mMap.size()); first-- > 0;)
      if (mMap[first] != kNone) mFirstItems[mMap[first]] = first;
  }
  return item < mFirstItems.size() ? mFirstItems[item] : kNone;
}

/// @param numbers  per present item its new number; what was joined follows its targets here
void NumberHistory::followTargets(Buffer<std::uint32_t>& numbers) {
  // Each chain of targets is walked once, as what is passed is no longer joined: all on it lead where its end does. A
  // circle, whose items have all been dropped, leads nowhere.
  std::vector<std::uint32_t> chain;
  for (std::uint32_t item = 0; item < mTargets.size(); ++item) {
    chain.clear();
    std::uint32_t end = item;
    while (end < mTargets.size() && mTargets[end] != kNone) {
      chain.push_back(end);
      end = std::exchange(mTargets[end], kNone);
    }
    for (const std::uint32_t passed : chain) numbers[passed] = numbers[end];
  }
  mTargets.clear();
}

void MeshHistory::dropHole(std::uint32_t outer, std::uint32_t hole, facetbox::DroppedHole::Reason reason) {
  droppedHoles.push_back({faces.firstItemOf(outer), faces.firstItemOf(hole), reason});
  mDropped.emplace_back(outer, hole);
}

void MeshHistory::dropHolesOf(const HoleTable& holes, const FaceRenumbering& renumbering) {
  using Reason = facetbox::DroppedHole::Reason;
  auto known = std::exchange(mDropped, {});
  std::ranges::sort(known);
  const auto faceCount = renumbering.size();
  for (const HoleTable::Group& group : holes.groupsByOuter(faceCount))
    for (const std::uint32_t hole : group.holes) {
      const bool isGone = hole < faceCount && renumbering.isGone(hole);
      if (!isGone && !renumbering.isGone(group.outer)) continue;
      if (std::ranges::binary_search(known, std::pair(group.outer, hole))) continue;
      dropHole(group.outer, hole, isGone ? Reason::tooFewCorners : Reason::outerIsGone);
    }
  mDropped.clear();
}

}  // namespace util
