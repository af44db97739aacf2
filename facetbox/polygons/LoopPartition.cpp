#include <facetbox/polygons/LoopPartition.h>

#include <algorithm>

// Why no loop is missed although the tree is cut in rounded arithmetic. Rounding moves the ends of cut pieces by less
// than half a margin (kMargin). A loop that has no piece in a node when it is inserted is therefore at least one margin
// and a half away from the node's region, one that is searched for two and a half. The node's reference point is the
// middle of a planned piece, so it is within one margin and a half of the region. So no edge of the loop comes between
// the region and the reference: both are inside of the loop, or neither is.
// - A loop that touches the one searched for has a piece in some leaf where the other has one, too.
// - One that contains it contains each of its corners. The regions with such a corner are nested, and all of them have
//   pieces of the loop searched for. Either the smallest of them, a leaf, has a piece of the containing loop, or the
//   whole leaf or a region around it is inside of that loop, which its reference shows.
// - One inside of it has pieces in some leaf. If the loop searched for has none there, then it has none in some region
//   around that leaf, which is inside of it as a whole; all pieces inserted into that region reach less than three
//   margins beyond it.
// A region is inside of at most one inserted loop, as these do not contain each other.

namespace util {
namespace {

constexpr std::size_t kLeafPieces = 16;

/// Keeps node numbers within 32 bits.
constexpr std::size_t kMaxPieces = std::size_t{1} << 28;

}  // namespace

bool LoopPartition::begin(const Box2& box, std::size_t count) {
  mNodes.clear();
  mEntries.clear();
  mSplitter.items().clear();
  mSearchOf.assign(count, 0);
  mSearch = 0;
  const Vec2 half = {box.max.x / 2 - box.min.x / 2, box.max.y / 2 - box.min.y / 2};
  const double size = std::max(half.x, half.y);
  mCenter = {box.min.x / 2 + box.max.x / 2, box.min.y / 2 + box.max.y / 2};
  mMargin = kMargin * 2 * size;
  mSplitter.setMargin(mMargin);
  return size < kMaxMagnitude && size > kMinMagnitude;
}

void LoopPartition::build() {
  const std::size_t count = mSplitter.items().size();
  mNodes.emplace_back();
  if (count <= kMaxPieces) buildNode(0, 0, 4 * count, 0);
}

/// The items from `begin` are taken off the stack; `spare` is how many further copies of edges may be made.
void LoopPartition::buildNode(std::uint32_t node, std::size_t begin, std::size_t spare, int depth) {
  auto& items = mSplitter.items();
  const std::size_t count = items.size() - begin;
  if (count > 0) {
    const Vec2 local = items[begin].piece.middle();
    mNodes[node].reference = {local.x + mCenter.x, local.y + mCenter.y};
  }
  Line line;
  if (count <= kLeafPieces || depth == kMaxDepth || !mSplitter.findLine(begin, spare, line)) {
    items.resize(begin);
    return;
  }
  const auto child = static_cast<std::uint32_t>(mNodes.size());
  mNodes.resize(mNodes.size() + 2);
  mNodes[node].line = line;
  mNodes[node].child = child;
  const std::size_t middle = mSplitter.split(begin, line);
  const std::size_t lowerCount = middle - begin, upperCount = items.size() - middle;
  const std::size_t left = spare - (lowerCount + upperCount - count);
  const std::size_t ofUpper = left * upperCount / (lowerCount + upperCount);
  buildNode(child + 1, middle, ofUpper, depth + 1);
  buildNode(child, begin, left - ofUpper, depth + 1);
}

void LoopPartition::addPieces(std::span<const Vec2> corners, std::vector<PieceSplitter::Item>& pieces) const {
  const bool hasEdges = corners.size() >= 3;
  const auto local = [this](Vec2 p) { return Vec2{p.x - mCenter.x, p.y - mCenter.y}; };
  for (std::size_t i = 0; i < corners.size(); ++i) {
    const Vec2 a = corners[i], b = corners[i + 1 < corners.size() ? i + 1 : 0];
    if (!isFinite(a)) continue;
    const Vec2 end = hasEdges && isFinite(b) ? b : a;
    pieces.push_back({{local(a), local(end)}, 0, false});
  }
}

/// Replaces the pieces from `begin` on by those below the line and, behind them, those above it. Returns where either
/// begin; the upper ones have to be taken off first.
std::array<std::size_t, 2> LoopPartition::splitPieces(const Line& line, std::size_t begin, double margin) {
  const double upper = line.offset + margin, lower = line.offset - margin;
  mUpperPieces.clear();
  std::size_t end = begin;
  for (std::size_t i = begin; i < mPieces.size(); ++i) {
    const Piece piece = mPieces[i].piece;
    const double a = line.heightOf(piece.a), b = line.heightOf(piece.b);
    if (std::max(a, b) >= lower) mUpperPieces.push_back({keepAbove(piece, a, b, lower), 0, false});
    if (std::min(a, b) <= upper) mPieces[end++] = {keepBelow(piece, a, b, upper), 0, false};
  }
  mPieces.resize(end);
  mPieces.insert(mPieces.end(), mUpperPieces.begin(), mUpperPieces.end());
  return {begin, end};
}

void LoopPartition::insert(std::uint32_t loop, const PlanarPolygon& polygon) {
  mPieces.clear();
  addPieces(polygon.corners(), mPieces);
  if (!mPieces.empty()) insertAt(0, 0, loop, polygon);
}

/// Takes the pieces from `begin` on, those in the node's region, off mPieces.
void LoopPartition::insertAt(std::uint32_t number, std::size_t begin, std::uint32_t loop,
                             const PlanarPolygon& polygon) {
  Node& node = mNodes[number];
  if (mPieces.size() == begin) {
    if (polygon.containsStrictly(node.reference)) node.owner = loop;
    return;
  }
  node.isEmpty = false;
  if (node.child == 0) {
    mPieces.resize(begin);
    mEntries.push_back({loop, node.first});
    node.first = static_cast<std::uint32_t>(mEntries.size() - 1);
    return;
  }
  const auto [lower, upper] = splitPieces(node.line, begin, 2 * mMargin);
  insertAt(node.child + 1, upper, loop, polygon);
  insertAt(node.child, lower, loop, polygon);
}

}  // namespace util
