#include <facetbox/mesh/PrimitiveList.h>

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstring>
#include <stdexcept>

namespace util {
namespace {

void checkPoolSize(std::size_t corners) {
  if (corners > 0xFFFFFFFFu) throw std::length_error("mesh has more than 2^32 - 1 corners");
}

template <class T>
void keepAt(Buffer<T>& values, std::size_t to, std::size_t from) {
  if (!values.empty()) values[to] = values[from];
}

template <class T>
void truncate(Buffer<T>& values, std::size_t size) {
  if (!values.empty()) values.resize(size);
}

}  // namespace

template <class Use>
void PrimitiveList::forEachPool(Use use) {
  use(mCorners);
  if (!mNormalIndices.empty()) use(mNormalIndices);
  for (Buffer<std::uint32_t>& pool : mCornerSets)
    if (!pool.empty()) use(pool);
}

void PrimitiveList::growFlags() { mFlags.resize(size(), 0); }

void PrimitiveList::growMasks() { mMasks.resize(size(), 0); }

void PrimitiveList::dropNormalIndices() {
  for (std::uint8_t& flags : mFlags) flags &= static_cast<std::uint8_t>(~kHasNormalIndices);
  mNormalIndices = {};
}

void PrimitiveList::setTag(std::size_t i, std::int32_t tag) {
  if (mTags.empty()) {
    if (tag == -1) return;
    mTags.resize(size(), -1);
  }
  mTags[i] = tag;
}

void PrimitiveList::clear(std::size_t i) {
  mCounts[i] = 0;
  if (!mMasks.empty()) mMasks[i] = 0;
  if (!mFlags.empty()) mFlags[i] &= static_cast<std::uint8_t>(~kHasNormalIndices);
  if (!mTags.empty()) mTags[i] = -1;
}

void PrimitiveList::appendUninitialized(std::uint32_t count, std::uint32_t mask) {
  const bool withNormal = hasNormals();
  const std::size_t offset = growPools(count);
  mOffsets.push_back(static_cast<std::uint32_t>(offset));
  mCounts.push_back(count);
  if (withNormal) mNormals.push_back({0.0, 0.0, 0.0});
  if (mask != 0 || !mMasks.empty()) {
    growMasks();
    mMasks.back() = static_cast<std::uint16_t>(mask);
  }
  if (!mFlags.empty()) growFlags();
  if (!mTags.empty()) mTags.push_back(-1);

  for (int set = 0; set < kCornerSets; ++set)
    if ((mask >> set & 1) != 0) mCornerSets[set].resize(offset + count, 0);
}

std::size_t PrimitiveList::growPools(std::uint32_t count) {
  const std::size_t offset = mCorners.size();
  checkPoolSize(offset + count);
  mCorners.resize(offset + count);
  if (!mNormalIndices.empty()) mNormalIndices.resize(offset + count, 0);
  for (auto& pool : mCornerSets)
    if (!pool.empty()) pool.resize(offset + count, 0);
  return offset;
}

void PrimitiveList::appendLike(std::size_t like, std::uint32_t count) {
  appendUninitialized(count, mask(like));
  if (!mFlags.empty()) mFlags.back() = mFlags[like];
}

void PrimitiveList::relocate(std::size_t i, std::uint32_t count) {
  mOffsets[i] = static_cast<std::uint32_t>(growPools(count));
  mCounts[i] = count;
}

void PrimitiveList::copyCorner(std::size_t to, std::size_t from) {
  forEachPool([=](Buffer<std::uint32_t>& pool) { pool[to] = pool[from]; });
}

void PrimitiveList::setCorners(std::size_t i, std::span<const std::uint32_t> positions, std::uint32_t room,
                               Buffer<std::uint32_t>& scratch) {
  const auto count = static_cast<std::uint32_t>(positions.size());
  if (count > room) {
    relocate(i, count);
    std::size_t to = mOffsets[i];
    for (const std::uint32_t position : positions) copyCorner(to++, position);
    return;
  }
  assert(std::size_t{mOffsets[i]} + count <= poolSize());
  mCounts[i] = count;
  scratch.resize(count);
  forEachPool([&](Buffer<std::uint32_t>& pool) {
    std::ranges::transform(positions, scratch.begin(), [&](std::uint32_t position) { return pool[position]; });
    std::ranges::copy(scratch, pool.begin() + mOffsets[i]);
  });
}

void PrimitiveList::append(const Polygon& record) {
  const auto count = static_cast<std::uint32_t>(record.mVertexIndices.size());
  const std::uint32_t declared = record.mTexCoordMask & ((1u << kCornerSets) - 1);
  const bool carriesSets = record.mTexCoordCount == count && count > 0 &&
                           record.mTexCoordIndices.size() >= std::size_t{count} * std::popcount(declared);
  appendUninitialized(count, carriesSets ? declared : 0);
  const std::size_t i = size() - 1;

  std::ranges::copy(record.mVertexIndices, corners(i).begin());
  mNormals[i] = record.mNormal;
  const std::uint32_t* next = record.mTexCoordIndices.data();
  for (std::uint32_t bits = mask(i); bits != 0; bits &= bits - 1, next += count)
    std::copy_n(next, count, cornerSet(i, std::countr_zero(bits)).begin());

  const bool withNormals = count > 0 && record.mNormalIndices.size() == count;
  if (withNormals || record.mPerVertexNormals != 0) {
    growFlags();
    mFlags[i] = static_cast<std::uint8_t>((record.mPerVertexNormals != 0 ? kPerVertexNormals : 0) |
                                          (withNormals ? kHasNormalIndices : 0));
  }
  if (withNormals) {
    mNormalIndices.resize(mCorners.size(), 0);
    std::ranges::copy(record.mNormalIndices, normalIndices(i).begin());
  }
  setTag(i, record.mTag);
}

Polygon PrimitiveList::record(std::size_t i) const {
  Polygon record;
  record.mVertexIndices.assign(corners(i).begin(), corners(i).end());
  if (hasNormalIndices(i)) record.mNormalIndices.assign(normalIndices(i).begin(), normalIndices(i).end());
  record.mTexCoordMask = mask(i);
  if (record.mTexCoordMask != 0) record.mTexCoordCount = mCounts[i];
  for (std::uint32_t bits = record.mTexCoordMask; bits != 0; bits &= bits - 1) {
    const auto indices = cornerSet(i, std::countr_zero(bits));
    record.mTexCoordIndices.insert(record.mTexCoordIndices.end(), indices.begin(), indices.end());
  }
  record.mNormal = mNormals[i];
  record.mPerVertexNormals = perVertexNormals(i) ? 1 : 0;
  record.mTag = tag(i);
  return record;
}

void PrimitiveList::adopt(Buffer<std::uint32_t>&& counts, Buffer<std::uint32_t>&& corners,
                          Buffer<std::uint32_t>&& set0) {
  checkPoolSize(corners.size());
  *this = {};
  mCounts = std::move(counts);
  mCorners = std::move(corners);
  mNormals.resize(size());
  mOffsets.resize(size());
  placeBackToBack();
  assert(mCorners.size() == (empty() ? 0 : std::size_t{mOffsets.back()} + mCounts.back()));
  assert(set0.empty() || set0.size() == mCorners.size());
  if (!set0.empty()) {
    mCornerSets[0] = std::move(set0);
    mMasks.resize(size(), std::uint16_t{1});
  }
}

void PrimitiveList::copyPool(const Buffer<std::uint32_t>& pool, std::uint32_t* out) const {
  for (std::size_t i = 0; i < size();) {
    // Records that stand back to back in the pool go in one piece.
    const std::size_t begin = mOffsets[i];
    std::size_t end = begin;
    for (; i < size() && mOffsets[i] == end; ++i) end += mCounts[i];
    out = std::copy(pool.begin() + static_cast<std::ptrdiff_t>(begin), pool.begin() + static_cast<std::ptrdiff_t>(end),
                    out);
  }
}

void PrimitiveList::copyCornerSet(int set, std::uint32_t* out) const {
  if (!mCornerSets[set].empty()) {
    copyPool(mCornerSets[set], out);
    return;
  }
  for (const std::uint32_t count : mCounts) out = std::fill_n(out, count, 0u);
}

bool PrimitiveList::isParallel() const {
  const auto isAbsentOr = [](std::size_t length) {
    return [length](auto& a) { return a.empty() || a.size() == length; };
  };
  const auto fitsRecords = isAbsentOr(size()), fitsCorners = isAbsentOr(poolSize());
  if (mOffsets.size() != size() || !(mNormals.empty() || hasNormals())) return false;
  if (!fitsRecords(mMasks) || !fitsRecords(mFlags) || !fitsRecords(mTags)) return false;
  if (!fitsCorners(mNormalIndices) || !std::ranges::all_of(mCornerSets, fitsCorners)) return false;

  bool usesNormals = false;
  std::uint32_t usedSets = 0;
  for (std::size_t i = 0; i < size(); ++i) {
    if (mCounts[i] == 0) continue;
    usesNormals |= hasNormalIndices(i);
    usedSets |= mask(i);
  }
  if (usesNormals && mNormalIndices.empty()) return false;
  for (int set = 0; set < kCornerSets; ++set)
    if ((usedSets >> set & 1) != 0 && mCornerSets[set].empty()) return false;
  return usedSets >> kCornerSets == 0;
}

void PrimitiveList::compact() {
  const auto firstCleared = std::find(mCounts.begin(), mCounts.end(), 0u);
  if (firstCleared == mCounts.end()) return;
  // Corners move down within the pools, which needs them in record order; records that have moved break it.
  if (!isInPoolOrder()) repackPools();
  closeGaps(static_cast<std::size_t>(firstCleared - mCounts.begin()));
}

bool PrimitiveList::isInPoolOrder() const {
  std::size_t end = 0;
  for (std::size_t i = 0; i < size(); ++i) {
    if (mCounts[i] == 0) continue;
    if (mOffsets[i] < end) return false;
    end = std::size_t{mOffsets[i]} + mCounts[i];
  }
  return true;
}

void PrimitiveList::repackPools() {
  forEachPool([this](Buffer<std::uint32_t>& pool) {
    Buffer<std::uint32_t> packed;
    packed.reserve(pool.size());
    for (std::size_t i = 0; i < size(); ++i)
      packed.insert(packed.end(), pool.begin() + mOffsets[i], pool.begin() + mOffsets[i] + mCounts[i]);
    pool = std::move(packed);
  });
  placeBackToBack();
}

void PrimitiveList::placeBackToBack() {
  std::uint32_t offset = 0;
  for (std::size_t i = 0; i < size(); ++i) {
    mOffsets[i] = offset;
    offset += mCounts[i];
  }
}

void PrimitiveList::closeGaps(std::size_t first) {
  std::array<std::uint32_t*, 2 + kCornerSets> pools;
  std::size_t poolCount = 0;
  forEachPool([&](Buffer<std::uint32_t>& pool) { pools[poolCount++] = pool.data(); });

  std::size_t offset = first == 0 ? 0 : std::size_t{mOffsets[first - 1]} + mCounts[first - 1];
  std::size_t kept = first;
  for (std::size_t i = first; i < size(); ++i) {
    const std::uint32_t count = mCounts[i];
    if (count == 0) continue;
    for (std::size_t p = 0; p < poolCount; ++p)
      std::memmove(pools[p] + offset, pools[p] + mOffsets[i], count * sizeof(std::uint32_t));
    mOffsets[kept] = static_cast<std::uint32_t>(offset);
    mCounts[kept] = count;
    keepAt(mNormals, kept, i);
    keepAt(mMasks, kept, i);
    keepAt(mFlags, kept, i);
    keepAt(mTags, kept, i);
    offset += count;
    ++kept;
  }
  mOffsets.resize(kept);
  mCounts.resize(kept);
  truncate(mNormals, kept);
  truncate(mMasks, kept);
  truncate(mFlags, kept);
  truncate(mTags, kept);
  forEachPool([offset](Buffer<std::uint32_t>& pool) { pool.resize(offset); });
}

}  // namespace util
