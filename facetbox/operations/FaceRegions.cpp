#include <facetbox/operations/FaceRegions.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <deque>
#include <functional>
#include <utility>

namespace util {
namespace {

constexpr std::uint32_t kNone = EdgeTwins::kNone;

}  // namespace

/// Finds what is no longer connected with the seed after faces were put out, in time that counts only the parts that
/// get cut off: searches start from every neighbor of the gap and take turns, face by face; those that meet go on as
/// one; as soon as a single one is left, it does not have to go on.
class FaceRegions::SplitSearch {
 public:
  explicit SplitSearch(FaceRegions& regions) : mRegions(regions) {}

  void run(std::span<const std::uint32_t> starts) {
    prepareLabels(starts.size());
    for (const std::uint32_t face : starts) {
      // A face that borders the gap twice starts once.
      if (!mRegions.isMember(face) || mRegions.mLabels[face] >= mRegions.mLabelBase) continue;
      const auto search = static_cast<std::uint32_t>(mSearches.size());
      mSearches.push_back({search, false, {}, {}});
      reach(search, face);
      mTurns.push_back(search);
    }
    std::size_t running = mTurns.size();
    while (running > 1) {
      const std::uint32_t turn = mTurns.front();
      mTurns.pop_front();
      if (mSearches[turn].mParent != turn) continue;  // goes on as part of another
      if (mSearches[turn].mOpen.empty()) {
        mFinished.push_back(turn);
        --running;
        continue;
      }
      running -= advance(turn);
      // Unless it has joined another, which has a turn of its own.
      if (mSearches[turn].mParent == turn) mTurns.push_back(turn);
    }
    putOutWhatIsCutOff();
    mRegions.mLabelBase += static_cast<std::uint32_t>(mSearches.size());
  }

 private:
  struct Search {
    std::uint32_t mParent;
    bool mHasSeed;
    std::vector<std::uint32_t> mDone, mOpen;  // faces reached, and of these those not yet looked around from
  };

  void prepareLabels(std::size_t searchCount) {
    if (mRegions.mLabels.empty()) mRegions.mLabels.resize(mRegions.mRegionOf.size(), 0);
    if (mRegions.mLabelBase == 0) mRegions.mLabelBase = 1;
    if (searchCount < 0xFFFFFFFFu - mRegions.mLabelBase) return;
    std::ranges::fill(mRegions.mLabels, 0u);
    mRegions.mLabelBase = 1;
  }

  std::uint32_t rootOf(std::uint32_t search) {
    while (mSearches[search].mParent != search)
      search = mSearches[search].mParent = mSearches[mSearches[search].mParent].mParent;
    return search;
  }

  void reach(std::uint32_t search, std::uint32_t face) {
    mRegions.mLabels[face] = mRegions.mLabelBase + search;
    mSearches[search].mOpen.push_back(face);
    mSearches[search].mHasSeed |= face == mRegions.mSeed;
  }

  /// Looks around from one face. Returns how many other searches were met.
  std::size_t advance(std::uint32_t search) {
    mRegions.tick();
    const std::uint32_t face = mSearches[search].mOpen.back();
    mSearches[search].mOpen.pop_back();
    mSearches[search].mDone.push_back(face);
    std::size_t met = 0;
    const auto begin = static_cast<std::uint32_t>(mRegions.mFaces.offset(face));
    for (std::uint32_t corner = begin; corner < begin + mRegions.mFaces.cornerCount(face); ++corner) {
      if (!mRegions.isInner(corner)) continue;
      const std::uint32_t neighbor = mRegions.mTwins.faceOf(mRegions.mTwins.twinOf(corner));
      if (mRegions.mLabels[neighbor] < mRegions.mLabelBase) {
        reach(search, neighbor);
        continue;
      }
      const std::uint32_t other = rootOf(mRegions.mLabels[neighbor] - mRegions.mLabelBase);
      if (other == search) continue;
      search = join(search, other);
      ++met;
    }
    return met;
  }

  /// The smaller one joins the larger one. Returns the one that goes on.
  std::uint32_t join(std::uint32_t a, std::uint32_t b) {
    const auto size = [&](std::uint32_t s) { return mSearches[s].mDone.size() + mSearches[s].mOpen.size(); };
    if (size(a) < size(b)) std::swap(a, b);
    Search &into = mSearches[a], &from = mSearches[b];
    into.mDone.insert(into.mDone.end(), from.mDone.begin(), from.mDone.end());
    into.mOpen.insert(into.mOpen.end(), from.mOpen.begin(), from.mOpen.end());
    into.mHasSeed |= from.mHasSeed;
    from = {a, false, {}, {}};
    return a;
  }

