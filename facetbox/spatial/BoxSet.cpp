#include <facetbox/spatial/BoxSet.h>

#include <algorithm>
#include <bit>
#include <utility>

namespace util {

namespace {

constexpr std::uint32_t kPlaneRange = BoxIndex::Found::kPlaneRange;

}  // namespace

void BoxSet::add(const Box& box) {
  mBoxes.makeRoom();
  mIsRanked = false;
  mFoundUnranked = 0;
  mOrder.add(box, mBoxes);
  mBoxes.push_back(box);
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
  ranks->numbers = mOrder.numbers();
  ranks->ofNumber.resize(mBoxes.size());
  ranks->cells.resize(mBoxes.size());
  for (std::uint32_t i = 0; i < mBoxes.size(); ++i) {
    ranks->ofNumber[ranks->numbers[i]] = i;
    ranks->cells[i] = mOrder[ranks->numbers[i]].cell;
  }
  mRanks = std::move(ranks);
  mIsRanked = true;
}

/// Lists what was found as candidates in order: sorts by a key of each number.
template <class KeyOf, class CellOf>
void BoxSet::sortBy(KeyOf keyOf, CellOf cellOf, std::span<const std::uint32_t> found, Scratch& scratch) {
  scratch.keyed.clear();
  for (const std::uint32_t box : found) scratch.keyed.push_back({keyOf(box / kPlaneRange), box});
  std::ranges::sort(scratch.keyed, {}, &Scratch::Keyed::key);
  for (const auto& [key, box] : scratch.keyed)
    scratch.candidates.push_back(
        {box / kPlaneRange, static_cast<std::uint16_t>(cellOf(key)), static_cast<std::uint16_t>(box % kPlaneRange)});
}

/// Lists what was found as candidates in order: marks all ranks, and goes through the marks.
void BoxSet::markByRank(std::span<const std::uint32_t> found, Scratch& scratch) const {
  const std::size_t words = mBoxes.size() / 64 + 1;
  scratch.marks.assign(words, 0);
  if (scratch.open.size() < mBoxes.size()) scratch.open.resize(mBoxes.size());
  for (const std::uint32_t box : found) {
    const std::uint32_t rank = mRanks->ofNumber[box / kPlaneRange];
    scratch.marks[rank / 64] |= std::uint64_t{1} << rank % 64;
    scratch.open[rank] = static_cast<std::uint8_t>(box % kPlaneRange);
  }
  for (std::size_t word = 0; word < words; ++word)
    for (std::uint64_t rest = scratch.marks[word]; rest != 0; rest &= rest - 1) {
      const std::size_t rank = 64 * word + static_cast<std::size_t>(std::countr_zero(rest));
      scratch.candidates.push_back({mRanks->numbers[rank], mRanks->cells[rank], scratch.open[rank]});
    }
}

void BoxSet::listInOrder(std::span<const std::uint32_t> found, Scratch& scratch) const {
  scratch.candidates.clear();
  constexpr std::size_t kSpread = 1024;  // boxes that are passed over in the time that sorting one takes
  if (!mIsRanked)
    sortBy([this](std::uint32_t number) { return mOrder[number].key(); }, OctreeOrder::Place::cellOf, found, scratch);
  else if (kSpread * found.size() < mBoxes.size())
    sortBy([this](std::uint32_t number) { return mRanks->ofNumber[number]; },
           [this](std::uint64_t rank) { return mRanks->cells[rank]; }, found, scratch);
  else
    markByRank(found, scratch);
}

/// Ranks cost a pass over all boxes. That pays once an eighth as many have been found and sorted without them.
void BoxSet::rankIfItPays(std::size_t found) {
  if (mIsRanked) return;
  constexpr std::size_t kPart = 8;
  mFoundUnranked += found;
  if (kPart * mFoundUnranked > mBoxes.size() && mBoxes.size() > kFewBoxes) rank();
}

std::span<const BoxSet::Candidate> BoxSet::queryFrustum(const Frustum& volume, Scratch& scratch) {
  startPath(volume, scratch);
  const std::span<const std::uint32_t> found = find(volume, scratch);
  rankIfItPays(found.size());
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

bool BoxSet::meets(const Candidate& candidate, const Frustum& volume, Scratch& scratch) const {
  if (candidate.isCrossed()) return true;
  if (!candidate.isInside()) {
    const Box& box = mBoxes[candidate.number];
    const Vec3 half = (box.max - box.min) / 2;
    // The root holds all boxes, so that cubes hold the boxes of their cells.
    if (scratch.findsCrossed && volume.surfacePassesThrough(box.min + half, half, scratch.rootMargin)) return true;
    if (!volume.meets(box)) return false;
  }
  return cellMeets(candidate, volume, scratch);
}

}  // namespace util
