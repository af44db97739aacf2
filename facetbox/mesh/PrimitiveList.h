#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/Polygon.h>

namespace util {

/// The faces, lines or points of a mesh, stored flat: one pool of corner indices with an offset and a count per
/// record, and parallel pools for further per-corner indices, which exist only when some record uses them.
///
/// A record is *cleared* by setting its counts to zero, its mask to zero and its tag to -1 (its normal and flag stay).
/// It keeps its number until compact() drops it. A record that shrinks keeps its place in the pool; one that grows
/// moves to the pool's end. Here record 1 has grown from four corners to five and record 2 is cleared:
///
///     record      0  1  2  3
///     mOffsets    0 14  7 11
///     mCounts     3  5  0  3
///
///     mCorners    | 0 0 0 | - - - - | - - - - | 3 3 3 | 1 1 1 1 1 |
///     position      0       3         7         11      14
///                           where 1   where 2           where 1
///                           was       was               is now
///
/// compact() drops record 2 and packs the pool in record order; the old record 3 is now record 2:
///
///     mOffsets    0  3  8
///     mCounts     3  5  3
///     mCorners    | 0 0 0 | 1 1 1 1 1 | 2 2 2 |
class PrimitiveList {
 public:
  // Records from outside fill set 0 only. The others are part of the record's definition: whatever a record carries
  // follows its corners.
  static constexpr int kTexCoordSets = 10;
  static constexpr int kOutgoingEdgeSet = 10;  ///< its indices describe the edge that leaves the corner
  static constexpr int kSeamSet = 11;          ///< an index other than 0xFFFFFFFF keeps the corner from being removed
  static constexpr int kCornerSets = 12;

  std::size_t size() const { return mCounts.size(); }
  bool empty() const { return mCounts.empty(); }

  std::uint32_t cornerCount(std::size_t i) const { return mCounts[i]; }
  bool isCleared(std::size_t i) const { return mCounts[i] == 0; }
  bool anyCleared() const { return std::ranges::find(mCounts, 0u) != mCounts.end(); }
  std::span<const std::uint32_t> corners(std::size_t i) const { return {mCorners.data() + mOffsets[i], mCounts[i]}; }
  std::span<std::uint32_t> corners(std::size_t i) { return {mCorners.data() + mOffsets[i], mCounts[i]}; }
  /// Position of the record's first corner in the pools. Positions are below poolSize().
  std::size_t offset(std::size_t i) const { return mOffsets[i]; }
  std::size_t poolSize() const { return mCorners.size(); }

  /// Asks for the memory of a record's place, count and normal.
  void prefetch(std::size_t i) const {
    __builtin_prefetch(&mOffsets[i]);
    __builtin_prefetch(&mCounts[i]);
    __builtin_prefetch(mNormals.data() + i);
  }
  /// Asks for the memory of the corner at a position of the pool.
  void prefetchCorner(std::size_t poolPosition) const { __builtin_prefetch(&mCorners[poolPosition]); }

  /// Normals may be left out of a list as a whole: then none may be asked for or set, and none take memory.
  bool hasNormals() const { return mNormals.size() == size(); }
  void dropNormals() { mNormals = {}; }
  /// Makes room for normals where they are left out; none of them set yet.
  void makeNormals() { mNormals.resize(size()); }
  const Vec3& normal(std::size_t i) const { return mNormals[i]; }
  void setNormal(std::size_t i, const Vec3& normal) { mNormals[i] = normal; }

  /// Which corner sets the record carries, a bit per set.
  std::uint32_t mask(std::size_t i) const { return mMasks.empty() ? 0 : mMasks[i]; }
  bool carries(std::size_t i, int set) const { return (mask(i) >> set & 1) != 0; }
  /// The record's indices in a set that it carries, one per corner.
  std::span<const std::uint32_t> cornerSet(std::size_t i, int set) const {
    assert(carries(i, set));
    return {mCornerSets[set].data() + mOffsets[i], mCounts[i]};
  }
  std::span<std::uint32_t> cornerSet(std::size_t i, int set) {
    assert(carries(i, set));
    return {mCornerSets[set].data() + mOffsets[i], mCounts[i]};
  }

  /// Takes a set from a record that carries it.
  void dropCornerSet(std::size_t i, int set) {
    assert(carries(i, set));
    mMasks[i] &= static_cast<std::uint16_t>(~(1u << set));
  }

