#include <facetbox/spatial/BoxIndex.h>

#include <algorithm>
#include <cassert>
#include <cmath>

#include <facetbox/base/Processor.h>

namespace util {

namespace {

// Into a box that is smaller by a margin on all sides, a point moves by up to sqrt(3) margins.
static_assert(kBoxMargin >
              kBoxRounding + kBoxOutward + Frustum::kMargin + Frustum::kDeviation + 1.7321 * Frustum::kLargestMargin);

struct OfBoxes {
  const ChunkedVector<Box>& boxes;

  FloatBox operator()(std::uint32_t number) const { return FloatBox::around(boxes[number]); }
  void prefetch(std::uint32_t number) const { __builtin_prefetch(&boxes[number]); }
};

struct OfBounds {
  const std::vector<FloatBox>& bounds;

  const FloatBox& operator()(std::uint32_t bucket) const { return bounds[bucket]; }
  void prefetch(std::uint32_t) const {}
};

BoxTraversal traversalOf(const Frustum& volume) {
  BoxTraversal traversal;
  for (std::size_t i = 0; i < 6; ++i) {
    BoxTraversal::Plane& plane = traversal.planes[i];
    const Vec3 normal = volume.normal(i);
    plane.x = static_cast<float>(normal.x);
    plane.y = static_cast<float>(normal.y);
    plane.z = static_cast<float>(normal.z);
    plane.low = static_cast<float>(volume.offset(i));
    plane.high = static_cast<float>(volume.farthest(i));
    plane.bit = 1 << i;
    const bool isPositive[3] = {normal.x > 0, normal.y > 0, normal.z > 0};
    for (std::size_t axis = 0; axis < 3; ++axis) {
      plane.lowest[axis] = kBoxBlockWidth * (isPositive[axis] ? axis : axis + 3);
      plane.highest[axis] = kBoxBlockWidth * (isPositive[axis] ? axis + 3 : axis);
    }
  }
  traversal.magnitude = volume.magnitude();
  return traversal;
}

}  // namespace

void BoxIndex::build(const ChunkedVector<Box>& boxes) {
  assert(boxes.size() <= BoxTraversal::kMaxBoxes);
  mBuckets.clear();
  mSize = boxes.size();
  std::vector<BoxKey> keys;
  keys.reserve(mSize);
  for (std::uint32_t i = 0; i < mSize; ++i)
    if (meetsAnything(boxes[i])) keys.push_back(BoxKey::of(i, boxes[i]));
  if (keys.empty()) return;
  mBuckets.reserve(keys.size() / kBuiltSize + 2);
  buildBuckets(keys, boxes);
  buildTop();
}

void BoxIndex::buildBuckets(std::span<BoxKey> keys, const ChunkedVector<Box>& boxes) {
  if (keys.size() <= kBucketSize) {
    mBuckets.emplace_back().tree.build(keys, OfBoxes{boxes});
    return;
  }
  // On one side, a multiple of kBuiltSize times a power of eight, so that the blocks above are full and compact.
  std::size_t unit = kBuiltSize;
  while (unit * kBoxBlockWidth < keys.size()) unit *= kBoxBlockWidth;
  const std::size_t half = std::max<std::size_t>(1, (keys.size() + unit - 1) / unit / 2) * unit;
  splitAtMedian(keys, half);
  buildBuckets(keys.first(half), boxes);
  buildBuckets(keys.subspan(half), boxes);
}

void BoxIndex::buildTop() {
  mBounds.clear();
  for (const Bucket& bucket : mBuckets) mBounds.push_back(bucket.tree.bounds());
  if (mBuckets.size() == 1) return;
  std::vector<BoxKey> keys;
  keys.reserve(mBuckets.size());
  for (std::uint32_t i = 0; i < mBuckets.size(); ++i) keys.push_back(BoxKey::of(i, mBounds[i]));
  mTop.build(keys, OfBounds{mBounds});
  for (std::uint32_t place = 0; place < keys.size(); ++place) mBuckets[mTop.numbers()[place]].place = place;
}

void BoxIndex::refit(const ChunkedVector<Box>& boxes) {
  for (Bucket& bucket : mBuckets) bucket.tree.refit(OfBoxes{boxes});
  for (std::size_t i = 0; i < mBuckets.size(); ++i) mBounds[i] = mBuckets[i].tree.bounds();
  if (mBuckets.size() > 1) mTop.refit(OfBounds{mBounds});
}

/// The bucket whose bounds grow least, by the sum of their edges; of equal ones, the smallest.
std::size_t BoxIndex::bucketFor(const FloatBox& box) const {
  std::size_t best = 0;
  float bestGrowth = FloatBox::kInfinity, bestSize = FloatBox::kInfinity;
  for (std::size_t i = 0; i < mBounds.size(); ++i) {
    const FloatBox& bounds = mBounds[i];
    float growth = 0, size = 0;
    for (int axis = 0; axis < 3; ++axis) {
      growth += std::max(0.0f, bounds.min[axis] - box.min[axis]) + std::max(0.0f, box.max[axis] - bounds.max[axis]);
      size += bounds.max[axis] - bounds.min[axis];
    }
    if (growth < bestGrowth || (growth == bestGrowth && size < bestSize)) {
      best = i;
      bestGrowth = growth;
      bestSize = size;
    }
  }
  return best;
}

void BoxIndex::append(const ChunkedVector<Box>& boxes) {
  assert(mSize < boxes.size() && mSize < BoxTraversal::kMaxBoxes);
  const auto number = static_cast<std::uint32_t>(mSize);
  const Box& box = boxes[number];
  ++mSize;
  if (!meetsAnything(box)) return;
  if (mBuckets.empty()) {
    mBuckets.emplace_back().tree.build({}, OfBoxes{boxes});
    buildTop();
  }

  const FloatBox outward = FloatBox::around(box);
  const std::size_t chosen = bucketFor(outward);
  Bucket& bucket = mBuckets[chosen];
  mBounds[chosen].extend(outward);
  const std::size_t size = bucket.tree.size() + 1;
  if (bucket.tree.hasRoom() && size <= kBucketSize) {
    bucket.tree.append(number, outward);
  } else {
    std::vector<BoxKey> keys = keysOf(bucket, boxes);
    keys.push_back(BoxKey::of(number, box));
    if (size > kBucketSize) {
      split(chosen, keys, boxes);
      return;
    }
    bucket.tree.build(keys, OfBoxes{boxes});
  }
  if (mBuckets.size() > 1) mTop.extend(bucket.place, outward);
}

/// Has room for one key more.
std::vector<BoxKey> BoxIndex::keysOf(const Bucket& bucket, const ChunkedVector<Box>& boxes) {
  const std::vector<std::uint32_t>& numbers = bucket.tree.numbers();
  std::vector<BoxKey> keys;
  keys.reserve(numbers.size() + 1);
  for (const std::uint32_t number : numbers) __builtin_prefetch(&boxes[number]);  // they lie anywhere in memory
  for (const std::uint32_t number : numbers) keys.push_back(BoxKey::of(number, boxes[number]));
  return keys;
}

/// Replaces a bucket by two with these keys.
void BoxIndex::split(std::size_t bucket, std::span<BoxKey> keys, const ChunkedVector<Box>& boxes) {
  const std::size_t half = keys.size() / 2;
  splitAtMedian(keys, half);
  mBuckets[bucket].tree.build(keys.first(half), OfBoxes{boxes});
  mBuckets.emplace_back().tree.build(keys.subspan(half), OfBoxes{boxes});
  buildTop();
}

void BoxIndex::find(const Frustum& volume, bool findsCrossed, Found& found,
                    [[maybe_unused]] Instructions instructions) const {
  found.boxes = {};
  if (mBuckets.empty()) return;
  BoxTraversal traversal = traversalOf(volume);
  assert(!findsCrossed || volume.isConvex());
  traversal.findsCrossed = findsCrossed;
  const std::size_t room = std::max(mBuckets.size(), kBucketSize) / kBoxBlockWidth + 1 + kBoxBlockWidth;
  if (found.mRoom.size() < 2 * room) found.mRoom.resize(2 * room);
  if (found.mBuckets.size() < mBuckets.size()) found.mBuckets.resize(mBuckets.size());
  if (found.mBoxes.size() < mSize) found.mBoxes.resize(mSize + mSize / 4);
  traversal.room[0] = found.mRoom.data();
  traversal.room[1] = found.mRoom.data() + room;
  std::size_t count;
#if defined(FACETBOX_HAS_AVX2)
  if (mayUseAvx2(instructions))
    count = find(traversal, found, traverseBoxesAvx2);
  else
#endif
    count = find(traversal, found, traverseBoxesBase);
  found.boxes = std::span(found.mBoxes.data(), count);
}

template <class Traverse>
std::size_t BoxIndex::find(const BoxTraversal& traversal, Found& found, Traverse traverse) const {
  std::uint32_t* const first = found.mBoxes.data();
  if (mBuckets.size() == 1) return mBuckets[0].tree.find(traversal, BoxTraversal::kAllPlanes, first, traverse);
  BoxTraversal ofBuckets = traversal;
  ofBuckets.findsCrossed = false;
  const std::size_t buckets = mTop.find(ofBuckets, BoxTraversal::kAllPlanes, found.mBuckets.data(), traverse);
  std::size_t count = 0;
  for (std::size_t i = 0; i < buckets; ++i) {
    const std::uint32_t bucket = found.mBuckets[i];
    count += mBuckets[bucket / BoxTraversal::kPlaneRange].tree.find(traversal, bucket % BoxTraversal::kPlaneRange,
                                                                    first + count, traverse);
  }
  return count;
}

}  // namespace util
