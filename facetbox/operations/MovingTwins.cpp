#include <facetbox/operations/MovingTwins.h>

#include <algorithm>
#include <utility>

namespace util {

void MovingTwins::lift(std::span<const std::uint32_t> loop) {
  mLifted.clear();
  for (const std::uint32_t corner : loop) mLifted.push_back(mTwins.mCorners[corner]);
}

void MovingTwins::lay(std::uint32_t face, std::size_t begin) {
  mChanged.push_back(face);
  auto corner = static_cast<std::uint32_t>(begin);
  if (begin + mLifted.size() > mTwins.mCorners.size()) mTwins.mCorners.resize(begin + mLifted.size());
  for (const auto& [twin, from] : mLifted) {
    mTwins.mCorners[corner] = {twin, face | (from & EdgeTwins::kAsideBit)};
    if (twin != EdgeTwins::kNone) mTwins.mCorners[twin].mTwin = corner;
    ++corner;
  }
}

void MovingTwins::layApart(std::uint32_t face, std::size_t begin) {
  for (auto& [twin, from] : mLifted) {
    if (twin != EdgeTwins::kNone) {
      mChanged.push_back(mTwins.faceOf(twin));
      mTwins.mCorners[twin] = {EdgeTwins::kNone, mTwins.faceOf(twin)};
    }
    twin = EdgeTwins::kNone;
    from = 0;
  }
  lay(face, begin);
}

std::vector<std::uint32_t> MovingTwins::takeChanged() {
  std::ranges::sort(mChanged);
  return std::exchange(mChanged, {});
}

}  // namespace util
