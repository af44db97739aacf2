#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <memory>
#include <numeric>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include <facetbox/util/math/Box.h>
#include <facetbox/util/spatial/BoxIndex.h>
#include <facetbox/util/spatial/Octree.h>
#include <facetbox/util/spatial/ViewVolume.h>

namespace util {

/// A cell of a BBoxOctree.
template <class T, class Real>
struct BBoxOctreeNode {
  struct Record {
    Box box;
    T item;
  };

  virtual ~BBoxOctreeNode() = default;

  std::vector<Record> mRecords;    ///< those that belong to this very cell, in order of insertion
  std::int32_t mSubtreeCount = 0;  ///< of records here and in all cells below
};

/// Items with boxes in an octree of five levels. Each item is stored once, in the deepest cell that holds its box
/// whole; a box that straddles a midplane of a cell stays in that cell.
///
/// The order of all results is part of the contract: cells by depth first, children by ascending number, and the
/// records of a cell in order of insertion. The order in which items come out of extractAll() becomes their order of
/// insertion when the tree is rebuilt.
///
/// Five levels tell at most 16 x 16 items of a plane apart, and large sets leave many in the upper cells. View volumes
/// are therefore put to an index of all boxes, made by the first query after a change; box queries leave that to the
/// caller.
template <class T, class Real>
class BBoxOctree : public Octree<BBoxOctreeNode<T, Real>> {
  static_assert(std::is_same_v<Real, double>, "boxes are made of doubles");

 public:
  using Node = BBoxOctreeNode<T, Real>;
  using Record = typename Node::Record;

  /// @param halfSize  of the root's edges; above 0
  explicit BBoxOctree(Real halfSize) : mHalfSize(halfSize) { assert(halfSize > 0); }

  const Vec3& center() const { return mCenter; }
  Real halfSize() const { return mHalfSize; }
  /// The records of one cell. Valid until the tree changes.
  std::span<const Record> records(std::uint32_t cell) const {
    const Node* node = this->find(cell);
    return node ? std::span<const Record>(node->mRecords) : std::span<const Record>();
  }
  /// Number of records in the cell and all cells below it.
  std::int32_t subtreeCount(std::uint32_t cell) const {
    const Node* node = this->find(cell);
    return node ? node->mSubtreeCount : 0;
  }

  /// Makes the root hold `box` besides all that is stored. If it does not yet, the tree is rebuilt around the middle of
  /// the union of all boxes, with a root whose size is doubled as often as needed and never shrinks. Linear, then.
  /// Boxes that reach beyond 1e300 are stored where they may be missed, and do not move the root.
  void ensureContains(const Box& box);

  /// Stores an item. ensureContains() comes first: a box beyond the root is stored in the cell that its position
  /// selects, where queryBox() may miss it.
  void insert(const Box& box, T item) {
    settle();
    Record record{box, std::move(item)};
    store(record);
  }

  /// Removes the first record of this very box and item; the others keep their order.
  /// @return whether there was one
  bool remove(const Box& box, const T& item);

  /// Appends every item to `out`.
  void collectAll(std::vector<T>& out) const;

  /// Appends every record to `out` and leaves the tree empty; its root keeps place and size.
  void extractAll(std::vector<Record>& out);

  /// Leaves the tree as if newly made, and fills it again with the records in the order of extractAll(), as by
  /// ensureContains() and insert(), after `move(records)` has given them new boxes. It may not throw.
  template <class Move>
  void relocateAll(Real halfSize, Move move);

  /// A record that may meet a view volume.
  struct Candidate {
    const Record* record;
    std::uint32_t cell;
    bool isInside;    ///< its box lies inside all planes of the volume; false where that is not certain
    bool isDoubtful;  ///< whether it meets the volume is left to meets()
    bool isInCube;    ///< its box lies in its cell's cube; looked at for doubtful ones only
  };

  /// Appends the records whose boxes meet the volume, and that lie in cells whose cubes and whose ancestors' cubes do.
  /// A box that is empty on an axis meets nothing. Some of those appended are doubtful: the caller, who may have a
  /// cheaper reason to pass over a record, asks meets() for them.
  ///
  /// Candidates are valid until the tree changes, for meets() until the next query. The first query after items were
  /// removed, or a fifth was added, costs O(n log n), others about what they find and what lies around the volume's
  /// surface, and a look at each item added since.
  void queryFrustum(const ViewVolume& volume, std::vector<Candidate>& out);
  /// Whether a candidate for this volume meets it.
  bool meets(const Candidate& candidate, const ViewVolume& volume);

