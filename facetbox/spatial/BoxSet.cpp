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
  // Of as many as an eighth, sorting all at once is cheaper.
  constexpr std::size_t kPart = 8;
  std::unique_ptr<BoxIndex> index = std::move(mIndex);  // gone where memory ends
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

/// Numbers times kPlaneRange, as from an index.
std::span<const std::uint32_t> BoxSet::find(const Frustum& volume, Scratch& scratch) {
  if (mBoxes.size() > kFew) {
    if (mIndexed != mBoxes.size() || mIsMoved || !mIndex) updateIndex();
    mIndex->find(volume, scratch.found);
    return scratch.found.boxes;
  }
  scratch.few.clear();
  for (std::uint32_t i = 0; i < mBoxes.size(); ++i) {
    const Frustum::Side side = volume.sideOf(mBoxes[i]);
    if (side != Frustum::Side::beyond)
      scratch.few.push_back(kPlaneRange * i + (side == Frustum::Side::inside ? 0 : kPlaneRange - 1));
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

/// Lists what was found as candidates in order.
template <class KeyOf, class CellOf>
void BoxSet::sortBy(KeyOf keyOf, CellOf cellOf, std::span<const std::uint32_t> found, Scratch& scratch) {
  scratch.keyed.clear();
  for (const std::uint32_t box : found) scratch.keyed.push_back({keyOf(box / kPlaneRange), box});
  std::ranges::sort(scratch.keyed, {}, &Scratch::Keyed::key);
  for (const auto& [key, box] : scratch.keyed)
    scratch.candidates.push_back(
        {box / kPlaneRange, static_cast<std::uint16_t>(cellOf(key)), static_cast<std::uint16_t>(box % kPlaneRange)});
}

/// Likewise: marks all ranks and goes through them.
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

std::span<const BoxSet::Candidate> BoxSet::queryFrustum(const Frustum& volume, Scratch& scratch) {
  using Level = Scratch::Level;
  const OctreeRoot& root = mOrder.root();
  scratch.levels[0] = Level{Level::Answer::unknown, 0, {root.center, root.halfSize}};
  scratch.deepest = 0;
  scratch.rootMargin = volume.marginFor(root.center, {root.halfSize, root.halfSize, root.halfSize});
  scratch.candidates.clear();
  const std::span<const std::uint32_t> found = find(volume, scratch);
  // Ranks cost a pass over all, which is worth it once as much has been found since the last change without.
  constexpr std::size_t kPart = 8;
  if (!mIsRanked) {
    mFoundUnranked += found.size();
    if (kPart * mFoundUnranked > mBoxes.size() && mBoxes.size() > kFew) rank();
  }
  constexpr std::size_t kSpread = 1024;  // boxes that are passed over in the time that sorting one takes
  if (!mIsRanked)
    sortBy([this](std::uint32_t number) { return mOrder[number].key(); }, OctreeOrder::Place::cellOf, found, scratch);
  else if (kSpread * found.size() < mBoxes.size())
    sortBy([this](std::uint32_t number) { return mRanks->ofNumber[number]; },
           [this](std::uint64_t rank) { return mRanks->cells[rank]; }, found, scratch);
  else
    markByRank(found, scratch);
  return scratch.candidates;
}

/// Whether the cubes of a cell and of all those above it meet the volume.
bool BoxSet::cellMeets(std::uint32_t cell, const Frustum& volume, Scratch& scratch) {
  using Level = Scratch::Level;
  using Answer = Level::Answer;
  auto& levels = scratch.levels;
  std::size_t& at = scratch.deepest;
  while (cell < levels[at].cell || cell >= levels[at].cell + OctreeRoot::kCells[at]) --at;
  while (cell != levels[at].cell && levels[at].answer != Answer::no) {
    const Level& above = levels[at];
    const std::uint32_t cells = OctreeRoot::kCells[at + 1], code = (cell - above.cell - 1) / cells;
    levels[at + 1] = {Answer::unknown, above.cell + 1 + code * cells, above.cube.child(code)};
    ++at;
  }
  const auto halfOf = [](const Level& level) {
    return Vec3{level.cube.halfSize, level.cube.halfSize, level.cube.halfSize};
  };
  const std::span path(levels.data(), at + 1);
  if (path.back().answer != Answer::unknown) return path.back().answer == Answer::yes;
  // A point of the surface that is clearly in this cube is in those above as well.
  const bool isAboveKnown = at > 0 && path[at - 1].answer == Answer::yes;
  if (!isAboveKnown && volume.certainlyTouches(path.back().cube.center, halfOf(path.back()), scratch.rootMargin)) {
    for (Level& level : path) level.answer = Answer::yes;
    return true;
  }
  for (Level& level : path) {
    if (level.answer == Answer::unknown)
      level.answer = volume.meets(level.cube.center, halfOf(level)) ? Answer::yes : Answer::no;
    if (level.answer == Answer::no) {
      at = static_cast<std::size_t>(&level - path.data());
      return false;
    }
  }
  return true;
}

/// Whether a point of the surface is clearly in the box, and so in the cubes of its cell and of all cells above: these
/// are around each box that the root holds.
bool BoxSet::certainlyMeets(const Candidate& candidate, const Frustum& volume, const Scratch& scratch) const {
  if ((candidate.open & (candidate.open - 1)) != 0) return false;
  const Box& box = mBoxes[candidate.number];
  const Vec3 half = (box.max - box.min) / 2;
  const auto face = static_cast<std::size_t>(std::countr_zero(candidate.open));
  return volume.certainlyCrosses(face, box.min + half, half, scratch.rootMargin) && mOrder.root().holds(box);
}

bool BoxSet::meets(const Candidate& candidate, const Frustum& volume, Scratch& scratch) const {
  if (!candidate.isInside()) {
    if (certainlyMeets(candidate, volume, scratch)) return true;
    if (!volume.meets(mBoxes[candidate.number])) return false;
  }
  return cellMeets(candidate.cell, volume, scratch);
}

}  // namespace util
