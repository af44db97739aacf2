#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <facetbox/math/Vec3.h>

/// Cutting segments of the plane with lines, for binary space partitions of them.

namespace util {

/// Deepest level of a partition.
constexpr int kMaxDepth = 40;

/// What rounding can amount to between a query point and a piece of an edge, relative to the largest local coordinate:
/// - 5 units of rounding (2^-53) to place the point: 1 to make it local, 4 to evaluate the line
/// - 20 units for where a piece is cut
/// - 10 units per level for how far cutting moves the ends of a piece: 5 in each coordinate
constexpr double kPartitionRounding = (5 + 20 + 10 * kMaxDepth) * 0x1p-53;

/// Margin around a cutting line, relative to the largest local coordinate.
constexpr double kMargin = 0x1p-43;
static_assert(kMargin > 2 * kPartitionRounding);

/// Local coordinates above or below these could over- or underflow; such polygons are searched edge by edge.
constexpr double kMaxMagnitude = 0x1p900, kMinMagnitude = 0x1p-900;

/// The part of an edge, or of a query segment, that may lie in a region, in local coordinates.
struct Piece {
  Vec2 a, b;

  Vec2 middle() const { return {(a.x + b.x) / 2, (a.y + b.y) / 2}; }
  Vec2 along() const { return {b.x - a.x, b.y - a.y}; }
};

inline double maxNorm(Vec2 v) { return std::max(std::fabs(v.x), std::fabs(v.y)); }

/// Normal of lines along `along`, its larger component 1 or -1; zero for a vector of length zero.
inline Vec2 normalOf(Vec2 along) {
  const double size = maxNorm(along);
  return size > 0 ? Vec2{-along.y / size, along.x / size} : Vec2{};
}

struct Line {
  Vec2 normal;  // larger component is 1 or -1
  double offset;

  double heightOf(Vec2 p) const { return normal.x * p.x + normal.y * p.y; }
};

inline Vec2 between(Vec2 a, Vec2 b, double t) { return {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t}; }

/// Cuts off what is above `limit`; the heights are those of the piece's ends.
inline Piece keepBelow(const Piece& piece, double heightA, double heightB, double limit) {
  if (heightA > limit) return {between(piece.a, piece.b, (limit - heightA) / (heightB - heightA)), piece.b};
  if (heightB > limit) return {piece.a, between(piece.a, piece.b, (limit - heightA) / (heightB - heightA))};
  return piece;
}

inline Piece keepAbove(const Piece& piece, double heightA, double heightB, double limit) {
  return keepBelow(piece, -heightA, -heightB, -limit);
}

/// Chooses lines that split many pieces well, and splits the pieces. They lie on a stack, those of the current node on
/// top.
class PieceSplitter {
 public:
  struct Item {
    Piece piece;
    std::uint32_t edge;
    bool isShared;  ///< also listed in the other child
  };

  /// A piece that is within the margin of a line belongs to both of its sides.
  void setMargin(double margin) { mMarginWidth = margin; }
  std::vector<Item>& items() { return mItems; }

  /// Looks for a line that splits the items from `begin` on into two smaller children, with no more than `spare` items
  /// in both. False where none is worth it.
  bool findLine(std::size_t begin, std::size_t spare, Line& line);
  /// Splits the items from `begin` into those of the left and, from the returned position on, of the right child.
  std::size_t split(std::size_t begin, const Line& line);
  /// Removes the right child's copies, so that the items are the parent's again.
  void dropSharedFrom(std::size_t middle);

 private:
  /// On which sides of a line a piece counts that ends on it, when the line is rated.
  /// - On one side: on the other it is only a point, which further cuts do not multiply. So a line through the corners
  ///   of nested bends separates their two bundles at the cost of one copy of each edge, where lines along an axis copy
  ///   a part of them on every level until the copies are used up.
  /// - On both sides, as it will be listed: a line on which all pieces end does not separate them.
  enum class Ends { onOneSide, onBothSides };

  bool chooseLine(std::size_t begin, Ends ends, Line& line);
  bool splitsWithin(std::size_t begin, const Line& line, std::size_t spare) const;
  void takeSample(std::size_t begin);
  void rateDirection(Vec2 along, Line& best, double& bestCost);
  void ratePoints(Vec2 a, Vec2 b, Line& best, double& bestCost);
  void rate(const Line& line, Line& best, double& bestCost) const;

  static constexpr std::size_t kSampleSize = 32;

  double mMarginWidth = 0;
  std::vector<Item> mItems, mRight;
  std::array<Piece, kSampleSize> mSample;
  std::array<double, kSampleSize> mHeights;
  std::size_t mSampled = 0;
  Ends mEnds = Ends::onOneSide;
};

}  // namespace util
