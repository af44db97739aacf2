#include <facetbox/operations/PinchGuard.h>

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <queue>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

// Why a worklist does what the repeated passes do, step by step:
// - What happens to a group at a face hangs on the group alone, on which of the face's corners are in it, and takes
//   only vertices of that group out. So the pairs of a face and a group can be looked at one by one, by ascending
//   faces.
// - A pair that was looked at without effect, and of which no corner has left since, has none again. Members never come
//   back. So it is enough to look at a pair in the first pass, and again when the passes next come to it after one of
//   its corners has left: in the same pass where it lies ahead, else in the next one. That is the order of (pass,
//   pair).
// - After a look, every corner left in the group that stands alone has lost a neighbor since, unless the face has
//   nearly all of its corners in the group; but then all of these are neighbors. So only neighbors of corners that
//   have left need to be looked at.
// - Two neighbors that are all of a group in a face never stand alone while both are in it: no pair. So every group of
//   a pair has two corners that are apart.
// - Of the corners that stand alone, the first on the way around is the lowest, but for corner 0: if that is in the
//   group, the way begins behind it.

namespace util {
namespace {

constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kSortFrom = 16;  // below it, comparing all pairs is cheaper than sorting

class PinchGuard {
 public:
  PinchGuard(const PrimitiveList& faces, VertexGroups& groups, Monitor* monitor)
      : mFaces(faces), mGroups(groups), mMonitor(monitor) {}

  void run() {
    {
      const Monitor::Part part(mMonitor, 0.0, 0.5);
      for (Monitor::Blocks blocks(mMonitor, mFaces.size()); blocks.next();)
        for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face)
          if (mFaces.cornerCount(face) > 3) addPairsOf(face);
    }
    if (mPairs.empty()) return;
    const Monitor::Part part(mMonitor, 0.5, 1.0, mPairs.size());
    linkMembers();
    for (std::uint32_t pair = 0; pair < mPairs.size(); ++pair) mWork.emplace(0, pair);
    while (!mWork.empty()) {
      std::tie(mPass, mCurrent) = mWork.top();
      mWork.pop();
      mPairs[mCurrent].isWaiting = false;
      look();
      if (mMonitor) mMonitor->tick();
    }
  }

 private:
  /// A corner that was in a group.
  struct Member {
    std::uint32_t corner, vertex;
    std::uint32_t pair = kNone;
    std::uint32_t nextOfVertex = kNone;  ///< the members of a vertex, one after the other
    std::uint32_t nextLeft = kNone;      ///< those that have left since the pair was looked at
  };
  /// A face and a group that two of its corners were in, or more, and not just two neighbors. No member from `end` on
  /// is in it any more.
  struct Pair {
    std::uint32_t face, group;
    std::uint32_t begin, end;  ///< in mMembers, by ascending corners
    std::uint32_t count;       ///< members that are still in the group
    std::uint32_t firstLeft = kNone;
    bool isNew = true, isWaiting = true;
  };

  void addPairsOf(std::uint32_t face) {
    const auto corners = mFaces.corners(face);
    if (corners.size() < kSortFrom && !hasTwoApartOfOneGroup(corners)) return;
    mGrouped.clear();
    for (std::uint32_t corner = 0; corner < corners.size(); ++corner)
      if (const std::uint32_t group = mGroups.groupOf(corners[corner]); group != VertexGroups::kNone)
        mGrouped.emplace_back(group, corner);
    std::ranges::sort(mGrouped);
    for (auto begin = mGrouped.begin(); begin != mGrouped.end();) {
      const auto end = std::find_if(begin, mGrouped.end(), [&](const auto& c) { return c.first != begin->first; });
      if (end - begin > 2 || (end - begin == 2 && areApart(begin->second, begin[1].second, corners.size()))) {
        const auto first = static_cast<std::uint32_t>(mMembers.size()), count = static_cast<std::uint32_t>(end - begin);
        const auto pair = static_cast<std::uint32_t>(mPairs.size());
        for (auto at = begin; at != end; ++at) mMembers.push_back({at->second, corners[at->second], pair});
        mPairs.push_back({face, begin->first, first, first + count, count});
      }
      begin = end;
    }
  }

  /// Whether two corners, the lower one first, are no neighbors in a face of `count` corners.
  static bool areApart(std::size_t low, std::size_t high, std::size_t count) {
    return high - low != 1 && high - low != count - 1;
  }

  bool hasTwoApartOfOneGroup(std::span<const std::uint32_t> corners) const {
    for (std::size_t i = 2; i < corners.size(); ++i) {
      const std::uint32_t group = mGroups.groupOf(corners[i]);
      if (group == VertexGroups::kNone) continue;
      for (std::size_t j = 0; j < i - 1; ++j)
        if (mGroups.groupOf(corners[j]) == group && areApart(j, i, corners.size())) return true;
    }
    return false;
  }

