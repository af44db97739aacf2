#pragma once

#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <iterator>
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

  std::vector<Record> mRecords;      ///< those that belong to this very cell, in order of insertion
  std::int32_t mSubtreeCount = 0;    ///< of records here and in all cells below
  std::unique_ptr<BoxIndex> mIndex;  ///< of the first of a crowded cell's records; made by queries
};

/// Items with boxes in an octree of five levels. Each item is stored once, in the deepest cell that holds its box
/// whole; a box that straddles a midplane of a cell stays in that cell.
///
/// The order of all results is part of the contract: cells by depth first, children by ascending number, and the
/// records of a cell in order of insertion. The order in which items come out of extractAll() becomes their order of
/// insertion when the tree is rebuilt.
///
/// Five levels tell at most 16 x 16 items of a plane apart, and large sets leave many in the upper cells. View-volume
/// queries therefore make an index for each crowded cell that they come to; box queries leave that to the caller.
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
    const std::uint32_t cell = locate(box, mAdder);
    this->find(cell)->mRecords.push_back({box, std::move(item)});
    if (hasPlace(box)) mUnion.extend(box);
  }

  /// Removes the first record of this very box and item; the others keep their order.
  /// @return whether there was one
  bool remove(const Box& box, const T& item);

  /// Appends every item to `out`.
  void collectAll(std::vector<T>& out) const;

  /// Appends every record to `out` and leaves the tree empty; its root keeps place and size.
  void extractAll(std::vector<Record>& out);

  /// Appends every record to `out` and leaves the tree as if newly made.
  void extractAllAndReset(Real halfSize, std::vector<Record>& out) {
    extractAll(out);
    mCenter = {0, 0, 0};
    mHalfSize = halfSize;
  }

  /// Appends the items whose boxes meet the volume of eight corners, see ViewVolume. Cells whose cubes do not meet it
  /// are passed over with all below them. A box that is empty on an axis meets nothing.
  ///
  /// The pointers are valid until the tree changes. The first query after a change costs O(n log n) for the cells that
  /// hold sixteen records or more, later ones about what they find and what lies around the volume's surface.
  void queryFrustum(const Vec3 corners[8], std::vector<const T*>& out);

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
  /// that its extent overflows, would leave a root without a place, in which no query finds anything any more.
  static bool hasPlace(const Box& box) {
    constexpr double kFarthest = 1e300;
    const auto isNear = [](const Vec3& v) {
      return std::fabs(v.x) <= kFarthest && std::fabs(v.y) <= kFarthest && std::fabs(v.z) <= kFarthest;
    };
    return (isNear(box.min) && isNear(box.max)) || box.min.x > box.max.x;
  }

  static constexpr int kStays = -1;
  static constexpr std::size_t kCrowded = 16;        // records of a cell from which on an index pays
  static constexpr std::size_t kFew = 2;             // records of a cell that are tested before the cell itself
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

  void updateIndex(Node& node);
  void listMeeting(Node& node, const ViewVolume& volume, std::vector<const T*>& out);
  void listMeeting(std::uint32_t cell, int level, const Vec3& center, Real halfSize, const ViewVolume& volume,
                   std::vector<const T*>& out);

  CNull mNull;
  CAdder mAdder;
  CRemover mRemover;
  Vec3 mCenter{0, 0, 0};
  Real mHalfSize;
  Box mUnion;                         // of all boxes stored; those removed since it was last empty may be in it
  bool mUnionIsWide = false;          // whether a box was removed since
  std::vector<std::uint64_t> mMarks;  // scratch
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

/// Descends to the cell of a box; the cells on the way are created.
template <class T, class Real>
std::uint32_t BBoxOctree<T, Real>::locate(const Box& box, Visitor& visitor) {
  std::uint32_t cell = 0;
  Vec3 center = mCenter;
  Real halfSize = mHalfSize;
  for (int level = 1; level < this->kDepth; ++level) {
    const int code = childFor(box, center);
    if (code == kStays) break;
    visitor.visitPath(cell, this->touch(cell));
    halfSize = halfSize / 2;
    cell = this->childOf(cell, static_cast<unsigned>(code));
    center = childCenter(center, halfSize, static_cast<unsigned>(code));
  }
  visitor.visitTarget(cell, this->touch(cell));
  return cell;
}

