#include <facetbox/polygons/PlanarPolygon.h>

#include <algorithm>
#include <array>
#include <bit>

#include <facetbox/polygons/PieceSplitter.h>

// The index is a binary space partition of the edges (Fuchs, Kedem, Naylor, On Visible Surface Generation by A Priori
// Tree Structures, 1980) whose cutting lines run along an axis or along the edges themselves, so that bundles of long
// edges are separated whatever their direction; boxes or a grid would list each of them nearly everywhere.
//
// Why the answers are exact although the tree is cut in rounded arithmetic: the regions are convex, a query point is
// put into exactly one of them by comparisons, and an edge is listed in every region that it may meet within a margin
// that exceeds all rounding. So every edge through the query point, and every edge between it and the
// leaf's reference point, is on the leaf's list; the tests of these edges are exact.

namespace util {
namespace {

constexpr std::size_t kLeafEdges = 20;

/// Keeps node and edge numbers within 32 bits.
constexpr std::size_t kMaxIndexed = std::size_t{1} << 28;

bool isWithinBox(Vec2 p, Vec2 a, Vec2 b) { return !detail::boxesApart(p, p, a, b); }

void extend(Box2& box, Vec2 p) {
  box.min = {std::min(box.min.x, p.x), std::min(box.min.y, p.y)};
  box.max = {std::max(box.max.x, p.x), std::max(box.max.y, p.y)};
}

/// Whether segment ab is more than `margin` away from the box along some axis; always for an empty box.
bool isOff(const Box2& box, Vec2 a, Vec2 b, double margin) {
  return std::max(a.x, b.x) < box.min.x - margin || std::min(a.x, b.x) > box.max.x + margin ||
         std::max(a.y, b.y) < box.min.y - margin || std::min(a.y, b.y) > box.max.y + margin;
}

enum class Crossing { none, odd, onEdge };

/// How edge uw meets the path from p to a `reference` that lies on no edge.
///
/// Imagine the path shifted a little to its left, so that it passes through no corner: an end of the edge that is on
/// the path's line is then right of it. As neither p nor the reference is on an edge, the shift changes their side of
/// none.
Crossing crossing(Vec2 u, Vec2 w, Vec2 p, Vec2 reference) {
  if (detail::boxesApart(u, w, p, reference)) return Crossing::none;
  const int side = orientation(u, w, p);
  if (side == 0) return isWithinBox(p, u, w) ? Crossing::onEdge : Crossing::none;
  if (side * orientation(u, w, reference) >= 0) return Crossing::none;
  return (orientation(p, reference, u) > 0) != (orientation(p, reference, w) > 0) ? Crossing::odd : Crossing::none;
}

}  // namespace

class PlanarPolygon::IndexBuilder {
 public:
  explicit IndexBuilder(const PlanarPolygon& polygon) : mPolygon(polygon) {}

  void build();

 private:
  struct Reference {
    Vec2 point;
    bool isInside;
  };
  /// The items from `begin` on are taken off the stack; `spare` is how many further copies of edges may be made.
  void buildNode(std::size_t node, std::size_t begin, Reference reference, std::size_t spare, int depth);
  void makeLeaf(std::size_t node, std::size_t begin, const Reference& reference);
  bool findReference(std::size_t child, std::size_t begin, std::size_t middle, bool isChildRight, const Reference& from,
                     Reference& found) const;
  bool walk(std::size_t begin, std::size_t middle, const Reference& from, Reference& to) const;

