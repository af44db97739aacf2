#include <facetbox/spatial/BoxSet.h>

#include <algorithm>
#include <bit>
#include <limits>
#include <utility>

namespace util {

namespace {

constexpr std::uint32_t kPlaneRange = BoxIndex::Found::kPlaneRange;

}  // namespace

void BoxSet::add(const Box& box) {
  mBoxes.makeRoom();
  const OctreeRoot root = mOrder.root();
  mOrder.add(box, mBoxes);
  mBoxes.push_back(box);
  if (!isSame(root, mOrder.root())) mRanked = 0;  // all cells have changed
  mFoundUnranked = 0;
}

/// Brings the index up to date.
void BoxSet::updateIndex() {
  const std::size_t added = mBoxes.size() - mIndexed;
  // If an eighth or more is new, building the index anew is cheaper.
  constexpr std::size_t kPart = 8;
  std::unique_ptr<BoxIndex> index = std::move(mIndex);  // left empty if memory runs out
  if (!index || mHasEmptinessChanged || kPart * added >= mIndexed) {
    if (!index) index = std::make_unique<BoxIndex>();
    index->build(mBoxes);
  } else {
    if (mIsMoved) index->refit(mBoxes);
    for (std::size_t i = 0; i < added; ++i) index->append(mBoxes);
  }
  mIndex = std::move(index);
  mIndexed = mBoxes.size();
  mIsMoved = false;
  mHasEmptinessChanged = false;
}

/// The boxes that may meet the volume, as BoxIndex::Found has them.
std::span<const std::uint32_t> BoxSet::find(const Frustum& volume, Scratch& scratch) {
  if (mBoxes.size() > kFewBoxes) {
    if (mIndexed != mBoxes.size() || mIsMoved || !mIndex) updateIndex();
    mIndex->find(volume, scratch.findsCrossed, scratch.found);
    return scratch.found.boxes;
  }
  scratch.few.clear();
  for (std::uint32_t i = 0; i < mBoxes.size(); ++i) {
    const Frustum::Side side = volume.sideOf(mBoxes[i]);
    if (side != Frustum::Side::outside)
      scratch.few.push_back(kPlaneRange * i + (side == Frustum::Side::inside ? 0 : BoxTraversal::kAllPlanes));
  }
  return scratch.few;
}

void BoxSet::rank() {
  auto ranks = mRanks ? std::move(mRanks) : std::make_unique<Ranks>();
  mRanked = 0;  // stays so if memory runs out
  ranks->numbers = mOrder.numbers();
  ranks->ofNumber.resize(mBoxes.size());
  ranks->keys.resize(mBoxes.size());
  for (std::uint32_t i = 0; i < mBoxes.size(); ++i) {
    ranks->ofNumber[ranks->numbers[i]] = i;
    ranks->keys[i] = mOrder[ranks->numbers[i]].key();
  }
  mRanks = std::move(ranks);
  mRanked = mBoxes.size();
  ++mRanking;
}

/// Marks the ranks of what was found, and leaves boxes without ranks to be sorted.
void BoxSet::markByRank(std::span<const std::uint32_t> found, Scratch& scratch) const {
  scratch.marks.assign(mRanked / 64 + 1, 0);
  if (scratch.open.size() < mRanked) scratch.open.resize(mRanked);
  for (const std::uint32_t box : found) {
    const std::uint32_t number = box / kPlaneRange;
    if (number >= mRanked) {
      scratch.keyed.push_back({mOrder[number].key(), box});
      continue;
    }
    const std::uint32_t rank = mRanks->ofNumber[number];
    scratch.marks[rank / 64] |= std::uint64_t{1} << rank % 64;
    scratch.open[rank] = static_cast<std::uint8_t>(box % kPlaneRange);
  }
}

/// Lists what was found as candidates in order: goes through the marks of ranked boxes, and sorts others by their keys.
void BoxSet::listInOrder(std::span<const std::uint32_t> found, Scratch& scratch) const {
  constexpr std::size_t kSpread = 1024;  // marks that are passed over in the time that sorting a box takes
  scratch.candidates.clear();
  scratch.keyed.clear();
  scratch.marks.clear();
  if (kSpread * found.size() >= mRanked)
    markByRank(found, scratch);
  else
    for (const std::uint32_t box : found) scratch.keyed.push_back({mOrder[box / kPlaneRange].key(), box});
  std::ranges::sort(scratch.keyed, {}, &Scratch::Keyed::key);

  auto next = scratch.keyed.begin();
  const auto listKeyed = [&](std::uint64_t end) {
    for (; next != scratch.keyed.end() && next->key < end; ++next) {
      const std::uint32_t number = next->box / kPlaneRange;
      scratch.candidates.push_back({number, number < mRanked ? mRanks->ofNumber[number] : kUnranked,
                                    OctreeOrder::Place::cellOf(next->key),
                                    static_cast<std::uint16_t>(next->box % kPlaneRange)});
    }
  };
  for (std::size_t word = 0; word < scratch.marks.size(); ++word)
    for (std::uint64_t rest = scratch.marks[word]; rest != 0; rest &= rest - 1) {
      const auto rank = static_cast<std::uint32_t>(64 * word + static_cast<std::size_t>(std::countr_zero(rest)));
      const std::uint64_t key = mRanks->keys[rank];
      listKeyed(key);
      scratch.candidates.push_back({mRanks->numbers[rank], rank, OctreeOrder::Place::cellOf(key), scratch.open[rank]});
    }
  listKeyed(std::numeric_limits<std::uint64_t>::max());
}

/// Ranks cost a pass over all boxes. That pays once an eighth as many have been found and sorted without them.
void BoxSet::rankIfItPays(std::span<const std::uint32_t> found) {
  if (mRanked == mBoxes.size() || mBoxes.size() <= kFewBoxes) return;
  constexpr std::size_t kPart = 8;
  const auto isUnranked = [this](std::uint32_t box) { return box / kPlaneRange >= mRanked; };
  mFoundUnranked += static_cast<std::size_t>(std::ranges::count_if(found, isUnranked));
  if (kPart * mFoundUnranked > mBoxes.size()) rank();
}

std::span<const BoxSet::Candidate> BoxSet::queryFrustum(const Frustum& volume, Scratch& scratch) {
  startPath(volume, scratch);
  const std::span<const std::uint32_t> found = find(volume, scratch);
  rankIfItPays(found);
  listInOrder(found, scratch);
  return scratch.candidates;
}

namespace {

Vec3 halfOf(const OctreeRoot::Cube& cube) { return {cube.halfSize, cube.halfSize, cube.halfSize}; }

}  // namespace

void BoxSet::startPath(const Frustum& volume, Scratch& scratch) const {
  const OctreeRoot& root = mOrder.root();
  const OctreeRoot::Cube cube{root.center, root.halfSize};
  scratch.levels[0] = Scratch::Level{Scratch::Level::Answer::unknown, 0, cube};
  scratch.deepest = 0;
  scratch.rootMargin = volume.marginFor(cube.center, halfOf(cube));
  scratch.findsCrossed = scratch.rootMargin <= Frustum::kLargestMargin * volume.magnitude() &&
                         root.holds(mOrder.all()) && volume.isConvex();
}

/// Moves the path to a cell, or to the first cell on the way there that is known not to meet the volume.
inline void BoxSet::moveTo(std::uint32_t cell, Scratch& scratch) {
  using Answer = Scratch::Level::Answer;
  auto& levels = scratch.levels;
  std::size_t& at = scratch.deepest;
  while (cell < levels[at].cell || cell >= levels[at].cell + OctreeRoot::kCells[at]) --at;
  while (cell != levels[at].cell && levels[at].answer != Answer::no) {
    const Scratch::Level& above = levels[at];
    const std::uint32_t cells = OctreeRoot::kCells[at + 1], code = (cell - above.cell - 1) / cells;
    levels[at + 1] = {Answer::unknown, above.cell + 1 + code * cells, above.cube.child(code)};
    ++at;
  }
}

/// Whether the cubes of a candidate's cell and of all cells above it meet the volume.
bool BoxSet::cellMeets(const Candidate& candidate, const Frustum& volume, Scratch& scratch) {
  using Level = Scratch::Level;
  using Answer = Level::Answer;
  moveTo(candidate.cell, scratch);
  // Of a box that is inside, cubes hold a point below all planes.
  const auto isCrossed = [&](const OctreeRoot::Cube& cube) {
    const Vec3 half = halfOf(cube);
    return scratch.findsCrossed &&
           (candidate.isInside() ? volume.reachesOut(cube.center, half, scratch.rootMargin)
                                 : volume.surfacePassesThrough(cube.center, half, scratch.rootMargin));
  };
  const std::span path(scratch.levels.data(), scratch.deepest + 1);
  for (std::size_t at = path.size(); at-- > 0 && path[at].answer != Answer::yes;) {
    Level& level = path[at];
    if (level.answer == Answer::unknown && isCrossed(level.cube)) {
      for (Level& above : path.first(at + 1)) above.answer = Answer::yes;
      return true;
    }
    if (level.answer == Answer::unknown)
      level.answer = volume.meets(level.cube.center, halfOf(level.cube)) ? Answer::yes : Answer::no;
    if (level.answer == Answer::no) {
      scratch.deepest = at;
      return false;
    }
  }
  return true;
}

bool BoxSet::meets(const Candidate& candidate, const Vec3& center, const Vec3& half, const Frustum& volume,
                   Scratch& scratch) const {
  if (candidate.isCrossed()) return true;
  if (!candidate.isInside()) {
    // The root holds all boxes, so that cubes hold the boxes of their cells.
    if (scratch.findsCrossed && volume.surfacePassesThrough(center, half, scratch.rootMargin)) return true;
    // No candidate is empty on an axis.
    if (!volume.meets(center, half)) return false;
  }
  return cellMeets(candidate, volume, scratch);
}

}  // namespace util
