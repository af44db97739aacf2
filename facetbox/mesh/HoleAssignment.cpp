#include <facetbox/mesh/HoleAssignment.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <span>
#include <stdexcept>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Box.h>
#include <facetbox/mesh/HolePlacement.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/polygons/LoopPartition.h>
#include <facetbox/spatial/BBoxOctree.h>

namespace util {
namespace {

using Search = HolePlacement::Search;

// When octrees are allowed at all, and for which groups they are used.
constexpr std::size_t kLargeModeVertices = 101, kLargeModeEntries = 21;
constexpr std::size_t kLargeGroupHoles = 21, kLargeOuterCorners = 101;

constexpr int kAxes = 3;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// The holes of one group that were kept so far.
///
/// Two holes overlap only where their boxes meet as seen along the dominant axis of one of them: each of the tests
/// projects along one or the other. That the boxes are apart along the axis of sight says nothing, so the faces need
/// not be planar.
///
/// Where boxes leave too many holes to be tested, as with long ones side by side at an angle, those with the axis of
/// sight for their own are searched in a partition of the plane instead.
class KeptHoles {
 public:
  explicit KeptHoles(HolePlacement& placement, const MeshStorage& mesh) : mPlacement(placement), mMesh(mesh) {}

  /// Forgets all and gets ready for the holes of a group.
  void begin(std::span<const std::uint32_t> holes, int outerAxis, Search search);

  /// Whether all holes have this dominant axis.
  bool allAlong(int axis) const { return mAxes == 1u << axis; }

  void add(std::size_t position);

  /// Calls `use(position)` for the kept holes that the hole at `position` may overlap until it returns true. Returns
  /// whether it did.
  template <class Use>
  bool any(std::size_t position, Use use);

 private:
  /// How holes are found that have this axis of sight for their own.
  enum class Finder { boxes, partition, onlyBoxes };
  /// More tests for each hole than this, after boxes, are too many.
  static constexpr std::size_t kTestsByBoxes = 24;

  struct Sight {
    Finder finder = Finder::boxes;
    std::size_t testsLeft = 0;
    LoopPartition partition;
  };

  Box boxOf(std::uint32_t face) const;
  template <class Use>
  bool anyByBoxes(int sight, const Box& box, Use use);
  void startPartition(int sight);

  HolePlacement& mPlacement;
  const MeshStorage& mMesh;
  std::span<const std::uint32_t> mHoles;  // the group's
  bool mIsIndexed = false;
  unsigned mAxes = 0;            // a bit for each dominant axis in use
  Buffer<std::uint8_t> mAxisOf;  // per hole of the group
  std::vector<unsigned> mKept;
  // One of the two. The index has the boxes of the kept ones itself.
  std::vector<Box> mBoxes;  // per hole of the group
  BBoxOctree<unsigned> mIndex;
  std::array<Sight, kAxes> mSights;
  PlanarPolygon mSought;
};

/// Holds the box of every projection's finite corners, also where others are not finite.
Box KeptHoles::boxOf(std::uint32_t face) const {
  Box box;
  for (const std::uint32_t v : mMesh.mFaces.corners(face)) box.extend(mMesh.mVertices[v]);
  return box;
}

void KeptHoles::begin(std::span<const std::uint32_t> holes, int outerAxis, Search search) {
  mHoles = holes;
  mAxes = 0;
  mAxisOf.resize(holes.size());
  mBoxes.resize(holes.size());
  mKept.clear();
  for (std::size_t i = 0; i < holes.size(); ++i) {
    const int axis = dominantAxis(mMesh.mFaces.normal(holes[i]));
    mAxisOf[i] = static_cast<std::uint8_t>(axis);
    mAxes |= 1u << axis;
    mBoxes[i] = boxOf(holes[i]);
  }
  mIsIndexed = search == Search::indexed && holes.size() >= kLargeGroupHoles;
  if (!mIsIndexed) return;
  mIndex.plan(mBoxes, outerAxis);
  std::vector<Box>().swap(mBoxes);  // a large group's are worth giving back
  for (Sight& sight : mSights) {
    if (sight.finder == Finder::partition) sight.partition = {};
    sight.finder = Finder::boxes;
    sight.testsLeft = kTestsByBoxes * holes.size();
  }
}

void KeptHoles::startPartition(int sight) {
  Box2 box{{kInfinity, kInfinity}, {-kInfinity, -kInfinity}};
  for (const std::uint32_t hole : mHoles)
    for (const std::uint32_t v : mMesh.mFaces.corners(hole)) {
      const Vec2 p = project(mMesh.mVertices[v], sight);
      if (!isFinite(p)) continue;
      box.min = {std::min(box.min.x, p.x), std::min(box.min.y, p.y)};
      box.max = {std::max(box.max.x, p.x), std::max(box.max.y, p.y)};
    }
  Sight& own = mSights[static_cast<std::size_t>(sight)];
  const auto cornersOf = [&](std::uint32_t position) {
    return mAxisOf[position] == sight ? mPlacement.polygonOf(mHoles[position], sight).corners()
                                      : std::span<const Vec2>();
  };
  if (!own.partition.plan(box, mHoles.size(), cornersOf)) {
    own.finder = Finder::onlyBoxes;
    return;
  }
  own.finder = Finder::partition;
  for (const unsigned kept : mKept)
    if (mAxisOf[kept] == sight) own.partition.insert(kept, mPlacement.polygonOf(mHoles[kept], sight));
}

void KeptHoles::add(std::size_t position) {
  const std::uint32_t hole = mHoles[position];
  mKept.push_back(static_cast<unsigned>(position));
  if (!mIsIndexed) return;
  mIndex.insert(position, boxOf(hole), static_cast<unsigned>(position));
  const int axis = mAxisOf[position];
  Sight& sight = mSights[static_cast<std::size_t>(axis)];
  if (sight.finder == Finder::partition)
    sight.partition.insert(static_cast<std::uint32_t>(position), mPlacement.polygonOf(hole, axis));
}

template <class Use>
bool KeptHoles::anyByBoxes(int sight, const Box& box, Use use) {
  const Box column = columnAlong(sight, box);
  if (mIsIndexed) return mIndex.any(column, use);
  return std::ranges::any_of(mKept, [&](unsigned other) { return boxesMeet(mBoxes[other], column) && use(other); });
}

template <class Use>
bool KeptHoles::any(std::size_t position, Use use) {
  const int axis = mAxisOf[position];
  const Box box = mIsIndexed ? boxOf(mHoles[position]) : mBoxes[position];
  for (int axisOfSight = 0; axisOfSight < kAxes; ++axisOfSight) {
    if ((mAxes >> axisOfSight & 1) == 0) continue;
    const bool isOwn = axis == axisOfSight;
    Sight& sight = mSights[static_cast<std::size_t>(axisOfSight)];
    if (mIsIndexed && sight.finder == Finder::boxes && sight.testsLeft == 0) startPartition(axisOfSight);
    const bool isPartitioned = mIsIndexed && sight.finder == Finder::partition;
    if (isPartitioned) {
      mSought.assign(mPlacement.polygonOf(mHoles[position], axisOfSight).corners());
      const auto inner = isOwn ? LoopPartition::Inner::sought : LoopPartition::Inner::ignored;
      if (sight.partition.any(mSought, inner, [&](std::uint32_t other) { return use(std::size_t{other}); }))
        return true;
    }
    if (isPartitioned && (!isOwn || allAlong(axis))) continue;
    const auto useIfSeen = [&](unsigned other) {
      const bool isOwnOfOther = mAxisOf[other] == axisOfSight;
      if (isPartitioned ? isOwnOfOther : !isOwn && !isOwnOfOther) return false;
      if (isOwnOfOther && sight.testsLeft > 0) --sight.testsLeft;
      return use(std::size_t{other});
    };
    if (anyByBoxes(axisOfSight, box, useIfSeen)) return true;
  }
  return false;
}

class GroupCheck {
 public:
  GroupCheck(MeshStorage& mesh, bool isLargeMode, HoleAssignmentCounts& counts)
      : mMesh(mesh), mIsLargeMode(isLargeMode), mCounts(counts), mPlacement(mesh), mKept(mPlacement, mesh) {}

