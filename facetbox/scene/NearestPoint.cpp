#include <facetbox/scene/NearestPoint.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <facetbox/scene/ClosestOnTriangle.h>
#include <facetbox/scene/PointDistances.h>

namespace util {
namespace {

constexpr double kUnit = 0x1p-53;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// The subtrees that a traversal has put off.
template <int kSize>
class WaitingSubtrees {
 public:
  using Reference = TriangleBvh::Reference;

  /// The nearest of some children; the others are put off, in no particular order: to sort them costs more than it
  /// saves.
  /// @param children  as bits; at least one
  Reference nearest(const TriangleBvh::Node& node, unsigned children, const float* excess) {
    int child = __builtin_ctz(children);
    Entry nearest{node.child[child], excess[child]};
    while ((children &= children - 1) != 0) {
      child = __builtin_ctz(children);
      const Entry other{node.child[child], excess[child]};
      const bool isNearer = other.excess < nearest.excess;
      mEntries[mCount++] = isNearer ? nearest : other;
      nearest = isNearer ? other : nearest;
    }
    return nearest.reference;
  }
  bool isEmpty() const { return mCount == 0; }
  /// The last one within the limit.
  bool takeNext(float limit, Reference& reference) {
    while (mCount > 0)
      if (const Entry& entry = mEntries[--mCount]; entry.excess <= limit) {
        reference = entry.reference;
        return true;
      }
    return false;
  }

 private:
  struct Entry {
    Reference reference;
    float excess;
  };
  Entry mEntries[kSize];
  int mCount = 0;
};

/// The search for one point.
///
/// Bounds. Let M be the largest coordinate of the point and the scene, u = 2^-53. A squared distance comes from
/// differences that are off by u M each and combinations that stay in the triangle; so its root is at least the
/// distance of the triangle's corners' box, less 16u M. The tree's boxes hold the corners as they are placed.
///
/// In a mesh, with B the inverse in doubles, q = B (p - T) the image of the point, and y = A x + T that of a mesh's
/// point x: |q - x| <= |B| |p - y| + |(B A - 1) x|, and |B| is at most 1 / leastStretch(). Rounding adds, in the world,
/// at most 15u |p - T| for q, since leastStretch() times a row of B is at most 1, and 5u condition (|y| + 2 |T|) for y,
/// which originError() covers. So a triangle within d in the world is within (d + slack) / leastStretch() + 3 sqrt(3)
/// inverseError() |x| of q, and |x| is at most 1.
class Search {
 public:
  Search(const SceneState& scene, const Vec3& point, Instructions instructions)
      : mScene(scene), mPoint(point), mInstructions(instructions) {
    const ObjectTree& tree = scene.tree();
    const double size = 1 / tree.scale();
    mMagnitude = std::max(largestMagnitude(point), largestMagnitude(tree.center()) + size);
    // Not so much smaller than the coordinates that these overflow.
    constexpr double kLeastShare = 0x1p-200;
    const double reach = std::max({largestMagnitude(point - tree.center()), size, kLeastShare * mMagnitude});
    // The power of two at or below it.
    constexpr double kLeast = 0x1p-1000, kMost = 0x1p1000;
    constexpr std::uint64_t kExponent = 0x7FF0000000000000;
    mSize = std::bit_cast<double>(std::bit_cast<std::uint64_t>(std::clamp(reach, kLeast, kMost)) & kExponent);
    mScale = 1 / mSize;
    mScaled = mScale * point;
  }

  std::optional<facetbox::Nearest> run() {
    const ObjectTree& tree = mScene.tree();
    if (tree.size() == 1)
      // Nothing to choose from, and what there is to prepare for that is a tenth of the time.
      for (const ObjectTree::Reference child : tree.node(tree.root()).child)
        if (child != ObjectTree::kNothing && child >= ObjectTree::kLeaf)
          searchObject(mScene[child & ~ObjectTree::kLeaf]);
    if (mObject == nullptr) searchObjects();
    if (mObject == nullptr) return std::nullopt;
    return facetbox::Nearest{mObject->id,
                             mObject->mesh->faceOf(mTriangle),
                             mTriangle,
                             {mSize * mClosest.x, mSize * mClosest.y, mSize * mClosest.z},
                             mSize * std::sqrt(mDistanceSq)};
  }