  const PlanarPolygon& mPolygon;
  PieceSplitter mSplitter;
  std::vector<PieceSplitter::Item>& mItems = mSplitter.items();
};

void PlanarPolygon::IndexBuilder::build() {
  const PlanarPolygon& polygon = mPolygon;
  const Box2& box = polygon.mBox;
  // Halved before subtracting: the difference could overflow.
  const Vec2 half = {box.max.x / 2 - box.min.x / 2, box.max.y / 2 - box.min.y / 2};
  const double size = std::max(half.x, half.y);
  // The first reference lies beside the box, within twice its half size of the center.
  const Vec2 start = {box.max.x + size / 2, box.min.y / 2 + box.max.y / 2};
  if (!(size < kMaxMagnitude && size > kMinMagnitude && start.x > box.max.x)) return;
  polygon.mCenter = {box.min.x / 2 + box.max.x / 2, box.min.y / 2 + box.max.y / 2};
  polygon.mMagnitude = 2 * size;
  mSplitter.setMargin(kMargin * polygon.mMagnitude);

  const std::size_t count = polygon.mCorners.size();
  mItems.reserve(count + count / 2);
  for (std::size_t edge = 0; edge < count; ++edge) {
    const Vec2 a = polygon.mCorners[edge], b = polygon.edgeEnd(edge);
    if (!isFinite(a) || !isFinite(b)) continue;  // touches nothing
    mItems.push_back({{polygon.toLocal(a), polygon.toLocal(b)}, static_cast<std::uint32_t>(edge), false});
  }
  polygon.mNodes.push_back({{}, 0, emptyBox(), -1});
  polygon.mLeafEdges.reserve(2 * count);
  buildNode(0, 0, {start, false}, 4 * count, 0);
}

void PlanarPolygon::IndexBuilder::buildNode(std::size_t node, std::size_t begin, Reference reference, std::size_t spare,
                                            int depth) {
  const std::size_t count = mItems.size() - begin;
  if (mPolygon.mMonitor) mPolygon.mMonitor->tick(count);
  Line line;
  if (count <= kLeafEdges || depth == kMaxDepth || !mSplitter.findLine(begin, spare, line)) {
    makeLeaf(node, begin, reference);
    return;
  }
  auto& nodes = mPolygon.mNodes;
  const std::size_t left = nodes.size(), right = left + 1;
  nodes.resize(left + 2, Node{{}, 0, emptyBox(), -1});
  nodes[node] = {line.normal, line.offset, emptyBox(), static_cast<std::int32_t>(left)};
  const std::size_t middle = mSplitter.split(begin, line);

  // One child keeps the reference; the other gets one that is reached through this node's edges.
  const bool isReferenceLeft = line.heightOf(mPolygon.toLocal(reference.point)) < line.offset;
  const std::size_t otherChild = isReferenceLeft ? right : left;
  Reference other{};
  if (!findReference(otherChild, begin, middle, isReferenceLeft, reference, other)) {
    nodes.resize(left);
    mSplitter.dropSharedFrom(middle);
    makeLeaf(node, begin, reference);
    return;
  }
  const std::size_t leftCount = middle - begin, rightCount = mItems.size() - middle;
  const std::size_t spareLeft = spare - (leftCount + rightCount - count);
  const std::size_t spareOfRight = spareLeft * rightCount / (leftCount + rightCount);
  buildNode(right, middle, isReferenceLeft ? other : reference, spareOfRight, depth + 1);
  buildNode(left, begin, isReferenceLeft ? reference : other, spareLeft - spareOfRight, depth + 1);
  nodes[node].box = nodes[left].box;
  extend(nodes[node].box, nodes[right].box.min);
  extend(nodes[node].box, nodes[right].box.max);
}

/// Takes the items from `begin` off the stack.
void PlanarPolygon::IndexBuilder::makeLeaf(std::size_t node, std::size_t begin, const Reference& reference) {
  auto& edges = mPolygon.mLeafEdges;
  const auto first = static_cast<std::uint32_t>(edges.size());
  Node& leaf = mPolygon.mNodes[node];
  for (std::size_t i = begin; i < mItems.size(); ++i) {
    edges.push_back(mItems[i].edge);
    extend(leaf.box, mItems[i].piece.a);
    extend(leaf.box, mItems[i].piece.b);
  }
  mItems.resize(begin);
  leaf.child = -1 - static_cast<std::int32_t>(mPolygon.mLeaves.size());
  mPolygon.mLeaves.push_back({reference.point, first, static_cast<std::uint32_t>(edges.size()), reference.isInside});
}

/// Looks for a point of the child's region that lies on no edge, and whether it is inside. The candidates lie between
/// the middles of two of the child's pieces. False where none fits, for example because the edges coincide.
bool PlanarPolygon::IndexBuilder::findReference(std::size_t child, std::size_t begin, std::size_t middle,
                                                bool isChildRight, const Reference& from, Reference& found) const {
  const std::size_t first = isChildRight ? middle : begin;
  const std::size_t count = (isChildRight ? mItems.size() : middle) - first;
  constexpr std::size_t kAttempts = 12;
  for (std::size_t i = 0; i < kAttempts; ++i) {
    const Vec2 a = mItems[first + i * count / kAttempts].piece.middle();
    const Vec2 b = mItems[first + (i * 7 + 5) % kAttempts * count / kAttempts].piece.middle();
    // Not half-way: on a regular grid that is on an edge again.
    const Vec2 local = between(a, b, 0.4871);
    found.point = {local.x + mPolygon.mCenter.x, local.y + mPolygon.mCenter.y};
    if (mPolygon.nodeAt(mPolygon.toLocal(found.point)) == child && walk(begin, middle, from, found)) return true;
  }
  return false;
}

/// Counts the edges on the way from one reference to the other; false where `to` lies on an edge.
bool PlanarPolygon::IndexBuilder::walk(std::size_t begin, std::size_t middle, const Reference& from,
                                       Reference& to) const {
  to.isInside = from.isInside;
  for (std::size_t i = begin; i < mItems.size(); ++i) {
    const PieceSplitter::Item& item = mItems[i];
    if (i >= middle && item.isShared) continue;  // seen among the left child's
    switch (crossing(mPolygon.mCorners[item.edge], mPolygon.edgeEnd(item.edge), to.point, from.point)) {
      case Crossing::onEdge:
        return false;
      case Crossing::odd:
        to.isInside = !to.isInside;
        break;
      case Crossing::none:
        break;
    }
  }
  return true;
}

void PlanarPolygon::assign(std::span<const Vec2> corners) {
  mCorners.assign(corners.begin(), corners.end());
  mBox = emptyBox();
  mIsFinite = true;
  for (const Vec2 p : mCorners) {
    if (!isFinite(p)) {
      mIsFinite = false;
      continue;
    }
    extend(mBox, p);
  }
  mPlainQueries = 0;
  mIsIndexTried = false;
  mNodes.clear();
  mLeaves.clear();
  mLeafEdges.clear();
}

void PlanarPolygon::buildIndex() const {
  if (mIsIndexTried || mCorners.size() < kIndexedSize || mCorners.size() > kMaxIndexed) return;
  mIsIndexTried = true;
  IndexBuilder(*this).build();
}

/// Whether there is an index, after building it when it begins to pay. To be called once per query that needs edges.
bool PlanarPolygon::isIndexed() const {
  // Building costs about as much as this many plain queries, for each doubling of the corners.
  constexpr std::uint32_t kPlainQueries = 8;
  if (!mIsIndexTried && ++mPlainQueries > kPlainQueries * std::bit_width(mCorners.size())) buildIndex();
  return !mNodes.empty();
}

bool PlanarPolygon::containsStrictly(Vec2 p) const {
  // Also refuses a NaN, and every point where the box is empty.
  if (!(p.x > mBox.min.x && p.x < mBox.max.x && p.y > mBox.min.y && p.y < mBox.max.y) || !mIsFinite) return false;
  if (!isIndexed()) return strictlyInside(mCorners, p);
  return leafContains(leafOf(mNodes[nodeAt(toLocal(p))]), p);
}

bool PlanarPolygon::containsAllStrictly(std::span<const Vec2> points) const {
  return std::ranges::all_of(points, [this](Vec2 p) { return containsStrictly(p); });
}

bool PlanarPolygon::containsAnyStrictly(std::span<const Vec2> points) const {
  return std::ranges::any_of(points, [this](Vec2 p) { return containsStrictly(p); });
}

/// The leaf whose region has the point, or the node that is about to be split there.
std::size_t PlanarPolygon::nodeAt(Vec2 local) const {
  std::size_t node = 0;
  while (mNodes[node].child >= 0) {
    const Node& at = mNodes[node];
    node = static_cast<std::size_t>(at.child) + !(Line{at.normal, at.offset}.heightOf(local) < at.offset);
  }
  return node;
}

bool PlanarPolygon::leafContains(const Leaf& leaf, Vec2 p) const {
  bool inside = leaf.isReferenceInside;
  for (std::size_t i = leaf.begin; i < leaf.end; ++i) {
    const std::size_t edge = mLeafEdges[i];
    switch (crossing(mCorners[edge], edgeEnd(edge), p, leaf.reference)) {
      case Crossing::onEdge:
        return false;
      case Crossing::odd:
        inside = !inside;
        break;
      case Crossing::none:
        break;
    }
  }
  return inside;
}

bool PlanarPolygon::anyEdgeTouches(Vec2 a, Vec2 b) const {
  return anyTouching(a, b, [](std::size_t) { return true; });
}

bool PlanarPolygon::edgeTouchesAny(std::size_t edge, const std::function<bool(std::size_t)>& counts) const {
  const std::size_t last = mCorners.size() - 1;
  return anyTouching(mCorners[edge], edgeEnd(edge), [&](std::size_t other) {
    const std::size_t apart = other > edge ? other - edge : edge - other;
    return apart > 1 && apart < last && counts(other);
  });
}

/// Whether an edge that counts touches the segment.
template <class Counts>
bool PlanarPolygon::anyTouching(Vec2 a, Vec2 b, Counts counts) const {
  if (isOff(mBox, a, b, 0) || !isFinite(a) || !isFinite(b)) return false;
  if (!isIndexed()) return plainlyTouches(a, b, counts);
  const Vec2 localA = toLocal(a), localB = toLocal(b);
  const double magnitude = std::max({mMagnitude, maxNorm(localA), maxNorm(localB)});
  if (!(magnitude < kMaxMagnitude)) return plainlyTouches(a, b, counts);

  // The segment is cut like the edges, with a margin of its own that fits its length.
  const double margin = kMargin * magnitude;
  struct Task {
    std::size_t node;
    Piece piece;
  };
  std::array<Task, kMaxDepth + 2> tasks;
  std::size_t taskCount = 0;
  tasks[taskCount++] = {0, {localA, localB}};
  while (taskCount > 0) {
    const auto [index, piece] = tasks[--taskCount];
    const Node& node = mNodes[index];
    if (isOff(node.box, piece.a, piece.b, margin)) continue;
    if (node.child < 0) {
      if (leafTouches(leafOf(node), a, b, counts)) return true;
      continue;
    }
    const Line line{node.normal, node.offset};
    const double heightA = line.heightOf(piece.a), heightB = line.heightOf(piece.b);
    const auto child = static_cast<std::size_t>(node.child);
    if (std::max(heightA, heightB) >= line.offset - margin)
      tasks[taskCount++] = {child + 1, keepAbove(piece, heightA, heightB, line.offset - margin)};
    if (std::min(heightA, heightB) <= line.offset + margin)
      tasks[taskCount++] = {child, keepBelow(piece, heightA, heightB, line.offset + margin)};
  }
  return false;
}

template <class Counts>
bool PlanarPolygon::leafTouches(const Leaf& leaf, Vec2 a, Vec2 b, Counts counts) const {
  for (std::size_t i = leaf.begin; i < leaf.end; ++i) {
    const std::size_t edge = mLeafEdges[i];
    if (segmentsTouch(mCorners[edge], edgeEnd(edge), a, b) && counts(edge)) return true;
  }
  return false;
}

template <class Counts>
bool PlanarPolygon::plainlyTouches(Vec2 a, Vec2 b, Counts counts) const {
  if (mCorners.empty()) return false;
  const std::size_t last = mCorners.size() - 1;
  Vec2 from = mCorners.front();
  for (std::size_t edge = 0; edge < last; ++edge) {
    const Vec2 to = mCorners[edge + 1];
    if (segmentsTouch(from, to, a, b) && counts(edge)) return true;
    from = to;
  }
  return segmentsTouch(from, mCorners.front(), a, b) && counts(last);
}

bool PlanarPolygon::anyEdgeTouches(const PlanarPolygon& other) const {
  if (other.mCorners.size() > mCorners.size()) return other.anyEdgeTouches(*this);
  for (std::size_t edge = 0; edge < other.mCorners.size(); ++edge) {
    if (anyEdgeTouches(other.mCorners[edge], other.edgeEnd(edge))) return true;
  }
  return false;
}

bool PlanarPolygon::anyEdgeCrosses(const PlanarPolygon& other) const {
  if (other.mCorners.size() > mCorners.size()) return other.anyEdgeCrosses(*this);
  for (std::size_t edge = 0; edge < other.mCorners.size(); ++edge) {
    const Vec2 a = other.mCorners[edge], b = other.edgeEnd(edge);
    const auto crosses = [&](std::size_t own) {
      const Vec2 c = mCorners[own], d = edgeEnd(own);
      return orientation(a, b, c) * orientation(a, b, d) < 0 && orientation(c, d, a) * orientation(c, d, b) < 0;
    };
    if (anyTouching(a, b, crosses)) return true;
  }
  return false;
}

}  // namespace util
