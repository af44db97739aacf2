#include <facetbox/util/math/PlanarPolygon.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

// The index is a binary space partition of the edges (Fuchs, Kedem, Naylor, On Visible Surface Generation by A Priori
// Tree Structures, 1980) whose cutting lines are taken along an axis or along the edges themselves, so that bundles of
// long edges are told apart in whatever direction they run; boxes or a grid would put each of them nearly everywhere.
//
// Why the answers are exact although the tree is cut in rounded arithmetic: the regions are convex, a query point is
// put into exactly one of them by comparisons, and an edge is listed in every region that it may meet within a margin
// which exceeds all rounding on the way. So every edge through the query point, and every edge between it and the
// leaf's reference point, is on the leaf's list; the tests of these edges are exact.

namespace util {
namespace {

constexpr std::size_t kLeafEdges = 20;
constexpr int kMaxDepth = 40;

/// From this many pieces on, a good cutting line is worth a longer search.
constexpr std::size_t kThorough = 128;

/// Keeps node and edge numbers within 32 bits.
constexpr std::size_t kMaxIndexed = std::size_t{1} << 28;

/// Margin around a cutting line, relative to the largest local coordinate: 1024 units of rounding (2^-53). Needed are 5
/// to place a query point (1 to make it local, 4 to evaluate the line), 20 for where a piece is cut, and 2 * 5 a level
/// for how far cutting moves its ends (5 in each coordinate, kMaxDepth levels): 425 in all.
constexpr double kMargin = 0x1p-43;

/// Local coordinates above or below these could over- or underflow on the way; such polygons are searched plainly.
constexpr double kMaxMagnitude = 0x1p900, kMinMagnitude = 0x1p-900;

/// The part of an edge, or of a query segment, that may lie in a region, in local coordinates.
struct Piece {
  Vec2 a, b;

  Vec2 middle() const { return {(a.x + b.x) / 2, (a.y + b.y) / 2}; }
  Vec2 along() const { return {b.x - a.x, b.y - a.y}; }
};

double maxNorm(Vec2 v) { return std::max(std::fabs(v.x), std::fabs(v.y)); }

/// Normal of lines along `along`, its larger component 1 or -1; zero for a vector of length zero.
Vec2 normalOf(Vec2 along) {
  const double size = maxNorm(along);
  return size > 0 ? Vec2{-along.y / size, along.x / size} : Vec2{};
}

struct Line {
  Vec2 normal;  // larger component is 1 or -1
  double offset;

  double heightOf(Vec2 p) const { return normal.x * p.x + normal.y * p.y; }
};

Vec2 between(Vec2 a, Vec2 b, double t) { return {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t}; }

/// Cuts off what is above `limit`; the heights are those of the piece's ends.
Piece keepBelow(const Piece& piece, double heightA, double heightB, double limit) {
  if (heightA > limit) return {between(piece.a, piece.b, (limit - heightA) / (heightB - heightA)), piece.b};
  if (heightB > limit) return {piece.a, between(piece.a, piece.b, (limit - heightA) / (heightB - heightA))};
  return piece;
}

Piece keepAbove(const Piece& piece, double heightA, double heightB, double limit) {
  return keepBelow(piece, -heightA, -heightB, -limit);
}

bool isWithinBox(Vec2 p, Vec2 a, Vec2 b) { return !detail::boxesApart(p, p, a, b); }

void extend(Box2& box, Vec2 p) {
  box.min = {std::min(box.min.x, p.x), std::min(box.min.y, p.y)};
  box.max = {std::max(box.max.x, p.x), std::max(box.max.y, p.y)};
}

/// Whether segment ab keeps more than `margin` away from the box; an empty box is away from everything.
bool isOff(const Box2& box, Vec2 a, Vec2 b, double margin) {
  return std::max(a.x, b.x) < box.min.x - margin || std::min(a.x, b.x) > box.max.x + margin ||
         std::max(a.y, b.y) < box.min.y - margin || std::min(a.y, b.y) > box.max.y + margin;
}

enum class Crossing { none, odd, onEdge };

/// How edge uw meets the path from p to a `reference` that lies on no edge.
///
/// The path is thought to be moved a little to its left, so that it meets no corner: an end on the path's line is right
/// of it. As neither p nor the reference is on an edge, the move changes neither's side of any edge.
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
  struct Item {
    Piece piece;
    std::uint32_t edge;
    bool isShared;  // also listed in the other child
  };
  struct Reference {
    Vec2 point;
    bool isInside;
  };
  /// The items from `begin` on are taken off the stack; `spare` is how many further copies of edges may be made.
  void buildNode(std::size_t node, std::size_t begin, Reference reference, std::size_t spare, int depth);
  void makeLeaf(std::size_t node, std::size_t begin, const Reference& reference);
  bool chooseLine(std::size_t begin, Line& line);
  void takeSample(std::size_t begin);
  void rateDirection(Vec2 along, Line& best, double& bestCost);
  void ratePoints(Vec2 a, Vec2 b, Line& best, double& bestCost);
  void rate(const Line& line, Line& best, double& bestCost) const;
  bool splitsWithin(std::size_t begin, const Line& line, std::size_t spare) const;
  std::size_t split(std::size_t begin, const Line& line);
  void dropSharedFrom(std::size_t middle);
  bool findReference(std::size_t child, std::size_t begin, std::size_t middle, bool isChildRight, const Reference& from,
                     Reference& found) const;
  bool walk(std::size_t begin, std::size_t middle, const Reference& from, Reference& to) const;