  bool hasNormalIndices(std::size_t i) const { return !mFlags.empty() && (mFlags[i] & kHasNormalIndices) != 0; }
  bool perVertexNormals(std::size_t i) const { return !mFlags.empty() && (mFlags[i] & kPerVertexNormals) != 0; }
  /// The record's normal indices, which it must have, one per corner.
  std::span<std::uint32_t> normalIndices(std::size_t i) {
    assert(hasNormalIndices(i));
    return {mNormalIndices.data() + mOffsets[i], mCounts[i]};
  }
  std::span<const std::uint32_t> normalIndices(std::size_t i) const {
    assert(hasNormalIndices(i));
    return {mNormalIndices.data() + mOffsets[i], mCounts[i]};
  }
  /// Takes the normal indices from every record; the flags stay.
  void dropNormalIndices();

  std::int32_t tag(std::size_t i) const { return mTags.empty() ? -1 : mTags[i]; }
  void setTag(std::size_t i, std::int32_t tag);

  void clear(std::size_t i);
  /// Keeps the record's first `count` corners, with all that belongs to them.
  void shrink(std::size_t i, std::uint32_t count) {
    assert(count <= mCounts[i]);
    mCounts[i] = count;
  }

  /// Appends a record. Per-corner arrays that do not have one entry per corner are not carried.
  void append(const Polygon& record);
  /// Appends a record of `count` corners, none of them set yet, that carries the sets of `mask`; normal (0, 0, 0).
  void appendUninitialized(std::uint32_t count, std::uint32_t mask);
  /// Appends a record of `count` corners that carries what record `like` does; corners not set yet, normal (0, 0, 0).
  void appendLike(std::size_t like, std::uint32_t count);
  /// Gives a record `count` new corners at the pool's end, none of them set yet; what it carries, its normal and its
  /// tag stay. The old corners stay where they were until compact(). Not for a record that clear() has cleared.
  void relocate(std::size_t i, std::uint32_t count);
  /// Vertex index at a position of the pool.
  std::uint32_t vertexAt(std::size_t position) const { return mCorners[position]; }
  /// Copies a corner with all that belongs to it from one position of the pools to another.
  void copyCorner(std::size_t to, std::size_t from);
  /// Gives a record copies of the corners at these positions of the pools, with all that belongs to them, at its place
  /// if they are no more than `room`, else like relocate(). Not for a record that clear() has cleared.
  /// @param room     how many corners may be overwritten from the record's offset on; `positions` may lie among them
  /// @param scratch  kept between calls, so that it is not allocated each time
  void setCorners(std::size_t i, std::span<const std::uint32_t> positions, std::uint32_t room,
                  Buffer<std::uint32_t>& scratch);
  /// The record on its own.
  Polygon record(std::size_t i) const;

  /// Takes over flat arrays that hold records back to back: a count and corners for each, and set 0 when `set0` is not
  /// empty. Normals are left uninitialized.
  void adopt(Buffer<std::uint32_t>&& counts, Buffer<std::uint32_t>&& corners, Buffer<std::uint32_t>&& set0);

  /// Writes all records' corners, record after record, to `out`.
  void copyCorners(std::uint32_t* out) const { copyPool(mCorners, out); }
  /// The same for a corner set that some record carries; the corners of records that don't get index 0.
  void copyCornerSet(int set, std::uint32_t* out) const;

  /// Drops cleared records and packs the pools; the others keep their order. Nothing moves when none is cleared.
  /// O(records + corners).
  void compact();

  /// The corner sets that some record may carry.
  bool usesCornerSets() const { return !mMasks.empty(); }

  /// Whether all arrays are as long as they must be and the pools exist that some record uses. O(records).
  bool isParallel() const;

 private:
  enum Flag : std::uint8_t { kPerVertexNormals = 1, kHasNormalIndices = 2 };

  /// Calls `use(pool)` for the corner pool and every other pool that exists.
  template <class Use>
  void forEachPool(Use use);
  std::size_t growPools(std::uint32_t count);
  void copyPool(const Buffer<std::uint32_t>& pool, std::uint32_t* out) const;
  void growFlags();
  void growMasks();

  // The steps of compact().
  /// Whether the records lie in the pools in the order of their numbers, cleared ones aside.
  bool isInPoolOrder() const;
  /// Lays all records out in the pools back to back, in order.
  void repackPools();
  void placeBackToBack();
  /// Moves the records from `first` on down over the cleared ones, with their corners.
  void closeGaps(std::size_t first);

  // Parallel to the records. Normals may be left out; the last three are empty as long as every record has their
  // default.
  Buffer<std::uint32_t> mOffsets;
  Buffer<std::uint32_t> mCounts;
  Buffer<Vec3> mNormals;
  Buffer<std::uint16_t> mMasks;
  Buffer<std::uint8_t> mFlags;
  Buffer<std::int32_t> mTags;

  // Parallel to the corners. All but the first are empty as long as no record uses them.
  Buffer<std::uint32_t> mCorners;
  Buffer<std::uint32_t> mNormalIndices;
  std::array<Buffer<std::uint32_t>, kCornerSets> mCornerSets;
};

}  // namespace util