  /// Appends the numbers of the cells that hold records and whose cubes share a point with `box`. The caller looks at
  /// their records' boxes. Cubes are computed in rounded arithmetic: widen the box a little where touching must count.
  void queryBox(const Box& box, std::vector<std::uint32_t>& out) const;

 private:
  using Visitor = IOctreeVisitor<Node>;

  class CNull final : public Visitor {
    void visitPath(std::uint32_t, Node&) override {}
    void visitTarget(std::uint32_t, Node&) override {}
  };
  class CAdder final : public Visitor {
    void visitPath(std::uint32_t, Node& node) override { ++node.mSubtreeCount; }
    void visitTarget(std::uint32_t, Node& node) override { ++node.mSubtreeCount; }
  };
  class CRemover final : public Visitor {
    void visitPath(std::uint32_t, Node& node) override { --node.mSubtreeCount; }
    void visitTarget(std::uint32_t, Node& node) override { --node.mSubtreeCount; }
  };

  /// Whether a root can be made to hold the box together with others like it. One that reaches to infinity, or so far
  /// that its extent overflows, would leave a root without a place, in which no query finds anything any more. An axis
  /// on which the box is empty asks for no room.
  static bool hasPlace(const Box& box) {
    const auto hasPlaceOn = [](double min, double max) {
      constexpr double kFarthest = 1e300;
      return (std::fabs(min) <= kFarthest && std::fabs(max) <= kFarthest) || min > max;
    };
    return hasPlaceOn(box.min.x, box.max.x) && hasPlaceOn(box.min.y, box.max.y) && hasPlaceOn(box.min.z, box.max.z);
  }

  // Where memory ends while records are put back, those that are left wait, and whatever comes next begins with them:
  // none is lost, and they end in the order in which they would have come.
  void makeRootHold(const Box& box);
  void settle();
  void takeAll(std::vector<Record>& out);
  void store(Record& record);

  static constexpr int kStays = -1;
  static constexpr std::size_t kSparedCapacity = 8;  // of a cell's records that emptying the tree leaves allocated

  std::uint32_t locate(const Box& box, Visitor& visitor);
  static int childFor(const Box& box, const Vec3& center);
  static Vec3 childCenter(const Vec3& center, Real step, unsigned code) {
    return {(code & 1) != 0 ? center.x + step : center.x - step, (code & 2) != 0 ? center.y + step : center.y - step,
            (code & 4) != 0 ? center.z + step : center.z - step};
  }
  template <class Use>
  void forEachUsedChild(std::uint32_t cell, int level, Use use) const;
  void listUsed(std::uint32_t cell, int level, std::vector<std::uint32_t>& out) const;
  template <class Meets>
  void listMeeting(std::uint32_t cell, int level, const Vec3& center, Real halfSize, const Meets& meets,
                   std::vector<std::uint32_t>& out) const;

  /// A record's cell, and where it is there.
  struct Place {
    std::uint32_t cell, record;
  };
  struct Cube {
    Vec3 center;
    Real halfSize;
  };
  struct IndexedCell {
    const Node* node;
    std::uint32_t cell, order, firstRank;
    bool holdsItsBoxes;  // within its cube
    Cube cube;
  };
  /// A record found that the index does not know.
  struct Late {
    std::uint32_t order;
    Place place;
  };

  static std::uint32_t orderOf(std::uint32_t cell);
  Cube cubeOf(std::uint32_t cell) const;
  void makeIndex();
  bool cellMeets(std::uint32_t cell, const ViewVolume& volume);
  bool cellOfInnerMeets(const IndexedCell& in, const ViewVolume& volume);

  CNull mNull;
  CAdder mAdder;
  CRemover mRemover;
  Vec3 mCenter{0, 0, 0};
  Real mHalfSize;
  Box mUnion;                 // of all boxes stored; those removed since it was last empty may be in it
  bool mUnionIsWide = false;  // whether a box was removed since

  std::vector<Record> mWaiting;  // to be stored, from mNextWaiting on
  std::size_t mNextWaiting = 0;
  std::size_t mWaitingInRoot = 0;  // how many of them, from the first, need no makeRootHold()

