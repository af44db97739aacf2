#include <facetbox/operations/RegionMerger.h>

#include <algorithm>
#include <cassert>

#include <facetbox/mesh/PolygonArea.h>

namespace util {

void RegionMerger::mergeFacesWithSharedEdge(std::uint32_t seed, std::span<const std::uint32_t> members,
                                            const Loop& outer, std::span<const Loop> inner) {
  assert(members.size() > 1 && std::ranges::is_sorted(members) && std::ranges::binary_search(members, seed));
  const std::uint32_t survivor = members.front();
  mRuns.changeLike(survivor, seed);
  const std::int32_t tag = m.mFaces.tag(seed);
  for (const std::uint32_t member : members) noteNewOuter(member, survivor);
  if (m.mHistory) {
    for (const std::uint32_t member : members.subspan(1)) m.mHistory->faces.join(member, survivor);
    m.mHistory->grownFaces.push_back(m.mHistory->faces.sources()[survivor]);
  }
  // Inner loops are read from the members' corners later: these have to stay.
  writeLoop(survivor, outer, inner.empty() ? roomOf(members) : 0);
  if (mTwins) mTwins->lay(survivor, m.mFaces.offset(survivor));
  m.mFaces.setTag(survivor, tag);
  extractAndRemoveHoles(seed, survivor, inner, members);
  mMergedCount += members.size() - 1;
}

/// Makes the inner loops hole faces: at the places of the members that are no longer needed, ascending, then at the end
/// of the list. Clears the other members.
void RegionMerger::extractAndRemoveHoles(std::uint32_t seed, std::uint32_t survivor, std::span<const Loop> holes,
                                         std::span<const std::uint32_t> members) {
  std::size_t next = 1;
  for (const Loop& loop : holes) {
    std::uint32_t face;
    if (next < members.size()) {
      face = members[next++];
      m.mFaces.setTag(face, -1);
    } else {
      face = static_cast<std::uint32_t>(m.mFaces.size());
      m.mFaces.appendLike(survivor, 0);
      if (m.mHistory) m.mHistory->faces.append();
      mRuns.faceAppended();
      mRuns.changeLike(face, seed);
    }
    writeLoop(face, loop, 0);
    if (mTwins) mTwins->layApart(face, m.mFaces.offset(face));
    mNewHoles.push_back({survivor, face});
  }
  for (; next < members.size(); ++next) m.mFaces.clear(members[next]);
}

/// How many corners of the pool, from the first member's place on without a gap, are all the members'.
std::uint32_t RegionMerger::roomOf(std::span<const std::uint32_t> members) const {
  const std::size_t begin = m.mFaces.offset(members.front());
  std::size_t end = begin;
  for (const std::uint32_t member : members) {
    if (m.mFaces.offset(member) != end) break;
    end += m.mFaces.cornerCount(member);
  }
  return static_cast<std::uint32_t>(end - begin);
}

void RegionMerger::writeLoop(std::uint32_t face, const Loop& loop, std::uint32_t room) {
  if (mTwins) mTwins->lift(loop);
  m.mFaces.setCorners(face, loop, room, mScratch);
  Vec3 normal;
  computeFaceNormal(m.mVertices, m.mFaces.corners(face), normal);
  m.mFaces.setNormal(face, normal);
}

void RegionMerger::noteNewOuter(std::uint32_t member, std::uint32_t survivor) {
  if (m.mHoles.empty()) return;
  if (mNewOuterOf.empty()) {
    mNewOuterOf.resize(mFaceCount);
    for (std::uint32_t face = 0; face < mNewOuterOf.size(); ++face) mNewOuterOf[face] = face;
  }
  mNewOuterOf[member] = survivor;
}

void RegionMerger::finish() {
  m.mHoles.regroup(mNewOuterOf, mNewHoles);
  mRuns.applyChanges();
  // Where holes have taken all places, no compaction follows that would settle what was joined.
  if (m.mHistory && !m.mFaces.anyCleared()) m.mHistory->faces.renumber([](std::uint32_t face) { return face; });
}

}  // namespace util