  void putOutWhatIsCutOff() {
    bool seedIsIn = false;
    for (const std::uint32_t search : mFinished) seedIsIn |= mSearches[search].mHasSeed;
    if (seedIsIn) {
      // The one that was still running is cut off: let it find all of its faces.
      for (const std::uint32_t turn : mTurns) {
        if (mSearches[turn].mParent != turn) continue;
        while (!mSearches[turn].mOpen.empty()) advance(turn);
        mFinished.push_back(turn);
      }
    }
    for (const std::uint32_t search : mFinished)
      if (!mSearches[search].mHasSeed)
        for (const std::uint32_t face : mSearches[search].mDone) mRegions.putOut(face);
  }

  FaceRegions& mRegions;
  std::vector<Search> mSearches;
  std::deque<std::uint32_t> mTurns;
  std::vector<std::uint32_t> mFinished;
};

FaceRegions::FaceRegions(const PrimitiveList& faces, std::size_t vertexCount, const EdgeTwins& twins,
                         std::span<const double> areas, Monitor* monitor)
    : mFaces(faces), mTwins(twins), mAreas(areas), mMonitor(monitor) {
  assert(areas.size() == faces.size());
  mRegionOf.resize(faces.size(), kFree);
  mFirstBorder.resize(vertexCount, kNone);
  mNextBorder.resize(faces.poolSize());
}

void FaceRegions::startOver(std::span<const std::uint32_t> faces, std::span<const double> areas) {
  assert(mSeed == kFree && areas.size() == mFaces.size());
  mAreas = areas;
  mRegionOf.resize(mFaces.size(), kFree);
  mNextBorder.resize(mFaces.poolSize());
  if (!mNumbers.empty()) mNumbers.resize(mFaces.size());
  if (!mLabels.empty()) mLabels.resize(mFaces.size(), 0);
  if (!mTimesOut.empty()) mTimesOut.resize(mFaces.size(), 0);
  for (const std::uint32_t face : faces) {
    mRegionOf[face] = kFree;
    if (!mTimesOut.empty()) mTimesOut[face] = 0;
  }
}

std::uint32_t FaceRegions::previousCorner(std::uint32_t corner) const {
  const std::uint32_t face = mTwins.faceOf(corner);
  const auto begin = static_cast<std::uint32_t>(mFaces.offset(face));
  return corner == begin ? begin + mFaces.cornerCount(face) - 1 : corner - 1;
}

std::uint32_t FaceRegions::nextCorner(std::uint32_t corner) const {
  const std::uint32_t face = mTwins.faceOf(corner);
  const auto begin = static_cast<std::uint32_t>(mFaces.offset(face));
  return corner + 1 == begin + mFaces.cornerCount(face) ? begin : corner + 1;
}

void FaceRegions::addBorder(std::uint32_t corner) {
  std::uint32_t& first = mFirstBorder[mFaces.vertexAt(corner)];
  if (first == kNone) {
    mTouchedVertices.push_back(mFaces.vertexAt(corner));
  } else {
    mPinches.push_back(mFaces.vertexAt(corner));
    std::ranges::push_heap(mPinches, std::greater());
  }
  mNextBorder[corner] = first;
  first = corner;
}

/// The corners at a vertex that border edges leave now; tidies the vertex's chain. Valid until the next call.
std::span<const std::uint32_t> FaceRegions::borderFrom(std::uint32_t vertex) {
  mScratch.clear();
  for (std::uint32_t c = mFirstBorder[vertex]; c != kNone; c = mNextBorder[c])
    if (isBorder(c)) mScratch.push_back(c);
  mFirstBorder[vertex] = kNone;
  for (const std::uint32_t c : mScratch) {
    mNextBorder[c] = mFirstBorder[vertex];
    mFirstBorder[vertex] = c;
  }
  return mScratch;
}

void FaceRegions::putOut(std::uint32_t face) {
  assert(mSeed != kFree);
  if (!isMember(face)) return;
  mRegionOf[face] = kFree;
  mOut.push_back(face);
  const auto begin = static_cast<std::uint32_t>(mFaces.offset(face));
  for (std::uint32_t corner = begin; corner < begin + mFaces.cornerCount(face); ++corner) {
    if (!isInner(corner)) continue;
    addBorder(mTwins.twinOf(corner));
    mLoose.push_back(mTwins.faceOf(mTwins.twinOf(corner)));
  }
}

std::vector<std::uint32_t> FaceRegions::fanAt(std::uint32_t start) const {
  assert(isBorder(start));
  std::vector<std::uint32_t> fan{mTwins.faceOf(start)};
  for (std::uint32_t arriving = previousCorner(start); isInner(arriving);) {
    const std::uint32_t leaving = mTwins.twinOf(arriving);
    fan.push_back(mTwins.faceOf(leaving));
    arriving = previousCorner(leaving);
  }
  return fan;
}

/// Keeps one fan at a vertex. False where that would put out the seed.
bool FaceRegions::resolveAt(std::uint32_t vertex) {
  const auto starts = borderFrom(vertex);
  if (starts.size() < 2) return true;

  std::vector<std::vector<std::uint32_t>> fans;
  std::size_t kept = 0;
  double keptArea = -1.0;
  bool keptHasSeed = false;
  for (const std::uint32_t start : starts) {
    std::vector<std::uint32_t> fan = fanAt(start);
    double area = 0.0;
    std::ranges::sort(fan);  // so that the sum does not depend on where the fan began
    for (const std::uint32_t face : fan) area += std::fabs(mAreas[face]);
    const bool hasSeed = std::ranges::binary_search(fan, mSeed);
    const bool isBetter = area > keptArea || (area == keptArea && fan.front() < fans[kept].front());
    if (hasSeed ? !keptHasSeed : (!keptHasSeed && isBetter)) {
      kept = fans.size();
      keptArea = area;
      keptHasSeed = hasSeed;
    }
    fans.push_back(std::move(fan));
  }

  mLoose.clear();
  for (std::size_t i = 0; i < fans.size(); ++i) {
    if (i == kept) continue;
    if (std::ranges::binary_search(fans[i], mSeed)) return false;
    for (const std::uint32_t face : fans[i]) putOut(face);
  }
  putOutWhatIsCutOff();
  return true;
}

void FaceRegions::putOutWhatIsCutOff() {
  const std::vector<std::uint32_t> loose = std::move(mLoose);
  mLoose.clear();
  SplitSearch(*this).run(loose);
}

bool FaceRegions::resolvePinches() {
  for (const std::uint32_t face : mMembers) {
    tick();
    const auto begin = static_cast<std::uint32_t>(mFaces.offset(face));
    for (std::uint32_t corner = begin; corner < begin + mFaces.cornerCount(face); ++corner)
      if (!isInner(corner)) addBorder(corner);
  }
  return settlePinches();
}

bool FaceRegions::settlePinches() {
  while (!mPinches.empty()) {
    std::ranges::pop_heap(mPinches, std::greater());
    const std::uint32_t vertex = mPinches.back();
    mPinches.pop_back();
    if (!resolveAt(vertex)) return false;
    tick();
  }
  if (!mOut.empty()) {
    std::erase_if(mMembers, [&](std::uint32_t face) { return !isMember(face); });
    mKeptCorners = cornersOf(mMembers);
  }
  std::ranges::sort(mMembers);
  return true;
}

/// Faces of equal area come by number like seeds: the later one counts as smaller.
bool FaceRegions::isSmaller(std::uint32_t a, std::uint32_t b) const {
  const double areaA = std::fabs(mAreas[a]), areaB = std::fabs(mAreas[b]);
  return areaA < areaB || (areaA == areaB && a > b);
}

void FaceRegions::numberFromSeed() {
  if (mNumbers.empty()) mNumbers.resize(mRegionOf.size());
  for (const std::uint32_t face : mMembers) mNumbers[face] = kNone;
  std::vector<std::uint32_t> order{mSeed};
  mNumbers[mSeed] = 0;
  for (std::size_t next = 0; next < order.size(); ++next) {
    const auto begin = static_cast<std::uint32_t>(mFaces.offset(order[next]));
    for (std::uint32_t corner = begin; corner < begin + mFaces.cornerCount(order[next]); ++corner) {
      if (!isInner(corner)) continue;
      const std::uint32_t neighbor = mTwins.faceOf(mTwins.twinOf(corner));
      if (mNumbers[neighbor] != kNone) continue;
      mNumbers[neighbor] = static_cast<std::uint32_t>(order.size());
      order.push_back(neighbor);
    }
  }
}

void FaceRegions::markFlaw(std::span<const std::uint32_t> corners) {
  std::vector<std::uint32_t> places(corners.begin(), corners.end());
  std::ranges::sort(places, {}, [&](std::uint32_t corner) { return mFaces.vertexAt(corner); });
  for (const std::uint32_t corner : places) {
    std::vector<std::uint32_t> fan = fanAt(corner);
    std::erase(fan, mSeed);
    if (fan.empty()) continue;
    if (mRound < kSingleRounds)
      mMarked.push_back(*std::ranges::min_element(fan, [&](auto a, auto b) { return isSmaller(a, b); }));
    else
      mMarked.insert(mMarked.end(), fan.begin(), fan.end());
    return;
  }
}

void FaceRegions::markFlaw(std::uint32_t face) {
  assert(isMember(face));
  if (face != mSeed) mMarked.push_back(face);
}

/// Marks all around what is marked, in later rounds.
void FaceRegions::markPatches() {
  std::ranges::sort(mMarked);
  mMarked.erase(std::unique(mMarked.begin(), mMarked.end()), mMarked.end());
  if (mRound <= kSingleRounds) return;
  const unsigned doublings = std::min(2 * (mRound - kSingleRounds - 1), 32u);
  std::vector<bool> isMarked(mMembers.size());
  const auto mark = [&](std::uint32_t face) {  // members are sorted
    const auto place = static_cast<std::size_t>(std::ranges::lower_bound(mMembers, face) - mMembers.begin());
    const bool isNew = !isMarked[place];
    isMarked[place] = true;
    return isNew;
  };
  mark(mSeed);
  for (const std::uint32_t face : mMarked) mark(face);
  std::size_t next = 0;
  for (std::uint64_t step = 0; step < std::uint64_t{1} << doublings && next < mMarked.size(); ++step) {
    for (const std::size_t ring = mMarked.size(); next < ring; ++next) {
      const auto begin = static_cast<std::uint32_t>(mFaces.offset(mMarked[next]));
      for (std::uint32_t corner = begin; corner < begin + mFaces.cornerCount(mMarked[next]); ++corner)
        if (isInner(corner) && mark(mTwins.faceOf(mTwins.twinOf(corner))))
          mMarked.push_back(mTwins.faceOf(mTwins.twinOf(corner)));
    }
  }
}

bool FaceRegions::putOutMarked() {
  if (mMarked.empty()) return false;
  markPatches();
  ++mRound;
  // Following the loops has used up the chains.
  for (const std::uint32_t corner : mLoopCorners) {
    mFirstBorder[mFaces.vertexAt(corner)] = corner;
    mNextBorder[corner] = kNone;
  }
  mLoose.clear();
  for (const std::uint32_t face : mMarked) putOut(face);
  mMarked.clear();
  putOutWhatIsCutOff();
  return settlePinches();
}

void FaceRegions::giveUp() {
  assert(mSeed != kFree);
  for (const std::uint32_t face : mMembers) {
    if (!isMember(face) || face == mSeed) continue;
    mRegionOf[face] = kFree;
    mOut.push_back(face);
  }
  mMembers.assign(1, mSeed);
  mMarked.clear();
  mKeptCorners = cornersOf(mMembers);
}

std::uint64_t FaceRegions::cornersOf(std::span<const std::uint32_t> faces) const {
  std::uint64_t sum = 0;
  for (const std::uint32_t face : faces) sum += mFaces.cornerCount(face);
  return sum;
}

/// Appends the loop of the border that a corner lies on.
void FaceRegions::followLoop(std::uint32_t start) {
  const auto vertexAt = [&](std::uint32_t corner) { return mFaces.vertexAt(corner); };
  const auto begin = static_cast<std::ptrdiff_t>(mLoopCorners.size());
  std::uint32_t corner = start;
  do {
    tick();
    mLoopCorners.push_back(corner);
    // One border edge leaves each vertex, so a vertex without one has been passed.
    mFirstBorder[vertexAt(corner)] = kNone;
    const auto leaving = borderFrom(vertexAt(nextCorner(corner)));
    corner = leaving.empty() ? start : leaving.front();
  } while (corner != start);
  const auto first = mLoopCorners.begin() + begin;
  std::rotate(first, std::ranges::min_element(first, mLoopCorners.end(), {}, vertexAt), mLoopCorners.end());
  mLoopEnds.push_back(mLoopCorners.size());
}

const std::vector<FaceRegions::Loop>& FaceRegions::borderLoops() {
  mLoopCorners.clear();
  mLoopEnds.clear();
  for (const std::uint32_t face : mMembers) {
    tick();
    const auto begin = static_cast<std::uint32_t>(mFaces.offset(face));
    for (std::uint32_t corner = begin; corner < begin + mFaces.cornerCount(face); ++corner)
      if (isBorder(corner) && mFirstBorder[mFaces.vertexAt(corner)] != kNone) followLoop(corner);
  }
  mLoops.clear();
  std::size_t begin = 0;
  for (const std::size_t end : mLoopEnds) {
    mLoops.emplace_back(mLoopCorners.data() + begin, end - begin);
    begin = end;
  }
  std::ranges::sort(mLoops, {}, [&](const Loop& loop) { return mFaces.vertexAt(loop.front()); });
  return mLoops;
}

void FaceRegions::finish() {
  if (!mOut.empty() && mKeptCorners < cornersOf(mOut)) {
    if (mTimesOut.empty()) mTimesOut.resize(mRegionOf.size(), 0);
    for (const std::uint32_t face : mOut) ++mTimesOut[face];
  }
  mOut.clear();
  for (const std::uint32_t vertex : mTouchedVertices) mFirstBorder[vertex] = kNone;
  mTouchedVertices.clear();
  mPinches.clear();
  mSeed = kFree;
}

}  // namespace util
