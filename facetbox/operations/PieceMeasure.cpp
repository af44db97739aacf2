#include <facetbox/operations/PieceMeasure.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace util {
namespace {

/// Six times the mean square of the distances from the pivot within its triangle with an edge.
double squareOf(const Vec3& from, const Vec3& to) { return lengthSq(from) + lengthSq(to) + dot(from, to); }

/// An edge as seen from a pivot.
struct EdgeTerm {
  Vec3 cross, sum;
  double square;

  friend EdgeTerm operator+(const EdgeTerm& a, const EdgeTerm& b) {
    return {a.cross + b.cross, a.sum + b.sum, a.square + b.square};
  }
};

/// A polygon as seen from one of its first two corners: the one with the lower vertex.
///
/// flipFace() swaps these two, and corner i with corner n + 1 - i. So the edge between the first two stays in its place
/// and edge i changes places with edge n - i: sums by such pairs do not depend on how the polygon runs.
class MirroredPolygon {
 public:
  MirroredPolygon(std::span<const Vec3> points, std::span<const std::uint32_t> corners)
      : mPoints(points), mCorners(corners), mPivot(points[std::min(corners[0], corners[1])]) {}

  const Vec3& pivot() const { return mPivot; }
  std::size_t size() const { return mCorners.size(); }
  Vec3 corner(std::size_t i) const { return mPoints[mCorners[i < size() ? i : 0]] - mPivot; }
  EdgeTerm edge(std::size_t i) const {
    const Vec3 from = corner(i), to = corner(i + 1);
    return {util::cross(from, to), from + to, squareOf(from, to)};
  }

  /// The sum of `term(edge(i))` over all edges but the one between the first two corners, which adds no area.
  template <class Sum, class Term>
  Sum sumOf(Sum sum, Term term) const {
    const std::size_t n = size();
    for (std::size_t i = 1; 2 * i < n; ++i) sum = sum + (term(edge(i)) + term(edge(n - i)));
    return n % 2 == 0 ? sum + term(edge(n / 2)) : sum;
  }

 private:
  const std::span<const Vec3> mPoints;
  const std::span<const std::uint32_t> mCorners;
  const Vec3 mPivot;
};

struct FaceMeasure {
  Vec3 doubleArea;
  double size;          ///< of it
  Vec3 mean, centroid;  ///< of the corners, of the area; from the pivot
  double square;        ///< mean of the squared distances of the area from the pivot
  double reach;         ///< no corner is farther from the pivot on an axis
};

FaceMeasure measureTriangle(std::span<const Vec3> points, std::span<const std::uint32_t> corners) {
  const bool isSwapped = corners[0] > corners[1];
  const Vec3& pivot = points[corners[isSwapped ? 1 : 0]];
  const Vec3 a = points[corners[isSwapped ? 0 : 1]] - pivot, b = points[corners[2]] - pivot;
  const Vec3 doubleArea = cross(a, b), mean = (a + b) / 3;
  return {isSwapped ? -doubleArea : doubleArea,
          length(doubleArea),
          mean,
          mean,
          squareOf(a, b) / 6,
          std::max(largestMagnitude(a), largestMagnitude(b))};
}

FaceMeasure measurePolygon(const MirroredPolygon& polygon) {
  const EdgeTerm sum = polygon.sumOf(polygon.edge(0), [](const EdgeTerm& edge) { return edge; });
  // The triangles of the fan around the pivot, by how much of the area each adds.
  const double sizeSq = lengthSq(sum.cross);
  const EdgeTerm moments = polygon.sumOf(EdgeTerm{}, [&](const EdgeTerm& edge) {
    const double part = dot(edge.cross, sum.cross) / sizeSq;
    return EdgeTerm{{}, part * edge.sum, part * edge.square};
  });
  double reach = 0;
  for (std::size_t i = 0; i < polygon.size(); ++i) reach = std::max(reach, largestMagnitude(polygon.corner(i)));
  const Vec3 mean = sum.sum / (2 * static_cast<double>(polygon.size()));
  if (!(sizeSq > 0)) return {sum.cross, 0, mean, mean, 0, reach};
  return {sum.cross, std::sqrt(sizeSq), mean, moments.sum / 3, moments.square / 6, reach};
}

}  // namespace

Vec3 doubleAreaOf(std::span<const Vec3> points, std::span<const std::uint32_t> corners) {
  return MirroredPolygon(points, corners).sumOf(Vec3{0, 0, 0}, [](const EdgeTerm& edge) { return edge.cross; });
}

void PieceMeasure::add(std::span<const Vec3> points, std::span<const std::uint32_t> corners, bool isHole,
                       bool isReversed, bool runsAgainst) {
  const MirroredPolygon polygon(points, corners);
  const FaceMeasure face = corners.size() == 3 ? measureTriangle(points, corners) : measurePolygon(polygon);
  const Vec3 doubleArea = isReversed != runsAgainst ? -face.doubleArea : face.doubleArea;
  const auto cornerCount = static_cast<double>(corners.size());
  // Corners in a line have an area by rounding alone, of them or of what is computed from them.
  const double noise = 8 * std::numeric_limits<double>::epsilon() * cornerCount * face.reach *
                       (largestMagnitude(polygon.pivot()) + face.reach);
  const double size = face.size > noise ? face.size : 0, area = isHole ? -size : size;
  const Vec3 place = polygon.pivot() - mOrigin, mean = place + face.mean;
  mVectorArea = mVectorArea + doubleArea;
  mVolume += dot(doubleArea, mean);
  mMoment = mMoment + area * (place + face.centroid);
  mSecondMoment += area * (lengthSq(place) + 2 * dot(place, face.centroid) + face.square);
  mArea += area;
  mMajority += runsAgainst ? -area : area;
  mTermSize +=
      cornerCount * face.reach * face.reach * (largestMagnitude(mOrigin) + largestMagnitude(mean) + face.reach);
  mCount += cornerCount;
}

/// The sign of the volume, or 0 where it says nothing.
int PieceMeasure::volumeSign(bool isClosed) const {
  if (!(mArea > 0)) return 0;
  double volume = mVolume, limit = std::numeric_limits<double>::epsilon() * mCount * mTermSize;
  if (!isClosed) {
    constexpr double kAround = 0.6, kLeast = 1e-5;
    const Vec3 center = mMoment / mArea;
    const double radius = std::sqrt(std::max(mSecondMoment / mArea - lengthSq(center), 0.0));
    volume -= dot(mVectorArea, center);
    limit = radius * std::max(kAround * length(mVectorArea), kLeast * mArea);
  }
  if (std::fabs(volume) <= limit) return 0;
  return volume > 0 ? 1 : -1;
}

bool PieceMeasure::isOutward(bool isClosed) const {
  if (const int sign = volumeSign(isClosed); sign != 0) return sign > 0;
  constexpr double kTie = 1e-9;  // of the area
  return !(mArea > 0) || mMajority >= -kTie * mArea;
}

}  // namespace util