  /// Clears the holes of a group that fail.
  void check(std::uint32_t outer, std::span<const std::uint32_t> holes) {
    if (holes.empty()) return;
    const bool isLarge =
        mIsLargeMode && (holes.size() >= kLargeGroupHoles || mMesh.mFaces.cornerCount(outer) >= kLargeOuterCorners);
    const Search search = isLarge ? Search::indexed : Search::plain;
    const int axis = mPlacement.axisOf(outer);
    mPlacement.setOuter(outer, search);
    mKept.begin(holes, axis, search);
    if (isLarge && mKept.allAlong(axis)) ++mCounts.mLargeGroups;

    for (std::size_t i = 0; i < holes.size(); ++i) {
      // Cleared as a hole of an earlier group: nothing left to test, or to be in the way of others.
      if (mMesh.mFaces.isCleared(holes[i])) continue;
      if (passes(holes, i)) {
        mKept.add(i);
      } else {
        mMesh.mFaces.clear(holes[i]);
        ++mCounts.mClearedHoles;
      }
    }
  }

 private:
  bool passes(std::span<const std::uint32_t> holes, std::size_t i) {
    return mPlacement.isInside(holes[i]) && !mPlacement.sharesVertex(holes[i]) &&
           !mKept.any(i, [&](std::size_t earlier) { return mPlacement.overlap(holes[earlier], holes[i]); });
  }

  MeshStorage& mMesh;
  const bool mIsLargeMode;
  HoleAssignmentCounts& mCounts;
  HolePlacement mPlacement;
  KeptHoles mKept;
};

}  // namespace

HoleAssignmentCounts assignHoles(Mesh& mesh) {
  MeshStorage& m = mesh.storage();
  HoleAssignmentCounts counts;
  if (m.mHoles.empty()) return counts;
  counts.mDroppedEntries = m.mHoles.validate(m.mFaces.size());

  const std::span<const std::uint32_t> list(m.mHoles.list().data(), m.mHoles.list().size());
  GroupCheck groupCheck(m, m.mVertices.size() >= kLargeModeVertices || list.size() >= kLargeModeEntries, counts);
  for (auto group = list.begin(); group != list.end();) {
    const auto end = std::find(group, list.end(), HoleTable::kEnd);
    if (end == list.end()) throw std::runtime_error("illegal hole index.");
    groupCheck.check(*group, {group + 1, end});
    group = end + 1;
  }
  if (counts.mClearedHoles != 0) compactMesh(mesh);
  return counts;
}

}  // namespace util
