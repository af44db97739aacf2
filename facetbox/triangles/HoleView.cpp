#include <facetbox/triangles/HoleView.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace util {
namespace {

[[noreturn]] void throwIllegalHole() { throw std::runtime_error("illegal hole index."); }

/// Checks what feeding the groups relies on: a face's groups are finished and name faces that exist.
void checkHoles(const SmallIndexList& list, std::size_t faceCount) {
  for (auto group = list.begin(); group != list.end();) {
    const auto end = std::find(group, list.end(), HoleTable::kEnd);
    const bool isOfFace = group != end && *group < faceCount;
    if (isOfFace && (end == list.end() || std::any_of(group, end, [=](std::uint32_t f) { return f >= faceCount; })))
      throwIllegalHole();
    if (end == list.end()) return;
    group = end + 1;
  }
}

}  // namespace

HoleView::HoleView(const HoleTable& holes, std::size_t faceCount) {
  if (holes.empty()) return;
  checkHoles(holes.list(), faceCount);
  mGroups = holes.groupsByOuter(faceCount);
  mNext = mGroups;
  mIsHole.resize(faceCount);
  for (const HoleTable::Group& group : mGroups)
    for (const std::uint32_t hole : group.holes) mIsHole[hole] = true;
}

std::span<const HoleTable::Group> HoleView::groupsOf(std::size_t face) {
  std::size_t count = 0;
  while (count < mNext.size() && mNext[count].outer == face) ++count;
  const std::span<const HoleTable::Group> groups = mNext.first(count);
  mNext = mNext.subspan(count);
  return groups.first(std::min<std::size_t>(groups.size(), 1));
}

}  // namespace util