 private:
  static constexpr double kWorldError = 64 * kUnit;

  /// What a triangle may be away to count, in the world.
  double bound() const { return mSize * (std::sqrt(mDistanceSq) * (1 + 8 * kUnit)); }

  void test(const SceneObject& object, const Vec3& a, const Vec3& b, const Vec3& c, std::uint32_t triangle) {
    const Placement& place = object.placement;
    const ClosestPoint closest =
        closestOnTriangle(mScaled, mScale * place.toWorld(a), mScale * place.toWorld(b), mScale * place.toWorld(c));
    const bool isCloser = closest.distanceSq < mDistanceSq;
    if (!isCloser && !(closest.distanceSq == mDistanceSq && isEarlier(object, triangle))) return;
    mDistanceSq = closest.distanceSq;
    mClosest = closest.point;
    mObject = &object;
    mTriangle = triangle;
  }
  bool isEarlier(const SceneObject& object, std::uint32_t triangle) const {
    if (mObject == nullptr) return true;
    return object.id != mObject->id ? object.id < mObject->id : triangle < mTriangle;
  }

  void searchObjects() {
    const ObjectTree& tree = mScene.tree();
    const UnitPoint point(tree.scale() * (mPoint - tree.center()), mInstructions);
    const auto limitNow = [&] { return point.excessLimit(tree.scale() * (bound() + kWorldError * mMagnitude)); };
    float limit = UnitPoint::kNoLimit;
    alignas(32) float excess[TriangleBvh::kWidth];
    WaitingSubtrees<ObjectTree::kStackSize> waiting;
    ObjectTree::Reference reference = tree.root();
    do {
      unsigned children = 1;
      while (children != 0 && (reference & ObjectTree::kLeaf) == 0) {
        const ObjectTree::Node& node = tree.node(reference);
        children = point.childrenWithin(node, limit, excess);
        if (children != 0) reference = waiting.nearest(node, children, excess);
      }
      if (children == 0) continue;
      const double before = mDistanceSq;
      searchObject(mScene[reference & ~ObjectTree::kLeaf]);
      if (mDistanceSq < before && !waiting.isEmpty()) limit = limitNow();
    } while (waiting.takeNext(limit, reference));
  }

  void searchObject(const SceneObject& object) {
    const TriangleBvh& hierarchy = object.mesh->hierarchy();
    const Placement& place = object.placement;
    const Vec3 inMesh = place.toMesh(mPoint);
    const Vec3 unit = hierarchy.scale() * (inMesh - hierarchy.center());
    if (!hierarchy.isUsable() || !isFinite(unit)) {
      for (std::uint32_t t = 0; t < object.mesh->triangleCount(); ++t)
        test(object, object.mesh->corner(t, 0), object.mesh->corner(t, 1), object.mesh->corner(t, 2), t);
      return;
    }
    const UnitPoint point(unit, mInstructions);
    const double toUnit = hierarchy.scale() / place.leastStretch();
    const double slack =
        toUnit * (kWorldError * mMagnitude +
                  place.originError() * (mMagnitude + 2 * largestMagnitude(place.translation()))) +
        hierarchy.scale() *
            (6 * place.inverseError() + 4 * kUnit * (largestMagnitude(inMesh) + largestMagnitude(hierarchy.center())));
    double distance = toUnit * bound() + slack;
    float limit = mObject == nullptr ? UnitPoint::kNoLimit : point.excessLimit(distance);
    alignas(32) float excess[TriangleBvh::kWidth];
    const TriangleBvh::View view = hierarchy.view();
    const auto visit = [&](TriangleBvh::Reference block) {
      const double before = mDistanceSq;
      testBlock(object, view.block(block), point, distance, [&] { distance = toUnit * bound() + slack; });
      if (mDistanceSq < before) limit = point.excessLimit(distance);
    };
    // Straight down to a first block: without a limit, all children of all nodes on the way would have to wait.
    TriangleBvh::Reference first = 0;  // none: blocks have other numbers
    if (mObject == nullptr) {
      first = view.root;
      while ((first & TriangleBvh::kLeaf) == 0) {
        const TriangleBvh::Node& node = view.node(first);
        first = node.child[point.nearestChild(node)];
      }
      visit(first);
    }
    WaitingSubtrees<TriangleBvh::kStackSize> waiting;
    TriangleBvh::Reference reference = view.root;
    do {
      unsigned children = 1;
      while (children != 0 && (reference & TriangleBvh::kLeaf) == 0) {
        const TriangleBvh::Node& node = view.node(reference);
        children = point.childrenWithin(node, limit, excess);
        if (children != 0) reference = waiting.nearest(node, children, excess);
      }
      if (children != 0 && reference != first) visit(reference);
    } while (waiting.takeNext(limit, reference));
  }