  void linkMembers() {
    for (const Member& member : mMembers) mHighestVertex = std::max(mHighestVertex, member.vertex);
    mFirstOfVertex.resize(std::size_t{mHighestVertex} + 1, kNone);
    for (std::uint32_t i = 0; i < mMembers.size(); ++i)
      mMembers[i].nextOfVertex = std::exchange(mFirstOfVertex[mMembers[i].vertex], i);
  }

  bool isIn(std::uint32_t member) const {
    return mGroups.groupOf(mMembers[member].vertex) == mPairs[mMembers[member].pair].group;
  }

  std::uint32_t memberBefore(const Pair& pair, std::uint32_t member) const {
    const std::uint32_t corner = mMembers[member].corner, last = mFaces.cornerCount(pair.face) - 1;
    if (corner == 0) return mMembers[pair.end - 1].corner == last ? pair.end - 1 : kNone;
    return member > pair.begin && mMembers[member - 1].corner == corner - 1 ? member - 1 : kNone;
  }
  std::uint32_t memberBehind(const Pair& pair, std::uint32_t member) const {
    const std::uint32_t corner = mMembers[member].corner, last = mFaces.cornerCount(pair.face) - 1;
    if (corner == last) return mMembers[pair.begin].corner == 0 ? pair.begin : kNone;
    return member + 1 < pair.end && mMembers[member + 1].corner == corner + 1 ? member + 1 : kNone;
  }

  /// @param member  may be kNone
  bool isAlone(const Pair& pair, std::uint32_t member) const {
    if (member == kNone || !isIn(member)) return false;
    const std::uint32_t before = memberBefore(pair, member), behind = memberBehind(pair, member);
    return !(before != kNone && isIn(before)) && !(behind != kNone && isIn(behind));
  }

  /// What a pass does when it comes to the current pair.
  void look() {
    Pair& pair = mPairs[mCurrent];
    std::uint32_t alone = kNone;
    const auto consider = [&](std::uint32_t member) {
      if (!isAlone(pair, member)) return;
      if (alone == kNone || mMembers[alone].corner == 0 || (mMembers[member].corner != 0 && member < alone))
        alone = member;
    };
    const bool isPinched = pair.count > 1 && pair.count + 2 <= mFaces.cornerCount(pair.face);
    if (isPinched && pair.isNew)
      for (std::uint32_t member = pair.begin; member < pair.end; ++member) consider(member);
    std::uint32_t left = std::exchange(pair.firstLeft, kNone);
    for (; isPinched && left != kNone; left = mMembers[left].nextLeft) {
      consider(memberBefore(pair, left));
      consider(memberBehind(pair, left));
    }
    pair.isNew = false;
    if (alone == kNone) return;
    if (mMembers[alone].corner == 0)
      leave(alone);
    else
      leaveFrom(alone);
  }

  /// From a member that is not among the face's leading ones on, all around to where the way began.
  void leaveFrom(std::uint32_t member) {
    const std::uint32_t begin = mPairs[mCurrent].begin, end = std::exchange(mPairs[mCurrent].end, member);
    std::uint32_t leadEnd = begin;
    while (mMembers[leadEnd].corner == leadEnd - begin && isIn(leadEnd)) ++leadEnd;
    for (std::uint32_t i = member; i < end; ++i) leave(i);
    for (std::uint32_t i = begin; i < leadEnd; ++i) leave(i);
  }

  /// Takes a member's vertex out of the group, if it is still in it.
  void leave(std::uint32_t member) {
    if (!isIn(member)) return;
    const std::uint32_t vertex = mMembers[member].vertex, other = mGroups.removeFromGroup(vertex);
    tellPairs(vertex);
    if (other != VertexGroups::kNone) tellPairs(other);
  }

  /// Lets the pairs of a vertex that has left be looked at again.
  void tellPairs(std::uint32_t vertex) {
    if (vertex > mHighestVertex) return;
    for (std::uint32_t i = mFirstOfVertex[vertex]; i != kNone; i = mMembers[i].nextOfVertex) {
      const std::uint32_t number = mMembers[i].pair;
      Pair& pair = mPairs[number];
      assert(pair.group == mPairs[mCurrent].group);
      --pair.count;
      mMembers[i].nextLeft = std::exchange(pair.firstLeft, i);
      if (std::exchange(pair.isWaiting, true)) continue;
      mWork.emplace(number > mCurrent ? mPass : mPass + 1, number);
    }
  }

  using Work = std::pair<std::uint32_t, std::uint32_t>;  // pass and pair

  const PrimitiveList& mFaces;
  VertexGroups& mGroups;
  Monitor* const mMonitor;
  std::vector<Pair> mPairs;
  std::vector<Member> mMembers;
  std::uint32_t mHighestVertex = 0;
  std::vector<std::uint32_t> mFirstOfVertex;
  std::priority_queue<Work, std::vector<Work>, std::greater<>> mWork;
  std::uint32_t mPass = 0, mCurrent = 0;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> mGrouped;  // scratch: groups and corners of a face
};

}  // namespace

void guardAgainstPinches(const PrimitiveList& faces, VertexGroups& groups, Monitor* monitor) {
  PinchGuard(faces, groups, monitor).run();
}

}  // namespace util