  static constexpr std::size_t kSampleSize = 32;

  const PlanarPolygon& mPolygon;
  double mMarginWidth = 0;
  std::vector<Item> mItems, mRight;
  std::array<Piece, kSampleSize> mSample;
  std::array<double, kSampleSize> mHeights;
  std::size_t mSampled = 0;
};

void PlanarPolygon::IndexBuilder::build() {
  const PlanarPolygon& polygon = mPolygon;
  const Box2& box = polygon.mBox;
  // Halved before adding, lest the sum overflow.
  const Vec2 half = {box.max.x / 2 - box.min.x / 2, box.max.y / 2 - box.min.y / 2};
  const double size = std::max(half.x, half.y);
  // The first reference lies beside the box, within twice its half size of the centre.
  const Vec2 start = {box.max.x + size / 2, box.min.y / 2 + box.max.y / 2};
  if (!(size < kMaxMagnitude && size > kMinMagnitude && start.x > box.max.x)) return;
  polygon.mCenter = {box.min.x / 2 + box.max.x / 2, box.min.y / 2 + box.max.y / 2};
  polygon.mMagnitude = 2 * size;
  mMarginWidth = kMargin * polygon.mMagnitude;

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
  Line line;
  if (count <= kLeafEdges || depth == kMaxDepth || !chooseLine(begin, line) || !splitsWithin(begin, line, spare)) {
    makeLeaf(node, begin, reference);
    return;
  }
  auto& nodes = mPolygon.mNodes;
  const std::size_t left = nodes.size(), right = left + 1;
  nodes.resize(left + 2, Node{{}, 0, emptyBox(), -1});
  nodes[node] = {line.normal, line.offset, emptyBox(), static_cast<std::int32_t>(left)};
  const std::size_t middle = split(begin, line);

  // One child keeps the reference; the other gets one that is reached through this node's edges.
  const bool isReferenceLeft = line.heightOf(mPolygon.toLocal(reference.point)) < line.offset;
  const std::size_t otherChild = isReferenceLeft ? right : left;
  Reference other{};
  if (!findReference(otherChild, begin, middle, isReferenceLeft, reference, other)) {
    nodes.resize(left);
    dropSharedFrom(middle);
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

/// The best of some lines as judged by a sample: across either axis, and along the longest and the middle piece. Where
/// these cut many pieces, also lines along and between other pieces, for radial bundles and for rows of bends.
bool PlanarPolygon::IndexBuilder::chooseLine(std::size_t begin, Line& line) {
  takeSample(begin);
  Vec2 low = mSample[0].a, high = low, longest{};
  double longestSize = 0;
  for (std::size_t i = 0; i < mSampled; ++i) {
    const Vec2 middle = mSample[i].middle(), along = mSample[i].along();
    low = {std::min(low.x, middle.x), std::min(low.y, middle.y)};
    high = {std::max(high.x, middle.x), std::max(high.y, middle.y)};
    if (maxNorm(along) <= longestSize) continue;
    longestSize = maxNorm(along);
    longest = along;
  }
  // A line that sends nine in ten to both sides is no use.
  double cost = 1.8 * static_cast<double>(mSampled) * static_cast<double>(mSampled);
  const double costBefore = cost;
  const bool isWide = high.x - low.x > high.y - low.y;  // first come first served: this keeps regions compact
  rateDirection(isWide ? Vec2{0, 1} : Vec2{1, 0}, line, cost);
  rateDirection(isWide ? Vec2{1, 0} : Vec2{0, 1}, line, cost);
  rateDirection(longest, line, cost);
  rateDirection(mSample[mSampled / 2].along(), line, cost);
  if (mItems.size() - begin >= kThorough && cost > costBefore / 3) {
    for (std::size_t i = 0; i < mSampled; i += 4) {
      rateDirection(mSample[i].along(), line, cost);
      ratePoints(mSample[i].a, mSample[i].b, line, cost);
      const Piece& partner = mSample[(i * 5 + 7) % mSampled];
      ratePoints(mSample[i].a, partner.a, line, cost);
      ratePoints(mSample[i].b, partner.a, line, cost);
    }
  }
  return cost < costBefore;
}

/// Takes pieces evenly, but with a jitter lest every second or fourth edge of a regular outline be overlooked.
void PlanarPolygon::IndexBuilder::takeSample(std::size_t begin) {
  const std::size_t count = mItems.size() - begin;
  mSampled = std::min(count, count < kThorough ? kSampleSize / 2 : kSampleSize);
  for (std::size_t i = 0; i < mSampled; ++i) {
    const std::size_t jitter = i * 2654435761u % count;
    mSample[i] = mItems[begin + (i * count + jitter) / mSampled].piece;
  }
}

/// Rates the line of that direction through the median of the sample's middles.
void PlanarPolygon::IndexBuilder::rateDirection(Vec2 along, Line& best, double& bestCost) {
  Line line{normalOf(along), 0};
  if (line.normal == Vec2{}) return;
  for (std::size_t i = 0; i < mSampled; ++i) mHeights[i] = line.heightOf(mSample[i].middle());
  const auto median = mHeights.begin() + static_cast<std::ptrdiff_t>(mSampled / 2);
  std::nth_element(mHeights.begin(), median, mHeights.begin() + static_cast<std::ptrdiff_t>(mSampled));
  line.offset = *median;
  rate(line, best, bestCost);
}

/// Rates the line through two points.
void PlanarPolygon::IndexBuilder::ratePoints(Vec2 a, Vec2 b, Line& best, double& bestCost) {
  Line line{normalOf({b.x - a.x, b.y - a.y}), 0};
  if (line.normal == Vec2{}) return;
  line.offset = line.heightOf(a);
  rate(line, best, bestCost);
}

void PlanarPolygon::IndexBuilder::rate(const Line& line, Line& best, double& bestCost) const {
  double left = 0, right = 0;
  for (std::size_t i = 0; i < mSampled; ++i) {
    const double a = line.heightOf(mSample[i].a), b = line.heightOf(mSample[i].b);
    left += std::min(a, b) <= line.offset + mMarginWidth;
    right += std::max(a, b) >= line.offset - mMarginWidth;
  }
  const double cost = left * left + right * right;
  if (cost >= bestCost) return;
  bestCost = cost;
  best = line;
}

/// Whether the line makes two smaller children with no more than `spare` items on both sides.
bool PlanarPolygon::IndexBuilder::splitsWithin(std::size_t begin, const Line& line, std::size_t spare) const {
  const std::size_t count = mItems.size() - begin;
  std::size_t left = 0, right = 0;
  for (std::size_t i = begin; i < mItems.size(); ++i) {
    const double a = line.heightOf(mItems[i].piece.a), b = line.heightOf(mItems[i].piece.b);
    left += std::min(a, b) <= line.offset + mMarginWidth;
    right += std::max(a, b) >= line.offset - mMarginWidth;
  }
  return left < count && right < count && left + right - count <= spare;
}

/// Splits the items from `begin` into those of the left and, from the returned position on, of the right child.
std::size_t PlanarPolygon::IndexBuilder::split(std::size_t begin, const Line& line) {
  const double upper = line.offset + mMarginWidth, lower = line.offset - mMarginWidth;
  mRight.clear();
  std::size_t end = begin;
  for (std::size_t i = begin; i < mItems.size(); ++i) {
    const Item item = mItems[i];
    const double a = line.heightOf(item.piece.a), b = line.heightOf(item.piece.b);
    const bool isLeft = std::min(a, b) <= upper, isRight = std::max(a, b) >= lower;
    if (isRight) mRight.push_back({keepAbove(item.piece, a, b, lower), item.edge, isLeft});
    if (isLeft) mItems[end++] = {keepBelow(item.piece, a, b, upper), item.edge, isRight};
  }
  mItems.resize(end);
  mItems.insert(mItems.end(), mRight.begin(), mRight.end());
  return end;
}

/// Removes the right child's copies, so that the items are the parent's again.
void PlanarPolygon::IndexBuilder::dropSharedFrom(std::size_t middle) {
  const auto first = mItems.begin() + static_cast<std::ptrdiff_t>(middle);
  mItems.erase(std::remove_if(first, mItems.end(), [](const Item& item) { return item.isShared; }), mItems.end());
}

/// Looks for a point of the child's region that lies on no edge, and finds out whether it is inside. The candidates lie
/// between the middles of two of the child's pieces. False where there is none, say because the edges coincide.
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
    const Item& item = mItems[i];
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

/// To be asked once for each query that looks at edges.
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

bool PlanarPolygon::anyEdgeTouches(Vec2 a, Vec2 b) const { return anyEdgeTouches(a, b, kNoEdge); }

bool PlanarPolygon::edgeTouchesOthers(std::size_t edge) const {
  const std::size_t n = mCorners.size();
  const Vec2 a = mCorners[edge], b = edgeEnd(edge);
  return foldsBack(mCorners[edge > 0 ? edge - 1 : n - 1], a, b) || foldsBack(a, b, mCorners[(edge + 2) % n]) ||
         anyEdgeTouches(a, b, edge);
}

/// Whether two edges are one or have a corner of the polygon in common.
bool PlanarPolygon::areNeighbours(std::size_t a, std::size_t b) const {
  const std::size_t last = mCorners.size() - 1;
  return b != kNoEdge && (a == b || a + 1 == b || b + 1 == a || (a == 0 && b == last) || (b == 0 && a == last));
}

/// Leaves out the edge `apart` and its neighbours.
bool PlanarPolygon::anyEdgeTouches(Vec2 a, Vec2 b, std::size_t apart) const {
  if (isOff(mBox, a, b, 0) || !isFinite(a) || !isFinite(b)) return false;
  if (!isIndexed()) return plainlyTouches(a, b, apart);
  const Vec2 localA = toLocal(a), localB = toLocal(b);
  const double magnitude = std::max({mMagnitude, maxNorm(localA), maxNorm(localB)});
  if (!(magnitude < kMaxMagnitude)) return plainlyTouches(a, b, apart);

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
      if (leafTouches(leafOf(node), a, b, apart)) return true;
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

bool PlanarPolygon::leafTouches(const Leaf& leaf, Vec2 a, Vec2 b, std::size_t apart) const {
  for (std::size_t i = leaf.begin; i < leaf.end; ++i) {
    const std::size_t edge = mLeafEdges[i];
    if (segmentsTouch(mCorners[edge], edgeEnd(edge), a, b) && !areNeighbours(edge, apart)) return true;
  }
  return false;
}

bool PlanarPolygon::plainlyTouches(Vec2 a, Vec2 b, std::size_t apart) const {
  for (std::size_t edge = 0; edge < mCorners.size(); ++edge)
    if (segmentsTouch(mCorners[edge], edgeEnd(edge), a, b) && !areNeighbours(edge, apart)) return true;
  return false;
}

bool PlanarPolygon::anyEdgeTouches(const PlanarPolygon& other) const {
  if (other.mCorners.size() > mCorners.size()) return other.anyEdgeTouches(*this);
  for (std::size_t edge = 0; edge < other.mCorners.size(); ++edge) {
    if (anyEdgeTouches(other.mCorners[edge], other.edgeEnd(edge))) return true;
  }
  return false;
}

}  // namespace util