  // Records by rank, which is their place in the promised order; all of them but those appended since.
  bool mIsIndexed = false;
  BoxIndex mIndex;
  std::vector<IndexedCell> mCells;         // those with records, in order
  std::vector<std::uint32_t> mCellOfRank;  // numbers in mCells
  std::vector<Place> mAppended;            // up to a quarter
  BoxIndex::Found mFound;                  // scratch, by rank
  bool mAreCubesFirm = false;              // for the last volume
  std::vector<Late> mLate;                 // scratch
  std::vector<std::uint32_t> mAnswers;     // by cell: 2 times the number of the query that asked it, plus the answer
  std::uint32_t mQuery = 0;
};

/// Code of the child that holds the box whole, or kStays. Low is asked first: a box flat on a midplane goes low.
template <class T, class Real>
int BBoxOctree<T, Real>::childFor(const Box& box, const Vec3& center) {
  int code = 0;
  const auto isOnOneSide = [&code](Real middle, Real min, Real max, int bit) {
    if (middle >= max) return true;
    if (!(min >= middle)) return false;
    code |= bit;
    return true;
  };
  const bool fits = isOnOneSide(center.x, box.min.x, box.max.x, 1) && isOnOneSide(center.y, box.min.y, box.max.y, 2) &&
                    isOnOneSide(center.z, box.min.z, box.max.z, 4);
  return fits ? code : kStays;
}

/// Descends to the cell of a box; the cells on the way are created, and visited once they all are.
template <class T, class Real>
std::uint32_t BBoxOctree<T, Real>::locate(const Box& box, Visitor& visitor) {
  std::array<std::pair<std::uint32_t, Node*>, Octree<Node>::kDepth> path;
  std::size_t last = 0;
  std::uint32_t cell = 0;
  Vec3 center = mCenter;
  Real halfSize = mHalfSize;
  path[0] = {0, &this->touch(0)};
  while (last + 1 < path.size()) {
    const int code = childFor(box, center);
    if (code == kStays) break;
    halfSize = halfSize / 2;
    cell = this->childOf(cell, static_cast<unsigned>(code));
    center = childCenter(center, halfSize, static_cast<unsigned>(code));
    path[++last] = {cell, &this->touch(cell)};
  }
  for (std::size_t i = 0; i < last; ++i) visitor.visitPath(path[i].first, *path[i].second);
  visitor.visitTarget(cell, *path[last].second);
  return cell;
}

/// Stores a record, or throws and stores nothing.
template <class T, class Real>
void BBoxOctree<T, Real>::store(Record& record) {
  const Box box = record.box;
  const std::uint32_t cell = locate(box, mAdder);
  std::vector<Record>& stored = this->find(cell)->mRecords;
  const bool staysIndexed = mIsIndexed && 4 * mAppended.size() < mCellOfRank.size();
  mIsIndexed = false;
  try {
    if (stored.size() == stored.capacity()) stored.reserve(std::max<std::size_t>(1, 2 * stored.size()));
    if (staysIndexed) mAppended.push_back({cell, static_cast<std::uint32_t>(stored.size())});
  } catch (...) {
    locate(box, mRemover);
    throw;
  }
  stored.push_back(std::move(record));
  mIsIndexed = staysIndexed;
  if (hasPlace(box)) mUnion.extend(box);
}

/// Stores what waits.
template <class T, class Real>
void BBoxOctree<T, Real>::settle() {
  while (mNextWaiting < mWaiting.size()) {
    if (mNextWaiting >= mWaitingInRoot) {
      makeRootHold(Box(mWaiting[mNextWaiting].box));
      // A new root makes all others wait before this one.
      if (mNextWaiting < mWaitingInRoot) continue;
    }
    store(mWaiting[mNextWaiting]);
    ++mNextWaiting;
  }
  mWaiting = {};
  mNextWaiting = mWaitingInRoot = 0;
}

template <class T, class Real>
void BBoxOctree<T, Real>::ensureContains(const Box& box) {
  settle();
  makeRootHold(box);
  settle();
}

template <class T, class Real>
template <class Move>
void BBoxOctree<T, Real>::relocateAll(Real halfSize, Move move) {
  std::vector<Record> records;
  extractAll(records);
  move(std::span<Record>(records));
  mCenter = {0, 0, 0};
  mHalfSize = halfSize;
  mWaiting.swap(records);
  mNextWaiting = mWaitingInRoot = 0;
  settle();
}

/// ensureContains(), but for what a new root has to take up again: that waits.
template <class T, class Real>
void BBoxOctree<T, Real>::makeRootHold(const Box& box) {
  const Vec3 half{mHalfSize, mHalfSize, mHalfSize};
  const Vec3 low = mCenter - half, high = mCenter + half;
  if (box.max.x <= high.x && low.x <= box.min.x && box.max.y <= high.y && low.y <= box.min.y && box.max.z <= high.z &&
      low.z <= box.min.z)
    return;
  if (!hasPlace(box)) return;

  if (mUnionIsWide) {
    std::vector<std::uint32_t> cells;
    listUsed(0, 1, cells);
    mUnion = Box{};
    for (const std::uint32_t cell : cells)
      for (const Record& record : records(cell))
        if (hasPlace(record.box)) mUnion.extend(record.box);
    mUnionIsWide = false;
  }
  Box all = mUnion;
  all.extend(box);
  const Vec3 newCenter{std::midpoint(all.min.x, all.max.x), std::midpoint(all.min.y, all.max.y),
                       std::midpoint(all.min.z, all.max.z)};
  const Vec3 extent = all.max - all.min;
  const Real needed = std::max(std::max(std::max(Real{0}, extent.x), extent.y), extent.z) / 2;
  Real newHalfSize = mHalfSize;
  while (needed > newHalfSize) newHalfSize = 2 * newHalfSize;

  // Every record would come back to its cell, after the same ones as before. Where rounding, or a box without a place,
  // keeps a root from ever holding all, this is what makes filling the tree linear. (A NaN is no place to stay in.)
  const auto isSame = [](Real a, Real b) { return a == b || (a != a && b != b); };
  if (newHalfSize == mHalfSize && isSame(newCenter.x, mCenter.x) && isSame(newCenter.y, mCenter.y) &&
      isSame(newCenter.z, mCenter.z))
    return;

  const std::size_t waiting = mWaiting.size() - mNextWaiting;
  std::vector<Record> records;
  records.reserve(static_cast<std::size_t>(subtreeCount(0)) + waiting);
  takeAll(records);
  mCenter = newCenter;
  mHalfSize = newHalfSize;
  mWaitingInRoot = records.size();
  std::move(mWaiting.begin() + static_cast<std::ptrdiff_t>(mNextWaiting), mWaiting.end(), std::back_inserter(records));
  mWaiting.swap(records);
  mNextWaiting = 0;
}

template <class T, class Real>
bool BBoxOctree<T, Real>::remove(const Box& box, const T& item) {
  settle();
  Node& node = *this->find(locate(box, mNull));
  std::vector<Record>& records = node.mRecords;
  const auto found =
      std::ranges::find_if(records, [&](const Record& record) { return record.item == item && record.box == box; });
  if (found == records.end()) return false;
  records.erase(found);
  mIsIndexed = false;
  mUnionIsWide = true;
  locate(box, mRemover);
  return true;
}

template <class T, class Real>
template <class Use>
void BBoxOctree<T, Real>::forEachUsedChild(std::uint32_t cell, int level, Use use) const {
  if (level == this->kDepth) return;
  for (unsigned code = 0; code < 8; ++code)
    if (subtreeCount(this->childOf(cell, code)) != 0) use(this->childOf(cell, code), code);
}

/// Lists the cells that hold or lead to records.
template <class T, class Real>
void BBoxOctree<T, Real>::listUsed(std::uint32_t cell, int level, std::vector<std::uint32_t>& out) const {
  if (subtreeCount(cell) == 0) return;
  out.push_back(cell);
  forEachUsedChild(cell, level, [&](std::uint32_t child, unsigned) { listUsed(child, level + 1, out); });
}

template <class T, class Real>
void BBoxOctree<T, Real>::collectAll(std::vector<T>& out) const {
  std::vector<std::uint32_t> cells;
  listUsed(0, 1, cells);
  for (const std::uint32_t cell : cells)
    for (const Record& record : records(cell)) out.push_back(record.item);
}

template <class T, class Real>
void BBoxOctree<T, Real>::extractAll(std::vector<Record>& out) {
  settle();
  takeAll(out);
}

/// Moves every record out, or throws and moves none.
template <class T, class Real>
void BBoxOctree<T, Real>::takeAll(std::vector<Record>& out) {
  std::vector<std::uint32_t> cells;
  listUsed(0, 1, cells);
  // All that may fail comes before the first record is moved.
  out.reserve(out.size() + static_cast<std::size_t>(subtreeCount(0)));
  for (const std::uint32_t cell : cells) {
    Node& node = *this->find(cell);
    std::ranges::move(node.mRecords, std::back_inserter(out));
    // Cells are kept, for they are likely to be filled again.
    node.mRecords.clear();
    if (node.mRecords.capacity() > kSparedCapacity) node.mRecords.shrink_to_fit();
    node.mSubtreeCount = 0;
  }
  mUnion = Box{};
  mUnionIsWide = false;
  mIsIndexed = false;
}

/// Lists the cells with records whose cubes and whose ancestors' cubes pass `meets(center, halfSize)`. Every kind of
/// query is this traversal with a test of its own.
template <class T, class Real>
template <class Meets>
void BBoxOctree<T, Real>::listMeeting(std::uint32_t cell, int level, const Vec3& center, Real halfSize,
                                      const Meets& meets, std::vector<std::uint32_t>& out) const {
  if (!meets(center, halfSize)) return;
  if (!records(cell).empty()) out.push_back(cell);
  const Real childSize = halfSize / 2;
  forEachUsedChild(cell, level, [&](std::uint32_t child, unsigned code) {
    listMeeting(child, level + 1, childCenter(center, childSize, code), childSize, meets, out);
  });
}

template <class T, class Real>
void BBoxOctree<T, Real>::queryBox(const Box& box, std::vector<std::uint32_t>& out) const {
  // Spelt so that a cube without a place (NaN, after an overflow) is looked at.
  const auto meetsOn = [](Real min, Real max, Real center, Real halfSize) {
    return std::min(max, center + halfSize) >= std::max(min, center - halfSize);
  };
  listMeeting(
      0, 1, mCenter, mHalfSize,
      [&](const Vec3& center, Real halfSize) {
        return meetsOn(box.min.x, box.max.x, center.x, halfSize) && meetsOn(box.min.y, box.max.y, center.y, halfSize) &&
               meetsOn(box.min.z, box.max.z, center.z, halfSize);
      },
      out);
}

/// A number that grows along the order by depth first, children by ascending number.
template <class T, class Real>
std::uint32_t BBoxOctree<T, Real>::orderOf(std::uint32_t cell) {
  std::uint32_t order = 0, weight = 1, levels = 1;
  for (; cell != 0; cell = (cell - 1) / 8, weight *= 9, ++levels) order += weight * ((cell - 1) % 8 + 1);
  for (; levels < Octree<Node>::kDepth; ++levels) order *= 9;
  return order;
}

template <class T, class Real>
auto BBoxOctree<T, Real>::cubeOf(std::uint32_t cell) const -> Cube {
  if (cell == 0) return {mCenter, mHalfSize};
  const Cube parent = cubeOf((cell - 1) / 8);
  const Real halfSize = parent.halfSize / 2;
  return {childCenter(parent.center, halfSize, (cell - 1) % 8), halfSize};
}

template <class T, class Real>
void BBoxOctree<T, Real>::makeIndex() {
  std::vector<std::uint32_t> cells;
  listUsed(0, 1, cells);
  std::vector<Box> boxes;
  boxes.reserve(static_cast<std::size_t>(subtreeCount(0)));
  mCells.clear();
  mCellOfRank.clear();
  for (const std::uint32_t cell : cells) {
    const Node& node = *this->find(cell);
    if (node.mRecords.empty()) continue;
    mCellOfRank.insert(mCellOfRank.end(), node.mRecords.size(), static_cast<std::uint32_t>(mCells.size()));
    const Cube cube = cubeOf(cell);
    const Vec3 half{cube.halfSize, cube.halfSize, cube.halfSize}, low = cube.center - half, high = cube.center + half;
    const bool holdsItsBoxes = std::ranges::all_of(node.mRecords, [&](const Record& record) {
      const Box& box = record.box;
      return low.x <= box.min.x && low.y <= box.min.y && low.z <= box.min.z && box.max.x <= high.x &&
             box.max.y <= high.y && box.max.z <= high.z;
    });
    mCells.push_back({&node, cell, orderOf(cell), static_cast<std::uint32_t>(boxes.size()), holdsItsBoxes, cube});
    for (const Record& record : node.mRecords) boxes.push_back(record.box);
  }
  mIndex.build(boxes);
  mAnswers.resize(this->kCellCount);
  mAppended.clear();
  mAppended.reserve(boxes.size() / 4 + 1);
  mIsIndexed = true;
}

/// Whether the cubes of a cell and of all those above it meet the volume; each is asked once per query.
template <class T, class Real>
bool BBoxOctree<T, Real>::cellMeets(std::uint32_t cell, const ViewVolume& volume) {
  std::uint32_t& answer = mAnswers[cell];
  if (answer / 2 != mQuery) {
    const Cube cube = cubeOf(cell);
    const bool meets = (cell == 0 || cellMeets((cell - 1) / 8, volume)) &&
                       volume.meets(cube.center, {cube.halfSize, cube.halfSize, cube.halfSize});
    answer = 2 * mQuery + (meets ? 1 : 0);
  }
  return answer % 2 != 0;
}

/// cellMeets() for the cell of a box that lies well inside the volume. Where the surface goes through the cell's cube,
/// none above need be asked.
template <class T, class Real>
bool BBoxOctree<T, Real>::cellOfInnerMeets(const IndexedCell& in, const ViewVolume& volume) {
  std::uint32_t& answer = mAnswers[in.cell];
  if (answer / 2 != mQuery) {
    const Vec3 half{in.cube.halfSize, in.cube.halfSize, in.cube.halfSize};
    if (!volume.reachesOut(in.cube.center, half)) return cellMeets(in.cell, volume);
    answer = 2 * mQuery + 1;
  }
  return answer % 2 != 0;
}

template <class T, class Real>
void BBoxOctree<T, Real>::queryFrustum(const ViewVolume& volume, std::vector<Candidate>& out) {
  settle();
  if (subtreeCount(0) == 0) return;
  if (!mIsIndexed) makeIndex();
  mQuery = (mQuery + 1) % (1u << 31);
  if (mQuery == 0) {
    std::ranges::fill(mAnswers, 0);
    mQuery = 1;
  }
  // The cubes around a box that meets the volume meet it as well, but for rounding.
  const double size = std::max(std::max(std::fabs(mCenter.x), std::fabs(mCenter.y)), std::fabs(mCenter.z)) + mHalfSize;
  mAreCubesFirm = volume.isHull() && size <= volume.firmSize();
  mIndex.find(volume, mFound);

  mLate.clear();
  for (const Place& place : mAppended)
    if (volume.meets(this->find(place.cell)->mRecords[place.record].box) && cellMeets(place.cell, volume))
      mLate.push_back({orderOf(place.cell), place});
  std::ranges::sort(mLate, [](const Late& a, const Late& b) {
    return a.order != b.order ? a.order < b.order : a.place.record < b.place.record;
  });
  std::size_t late = 0;
  const auto appendLate = [&](std::uint32_t order) {
    for (; late < mLate.size() && mLate[late].order < order; ++late) {
      const Place& place = mLate[late].place;
      out.push_back({&this->find(place.cell)->mRecords[place.record], place.cell, false, false, false});
    }
  };

  for (std::size_t word = 0; word < mFound.inside.size(); ++word) {
    const std::uint64_t inside = mFound.inside[word], doubtful = mFound.doubtful[word];
    for (std::uint64_t marks = inside | mFound.firm[word] | doubtful; marks != 0; marks &= marks - 1) {
      const int bit = std::countr_zero(marks);
      const std::size_t rank = 64 * word + static_cast<std::size_t>(bit);
      const IndexedCell& in = mCells[mCellOfRank[rank]];
      const bool isInside = (inside >> bit & 1) != 0, isDoubtful = (doubtful >> bit & 1) != 0;
      const bool isCellKnown = mAreCubesFirm && in.holdsItsBoxes;
      if (!isDoubtful && !isCellKnown && !cellMeets(in.cell, volume)) continue;
      if (isInside && isCellKnown && !cellOfInnerMeets(in, volume)) continue;
      appendLate(in.order);
      out.push_back({&in.node->mRecords[rank - in.firstRank], in.cell, isInside, isDoubtful, in.holdsItsBoxes});
    }
  }
  appendLate(std::numeric_limits<std::uint32_t>::max());
}

template <class T, class Real>
bool BBoxOctree<T, Real>::meets(const Candidate& candidate, const ViewVolume& volume) {
  if (!candidate.isDoubtful) return true;
  const ViewVolume::Meeting meeting = volume.meeting(candidate.record->box);
  if (meeting == ViewVolume::Meeting::none) return false;
  return (meeting == ViewVolume::Meeting::firm && mAreCubesFirm && candidate.isInCube) ||
         cellMeets(candidate.cell, volume);
}

}  // namespace util
