#include <facetbox/mesh/KeptHoles.h>

#include <algorithm>
#include <limits>

namespace util {

void KeptHoles::begin(std::span<const std::uint32_t> holes, int outerAxis, HolePlacement::Search search) {
  mHoles = holes;
  mAxes = 0;
  mAxisOf.resize(holes.size());
  mBoxes.resize(holes.size());
  mKept.clear();
  Monitor* const monitor = mMesh.mMonitor.get();
  for (std::size_t i = 0; i < holes.size(); ++i) {
    const int axis = mPlacement.axisOf(holes[i]);
    mAxisOf[i] = static_cast<std::uint8_t>(axis);
    mAxes |= 1u << axis;
    mBoxes[i] = boxOf(holes[i]);
    if (monitor) monitor->tick();
  }
  mIsIndexed = search == HolePlacement::Search::indexed && holes.size() >= kLargeGroup;
  if (!mIsIndexed) return;
  {
    const Monitor::Part part(monitor, 0.0, 0.0);  // besides what is counted
    mIndex.plan(mBoxes, outerAxis, monitor);
  }
  std::vector<Box>().swap(mBoxes);  // worth releasing for a large group
  for (AxisSearch& own : mSearches) {
    if (own.method == Method::partition) own.partition = {};
    own.method = Method::boxes;
    own.testsLeft = kTestsByBoxes * holes.size();
  }
}

void KeptHoles::end() {
  if (!mIsIndexed) return;
  const Monitor::Part part(mMesh.mMonitor.get(), 0.0, 0.0);
  mIndex.clear(mMesh.mMonitor.get());
}

void KeptHoles::add(std::size_t position) {
  const std::uint32_t hole = mHoles[position];
  mKept.push_back(static_cast<unsigned>(position));
  if (!mIsIndexed) return;
  mIndex.insert(position, boxOf(hole), static_cast<unsigned>(position));
  const int axis = mAxisOf[position];
  AxisSearch& own = mSearches[static_cast<std::size_t>(axis)];
  if (own.method == Method::partition)
    own.partition.insert(static_cast<std::uint32_t>(position), mPlacement.polygonOf(hole, axis));
}

bool KeptHoles::overlapsAny(std::size_t position) {
  const Box box = mIsIndexed ? boxOf(mHoles[position]) : mBoxes[position];
  for (int axis = 0; axis < kAxes; ++axis)
    if ((mAxes >> axis & 1) != 0 && overlapsAlong(axis, position, box)) return true;
  return false;
}

/// Tests the kept holes that the hole may overlap as seen along the axis, which is that of one of the two.
bool KeptHoles::overlapsAlong(int axis, std::size_t position, const Box& box) {
  const bool isOwn = mAxisOf[position] == axis;
  AxisSearch& search = mSearches[static_cast<std::size_t>(axis)];
  if (mIsIndexed && search.method == Method::boxes && search.testsLeft == 0) startPartition(axis);
  const bool isPartitioned = mIsIndexed && search.method == Method::partition;
  if (isPartitioned) {
    if (overlapsInPartition(axis, position)) return true;
    if (!isOwn || allAlong(axis)) return false;
  }
  // The partition has answered for the holes with this axis; without it, the pair needs one with this axis.
  return anyByBoxes(axis, box, [&](unsigned other) {
    const bool isOwnOfOther = mAxisOf[other] == axis;
    if (isPartitioned ? isOwnOfOther : !isOwn && !isOwnOfOther) return false;
    if (isOwnOfOther && search.testsLeft > 0) --search.testsLeft;
    return mPlacement.overlap(mHoles[other], mHoles[position]);
  });
}

bool KeptHoles::overlapsInPartition(int axis, std::size_t position) {
  const auto inner = mAxisOf[position] == axis ? LoopPartition::Inner::sought : LoopPartition::Inner::ignored;
  mQuery.assign(mPlacement.polygonOf(mHoles[position], axis).corners());
  return mSearches[static_cast<std::size_t>(axis)].partition.any(
      mQuery, inner, [&](std::uint32_t other) { return mPlacement.overlap(mHoles[other], mHoles[position]); });
}

template <class Use>
bool KeptHoles::anyByBoxes(int axis, const Box& box, Use use) {
  const Box column = columnAlong(axis, box);
  if (mIsIndexed) return mIndex.any(column, use);
  return std::ranges::any_of(mKept, [&](unsigned other) { return boxesMeet(mBoxes[other], column) && use(other); });
}

/// Holds the box of every projection's finite corners, also where other corners are not finite.
Box KeptHoles::boxOf(std::uint32_t face) const {
  Box box;
  for (const std::uint32_t v : mMesh.mFaces.corners(face)) box.extend(mMesh.mVertices[v]);
  return box;
}

/// Box of the finite corners of all holes of the group, seen along an axis.
Box2 KeptHoles::projectedBox(int axis) const {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  Box2 box{{kInfinity, kInfinity}, {-kInfinity, -kInfinity}};
  for (const std::uint32_t hole : mHoles)
    for (const std::uint32_t v : mMesh.mFaces.corners(hole)) {
      const Vec2 p = project(mMesh.mVertices[v], axis);
      if (!isFinite(p)) continue;
      box.min = {std::min(box.min.x, p.x), std::min(box.min.y, p.y)};
      box.max = {std::max(box.max.x, p.x), std::max(box.max.y, p.y)};
    }
  return box;
}

/// Plans the partition for all holes with this dominant axis and puts in those that have been kept.
void KeptHoles::startPartition(int axis) {
  AxisSearch& own = mSearches[static_cast<std::size_t>(axis)];
  const auto cornersOf = [&](std::uint32_t position) {
    return mAxisOf[position] == axis ? mPlacement.polygonOf(mHoles[position], axis).corners() : std::span<const Vec2>();
  };
  if (!own.partition.plan(projectedBox(axis), mHoles.size(), cornersOf)) {
    own.method = Method::onlyBoxes;
    return;
  }
  own.method = Method::partition;
  for (const unsigned kept : mKept)
    if (mAxisOf[kept] == axis) own.partition.insert(kept, mPlacement.polygonOf(mHoles[kept], axis));
}

}  // namespace util