  /// Tests the triangles that may count, the nearest first: the others mostly do not, then.
  template <class Narrow>
  void testBlock(const SceneObject& object, const TriangleBvh::Block& block, const UnitPoint& point,
                 const double& distance, Narrow narrow) {
    alignas(32) double distanceSq[TriangleBvh::kWidth];
    unsigned lanes = point.trianglesWithin(block, UnitPoint::triangleLimit(distance), distanceSq);
    while (lanes != 0) {
      int nearest = __builtin_ctz(lanes);
      for (unsigned others = lanes & (lanes - 1); others != 0; others &= others - 1)
        if (distanceSq[__builtin_ctz(others)] < distanceSq[nearest]) nearest = __builtin_ctz(others);
      lanes &= ~(1U << nearest);
      const TriangleBvh::Exact& exact = TriangleBvh::View::exact(block)[nearest];
      const double before = mDistanceSq;
      test(object, toVec3(exact.corner), toVec3(exact.corner + 3), toVec3(exact.corner + 6), exact.triangle);
      if (!(mDistanceSq < before)) continue;
      narrow();
      const double limit = UnitPoint::triangleLimit(distance);
      unsigned within = 0;
      for (unsigned lane = 0; lane < TriangleBvh::kWidth; ++lane)
        within |= static_cast<unsigned>(distanceSq[lane] <= limit) << lane;
      lanes &= within;
    }
  }

  const SceneState& mScene;
  const Vec3 mPoint;
  const Instructions mInstructions;
  Vec3 mScaled;          // the point
  double mScale, mSize;  // powers of two; their product is 1
  double mMagnitude;
  double mDistanceSq = kInfinity;  // scaled, as what follows
  Vec3 mClosest{0, 0, 0};
  const SceneObject* mObject = nullptr;
  std::uint32_t mTriangle = facetbox::kNone;
};

}  // namespace

std::optional<facetbox::Nearest> nearestPoint(const SceneState& scene, const Vec3& point, Instructions instructions) {
  if (!isFinite(point) || scene.tree().root() == ObjectTree::kNothing) return std::nullopt;
  return Search(scene, point, instructions).run();
}

std::vector<std::optional<facetbox::Nearest>> nearestPoints(const SceneState& scene, std::span<const double> points) {
  if (points.size() % 3 != 0) throw std::invalid_argument("Scene: points have three numbers each");
  std::vector<std::optional<facetbox::Nearest>> nearest(points.size() / 3);
  const auto search = [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) nearest[i] = nearestPoint(scene, toVec3(&points[3 * i]));
  };
  constexpr std::size_t kTask = 128;
  if (nearest.size() <= kTask) {
    search(0, nearest.size());
    return nearest;
  }
  // Isolated: while it waits, this thread must not take up a task of its caller's that asks the scene as well.
  tbb::this_task_arena::isolate([&] {
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, nearest.size(), kTask),
                      [&](const auto& range) { search(range.begin(), range.end()); });
  });
  return nearest;
}

}  // namespace util
