#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/math/Vec3.h>

namespace util {

/// Four times the square of a triangle's area over that of its edges' squared lengths, summed up: 1/12 where all edges
/// are alike, 0 without area. Rounding makes at most 1e-30 of a triangle whose corners lie on one line.
inline double shapeOf(const Vec3& a, const Vec3& b, const Vec3& c) {
  const Vec3 ab = b - a, ac = c - a;
  const double edges = lengthSq(ab) + lengthSq(ac) + lengthSq(c - b);
  return lengthSq(cross(ab, ac)) / (edges * edges);
}

/// Triangles below this shape are thin: a billion times as long as wide, or half of that, so that rounding says how
/// they lie.
inline constexpr double kThinShape = 1e-18;
/// Below this one, NaN included, they have no area as far as doubles can tell.
inline constexpr double kNoShape = 1e-28;

inline bool isThin(double shape) { return !(shape >= kThinShape); }
inline bool hasArea(double shape) { return shape >= kNoShape; }

/// Finds points at one place.
class EqualPlaces {
 public:
  /// Per point, the first of those that are equal to it. Valid until the next call. O(points).
  std::span<const std::uint32_t> find(std::span<const Vec3> points);

 private:
  std::vector<std::uint32_t> mPlaces, mSlots;
};

/// Flips edges between triangles until no thin one can get better by it: the longest edge of a thin triangle gives way
/// to the one between the opposite corners.
class ThinTriangles {
 public:
  struct Cut {
    std::span<const Vec3> points;           ///< by number
    std::span<const Vec3> seen;             ///< by number: x and y as the face is seen; triangles turn left
    std::span<const std::uint32_t> places;  ///< by number: alike for corners at one place, see EqualPlaces
    std::span<std::uint32_t> triangles;     ///< three numbers each, at different places
  };

  /// Where triangles without area stand one behind the other, the outer ones come first. What is left without area lies
  /// at edges that have no triangle behind them.
  /// @return how many triangles have no area
  /// O(t log t) for t triangles, as long as thin ones are not pushed to and fro; there is a bound of 16 flips per
  /// triangle.
  std::size_t flip(const Cut& cut);

 private:
  /// From a place in the list of triangles to the next of its triangle.
  struct Side {
    std::uint64_t key;  ///< of its edge
    std::uint32_t next;
    bool isUpward;
  };
  struct Candidate {
    double lengthSq;
    std::uint32_t triangle;
    friend bool operator<(const Candidate& a, const Candidate& b) {
      return std::pair(a.lengthSq, b.triangle) < std::pair(b.lengthSq, a.triangle);
    }
  };

  void findNeighbours(const Cut& cut);
  void addIfThin(const Cut& cut, std::uint32_t triangle);
  bool flipLongest(const Cut& cut, std::uint32_t triangle);

  std::vector<std::uint32_t> mFirstSides;  ///< of lists in which those of one edge are together
  std::vector<Side> mSides;
  std::vector<std::uint32_t> mAcross;  ///< per place, that of the same edge in the triangle behind, or kNone
  std::vector<Candidate> mCandidates;  ///< a heap
};

}  // namespace util
