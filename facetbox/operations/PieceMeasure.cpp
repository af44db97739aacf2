#include <facetbox/operations/PieceMeasure.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace util {
namespace {

/// Six times the mean square of the distances from the pivot within its triangle with an edge.
double squareOf(const Vec3& from, const Vec3& to) { return lengthSq(from) + lengthSq(to) + dot(from, to); }

/// The sign of a number, or 0 within a limit.
int signBeyond(double value, double limit) {
  if (std::fabs(value) <= limit) return 0;
  return value > 0 ? 1 : -1;
}

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
  Vec3 pivot, doubleArea;
  Vec3 mean;     ///< of the corners, from the pivot
  double reach;  ///< no corner is farther from the pivot on an axis
  // Only where they are asked for: the size of the double area, its centroid from the pivot, and the mean of the
  // squared distances from there.
  double size = 0, square = 0;
  Vec3 centroid = mean;
};

enum class Moments { none, wanted };

/// Sets what depends on how the area is spread: the triangles of the fan around the pivot, by how much each adds.
void spread(FaceMeasure& face, double sizeSq, const EdgeTerm& moments) {
  if (!(sizeSq > 0)) return;
  face.size = std::sqrt(sizeSq);
  face.centroid = moments.sum / 3;
  face.square = moments.square / 6;
}

EdgeTerm share(const EdgeTerm& edge, const Vec3& doubleArea, double sizeSq) {
  const double part = dot(edge.cross, doubleArea) / sizeSq;
  return {{}, part * edge.sum, part * edge.square};
}

FaceMeasure measureTriangle(std::span<const Vec3> points, std::span<const std::uint32_t> corners) {
  const bool isSwapped = corners[0] > corners[1];
  const Vec3& pivot = points[corners[isSwapped ? 1 : 0]];
  const Vec3 a = points[corners[isSwapped ? 0 : 1]] - pivot, b = points[corners[2]] - pivot;
  const Vec3 doubleArea = cross(a, b), mean = (a + b) / 3;
  return {pivot,
          isSwapped ? -doubleArea : doubleArea,
          mean,
          std::max(largestMagnitude(a), largestMagnitude(b)),
          length(doubleArea),
          squareOf(a, b) / 6,
          mean};
}

/// From the pivot, the corners of a quadrangle follow in the same order however it runs.
FaceMeasure measureQuadrangle(std::span<const Vec3> points, std::span<const std::uint32_t> corners, Moments wanted) {
  const bool isSwapped = corners[0] > corners[1];
  const Vec3& pivot = points[corners[isSwapped ? 1 : 0]];
  const Vec3 a = points[corners[isSwapped ? 0 : 1]] - pivot, b = points[corners[isSwapped ? 3 : 2]] - pivot,
             c = points[corners[isSwapped ? 2 : 3]] - pivot;
  const Vec3 ab = cross(a, b), bc = cross(b, c), doubleArea = ab + bc;
  FaceMeasure face{pivot, isSwapped ? -doubleArea : doubleArea, (a + c + b) / 4,
                   std::max(std::max(largestMagnitude(a), largestMagnitude(b)), largestMagnitude(c))};
  if (wanted == Moments::none) return face;
  const double sizeSq = lengthSq(doubleArea);
  spread(
      face, sizeSq,
      share({ab, a + b, squareOf(a, b)}, doubleArea, sizeSq) + share({bc, b + c, squareOf(b, c)}, doubleArea, sizeSq));
  return face;
}

FaceMeasure measurePolygon(std::span<const Vec3> points, std::span<const std::uint32_t> corners, Moments wanted) {
  const MirroredPolygon polygon(points, corners);
  const EdgeTerm sum = polygon.sumOf(polygon.edge(0), [](const EdgeTerm& edge) { return edge; });
  double reach = 0;
  for (std::size_t i = 0; i < polygon.size(); ++i) reach = std::max(reach, largestMagnitude(polygon.corner(i)));
  FaceMeasure face{polygon.pivot(), sum.cross, sum.sum / (2 * static_cast<double>(polygon.size())), reach};
  if (wanted == Moments::none) return face;
  const double sizeSq = lengthSq(sum.cross);
  spread(face, sizeSq, polygon.sumOf(EdgeTerm{}, [&](const EdgeTerm& edge) { return share(edge, sum.cross, sizeSq); }));
  return face;
}

FaceMeasure measure(std::span<const Vec3> points, std::span<const std::uint32_t> corners, Moments wanted) {
  if (corners.size() == 3) return measureTriangle(points, corners);
  if (corners.size() == 4) return measureQuadrangle(points, corners, wanted);
  return measurePolygon(points, corners, wanted);
}

}  // namespace

Vec3 doubleAreaOf(std::span<const Vec3> points, std::span<const std::uint32_t> corners) {
  return measure(points, corners, Moments::none).doubleArea;
}

void PieceMeasure::addVolume(std::span<const Vec3> points, std::span<const std::uint32_t> corners, bool isReversed) {
  const FaceMeasure face = measure(points, corners, Moments::none);
  const Vec3 mean = face.pivot - mOrigin + face.mean;
  const double term = dot(face.doubleArea, mean);
  mVolume += isReversed ? -term : term;
  const auto cornerCount = static_cast<double>(corners.size());
  mTermSize +=
      cornerCount * face.reach * face.reach * (largestMagnitude(mOrigin) + largestMagnitude(mean) + face.reach);
  mCount += cornerCount;
}

int PieceMeasure::closedVolumeSign() const {
  return signBeyond(mVolume, std::numeric_limits<double>::epsilon() * mCount * mTermSize);
}

void PieceMeasure::add(std::span<const Vec3> points, std::span<const std::uint32_t> corners, bool isHole,
                       bool isReversed, bool runsAgainst) {
  const FaceMeasure face = measure(points, corners, Moments::wanted);
  // Corners in a line have an area by rounding alone, of them or of what is computed from them.
  const double noise = 8 * std::numeric_limits<double>::epsilon() * static_cast<double>(corners.size()) * face.reach *
                       (largestMagnitude(face.pivot) + face.reach);
  const double size = face.size > noise ? face.size : 0, area = isHole ? -size : size;
  const Vec3 doubleArea = isReversed != runsAgainst ? -face.doubleArea : face.doubleArea;
  const Vec3 place = face.pivot - mOrigin;
  mVectorArea = mVectorArea + doubleArea;
  mVolume += dot(doubleArea, place + face.mean);
  mMoment = mMoment + area * (place + face.centroid);
  mSecondMoment += area * (lengthSq(place) + 2 * dot(place, face.centroid) + face.square);
  mArea += area;
  mMajority += runsAgainst ? -area : area;
}

int PieceMeasure::openVolumeSign() const {
  if (!(mArea > 0)) return 0;
  constexpr double kAround = 0.6, kLeast = 1e-5;
  const Vec3 center = mMoment / mArea;
  const double radius = std::sqrt(std::max(mSecondMoment / mArea - lengthSq(center), 0.0));
  return signBeyond(mVolume - dot(mVectorArea, center),
                    radius * std::max(kAround * length(mVectorArea), kLeast * mArea));
}

bool PieceMeasure::hasMajority() const {
  constexpr double kTie = 1e-9;  // of the area
  return !(mArea > 0) || mMajority >= -kTie * mArea;
}

}  // namespace util
