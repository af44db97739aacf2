#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <span>
#include <vector>

#include <facetbox/base/Monitor.h>
#include <facetbox/math/Predicates.h>
#include <facetbox/math/Vec3.h>

namespace util {

/// Closed axis-parallel box in the plane; empty where a minimum exceeds its maximum.
struct Box2 {
  Vec2 min, max;
};

/// A polygon that answers many containment and touch queries. Every answer is exactly that of the plain loop over the
/// edges (`strictlyInside`, `segmentsTouch`), whatever the polygon: self-intersecting, with repeated corners, huge.
///
/// The edges run from corner i to corner i + 1, the last one back to corner 0; two corners make two edges, one corner
/// an edge of length zero. An edge with a non-finite corner touches nothing, and a polygon with one contains nothing.
///
/// Small polygons are searched edge by edge, without any allocation beyond the corners. From `kIndexedSize` corners on,
/// an index over the edges is built once the plain queries have cost about as much as building it. That takes
/// O(n log n) time; the index is O(n) large, as edges are cut into at most five times as many pieces. Where edges
/// rarely cross (bundles of long thin edges in any direction included), a query then walks down a tree and tests some
/// twenty edges; a segment that touches nothing visits every region near it. Where very many edges cross or coincide,
/// the tree stops growing and a query costs O(n) like the plain loop, times a small constant. Polygons whose extent is
/// below 2^-900 or above 2^900 are always searched edge by edge.
///
/// Queries update the index behind const: one object serves one thread at a time.
class PlanarPolygon {
 public:
  /// Corner count from which an index may be built.
  static constexpr std::size_t kIndexedSize = 32;

  PlanarPolygon() = default;
  explicit PlanarPolygon(std::span<const Vec2> corners) { assign(corners); }

  /// Asked while an index is built; may be null.
  void setMonitor(Monitor* monitor) { mMonitor = monitor; }

  /// Replaces the corners and drops the index; capacity is kept.
  void assign(std::span<const Vec2> corners);

  std::span<const Vec2> corners() const { return mCorners; }

  /// Box of the finite corners.
  const Box2& box() const { return mBox; }

  /// `strictlyInside(corners(), p)`.
  bool containsStrictly(Vec2 p) const;

  /// Whether all points are strictly inside; true for none.
  bool containsAllStrictly(std::span<const Vec2> points) const;

  /// Whether some point is strictly inside; false for none.
  bool containsAnyStrictly(std::span<const Vec2> points) const;

  /// Whether the closed segment ab shares a point with any edge.
  bool anyEdgeTouches(Vec2 a, Vec2 b) const;

  /// Whether any edge shares a point with any edge of the other polygon. Symmetric. One query of the larger polygon for
  /// each edge of the smaller.
  bool anyEdgeTouches(const PlanarPolygon& other) const;

  /// Whether any edge crosses any edge of the other polygon: each has the other's ends strictly on both of its sides.
  /// Symmetric. Costs like anyEdgeTouches() where no edge touches very many others without crossing them.
  bool anyEdgeCrosses(const PlanarPolygon& other) const;

  /// Whether `counts(other)` is true for an edge that shares a point with the edge `edge` and does not follow on it or
  /// precede it.
  bool edgeTouchesAny(std::size_t edge, const std::function<bool(std::size_t other)>& counts) const;

  /// Builds the index now, if the polygon is of a size that may have one: for callers that know of many queries.
  void buildIndex() const;

 private:
  class IndexBuilder;

  /// Splits its region in two: a point is in child `child` where dot(normal, point) < offset, else in `child` + 1.
  /// A leaf has child = -1 - leaf number. All coordinates are relative to the center of the polygon's box.
  struct Node {
    Vec2 normal;
    double offset;
    Box2 box;  // of the pieces of edges in the region
    std::int32_t child;
  };
  /// The edges that may meet the region, and a point of the region of which it is known whether it is inside.
  struct Leaf {
    Vec2 reference;
    std::uint32_t begin, end;  // in mLeafEdges
    bool isReferenceInside;
  };

  Vec2 edgeEnd(std::size_t edge) const { return mCorners[edge + 1 < mCorners.size() ? edge + 1 : 0]; }
  Vec2 toLocal(Vec2 p) const { return {p.x - mCenter.x, p.y - mCenter.y}; }
  bool isIndexed() const;
  std::size_t nodeAt(Vec2 local) const;
  const Leaf& leafOf(const Node& node) const { return mLeaves[static_cast<std::size_t>(-1 - node.child)]; }
  bool leafContains(const Leaf& leaf, Vec2 p) const;
  template <class Counts>
  bool anyTouching(Vec2 a, Vec2 b, Counts counts) const;
  template <class Counts>
  bool leafTouches(const Leaf& leaf, Vec2 a, Vec2 b, Counts counts) const;
  template <class Counts>
  bool plainlyTouches(Vec2 a, Vec2 b, Counts counts) const;

  std::vector<Vec2> mCorners;
  Box2 mBox = emptyBox();
  bool mIsFinite = true;  // all corners are
  Monitor* mMonitor = nullptr;

  // The index. No nodes: there is none (yet).
  mutable std::uint32_t mPlainQueries = 0;  // answered without an index since the last assign
  mutable bool mIsIndexTried = false;
  mutable Vec2 mCenter{};
  mutable double mMagnitude = 0;  // bound of all local coordinates
  mutable std::vector<Node> mNodes;
  mutable std::vector<Leaf> mLeaves;
  mutable std::vector<std::uint32_t> mLeafEdges;

  static constexpr Box2 emptyBox() {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    return {{kInfinity, kInfinity}, {-kInfinity, -kInfinity}};
  }
};

}  // namespace util