template <class T, class Real>
void BBoxOctree<T, Real>::ensureContains(const Box& box) {
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

  std::vector<Record> records;
  extractAll(records);
  mCenter = newCenter;
  mHalfSize = newHalfSize;
  for (Record& record : records) insert(record.box, std::move(record.item));
}

template <class T, class Real>
bool BBoxOctree<T, Real>::remove(const Box& box, const T& item) {
  Node& node = *this->find(locate(box, mNull));
  std::vector<Record>& records = node.mRecords;
  const auto found =
      std::ranges::find_if(records, [&](const Record& record) { return record.item == item && record.box == box; });
  if (found == records.end()) return false;
  records.erase(found);
  node.mIndex.reset();
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
    node.mIndex.reset();
    node.mSubtreeCount = 0;
  }
  mUnion = Box{};
  mUnionIsWide = false;
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

/// Sees to it that an index covers at least three quarters of a crowded cell's records. Those behind it were appended
/// since.
template <class T, class Real>
void BBoxOctree<T, Real>::updateIndex(Node& node) {
  const std::size_t count = node.mRecords.size();
  if (count < kCrowded || (node.mIndex && 4 * (count - node.mIndex->size()) < count)) return;
  std::vector<Box> boxes;
  boxes.reserve(count);
  for (const Record& record : node.mRecords) boxes.push_back(record.box);
  node.mIndex = std::make_unique<BoxIndex>(boxes);
}

/// Appends those of a cell's records that meet the volume, in order of insertion.
template <class T, class Real>
void BBoxOctree<T, Real>::listMeeting(Node& node, const ViewVolume& volume, std::vector<const T*>& out) {
  updateIndex(node);
  const std::span<const Record> records = node.mRecords;
  std::size_t indexed = 0;
  if (node.mIndex) {
    indexed = node.mIndex->size();
    mMarks.assign((indexed + 63) / 64, 0);
    node.mIndex->markMeeting(volume, mMarks);
    for (std::size_t word = 0; word < mMarks.size(); ++word)
      for (std::uint64_t marks = mMarks[word]; marks != 0; marks &= marks - 1)
        out.push_back(&records[64 * word + static_cast<std::size_t>(std::countr_zero(marks))].item);
  }
  for (const Record& record : records.subspan(indexed))
    if (volume.meets(record.box)) out.push_back(&record.item);
}

/// Appends what meets the volume from the cell and all below it.
template <class T, class Real>
void BBoxOctree<T, Real>::listMeeting(std::uint32_t cell, int level, const Vec3& center, Real halfSize,
                                      const ViewVolume& volume, std::vector<const T*>& out) {
  Node& node = *this->find(cell);
  const auto meets = [&] { return volume.meets(center, {halfSize, halfSize, halfSize}); };
  if (node.mRecords.size() <= kFew && static_cast<std::size_t>(node.mSubtreeCount) == node.mRecords.size()) {
    // The records are smaller than the cell, and so more likely to be apart from the volume: the cell is asked for only
    // where one is not. It takes both.
    const std::size_t before = out.size();
    listMeeting(node, volume, out);
    if (out.size() != before && !meets()) out.resize(before);
    return;
  }
  if (!meets()) return;
  listMeeting(node, volume, out);
  const Real childSize = halfSize / 2;
  forEachUsedChild(cell, level, [&](std::uint32_t child, unsigned code) {
    listMeeting(child, level + 1, childCenter(center, childSize, code), childSize, volume, out);
  });
}

template <class T, class Real>
void BBoxOctree<T, Real>::queryFrustum(const Vec3 corners[8], std::vector<const T*>& out) {
  if (subtreeCount(0) != 0) listMeeting(0, 1, mCenter, mHalfSize, ViewVolume(corners), out);
}

}  // namespace util
