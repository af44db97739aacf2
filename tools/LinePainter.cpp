#include <tools/LinePainter.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace tool {
namespace {

// The part of a pixel that a disc covers, nearly.
double coveredPart(double radius, double distance) { return std::clamp(radius + 0.5 - distance, 0.0, 1.0); }

// Pixels as an endless straight strip covers them: exactly, so that all pixels across it add up to its width.
class Strip {
 public:
  // The direction has unit length.
  Strip(double width, double dx, double dy)
      : mHalfWidth(width / 2),
        mOuter((std::fabs(dx) + std::fabs(dy)) / 2),
        mInner(std::fabs(std::fabs(dx) - std::fabs(dy)) / 2) {}

  // The part of a pixel with its center at this distance from the middle.
  double coveredPart(double distance) const { return below(mHalfWidth - distance) - below(-mHalfWidth - distance); }

 private:
  // The part of a pixel up to a line across it: seen along the line a pixel is a trapezoid, with its height in between
  // mInner to both sides of the center and slopes up to mOuter.
  double below(double at) const {
    if (at <= -mOuter) return 0;
    if (at >= mOuter) return 1;
    const double height = 1 / (mOuter + mInner), slope = mOuter - mInner;
    if (std::fabs(at) <= mInner) return 0.5 + at * height;
    const double rest = mOuter - std::fabs(at), outside = rest * rest * height / (2 * slope);
    return at < 0 ? outside : 1 - outside;
  }

  double mHalfWidth, mOuter, mInner;
};

// The first and the last pixel that touch an interval, within `size` pixels.
struct Span {
  Span(double begin, double end, int size)
      : mFirst(static_cast<int>(std::clamp(std::floor(begin), 0.0, static_cast<double>(size)))),
        mLast(static_cast<int>(std::clamp(std::floor(end), -1.0, size - 1.0))) {}
  int mFirst, mLast;
};

// Clips the way from 0 to 1 to the part where a linearly changing value is not negative.
void clip(double atStart, double atEnd, double& begin, double& end) {
  if (atStart < 0 && atEnd < 0) end = -1;
  if (atStart < 0 && atEnd >= 0) begin = std::max(begin, atStart / (atStart - atEnd));
  if (atStart >= 0 && atEnd < 0) end = std::min(end, atStart / (atStart - atEnd));
}

}  // namespace

Coverage::Coverage(int width, int height) : mWidth(width), mHeight(height), mParts(indexOf(0, height)) {}

void Coverage::raise(int x, int y, float part) {
  float& old = mParts[indexOf(x, y)];
  old = std::max(old, part);
}

void Coverage::blendInto(Picture& picture, const Color& color) const {
  for (int y = 0; y < mHeight; ++y) {
    for (int x = 0; x < mWidth; ++x) {
      const double part = at(x, y);
      if (part == 0) continue;
      std::uint8_t* const pixel = picture.pixel(x, y);
      for (std::size_t i = 0; i < color.size(); ++i)
        pixel[i] = static_cast<std::uint8_t>(std::lround(pixel[i] + (color[i] - pixel[i]) * part));
    }
  }
}

void paintLine(Coverage& coverage, double x0, double y0, double x1, double y1, double width,
               const std::function<double(double part)>& strengthAt) {
  const double dx = x1 - x0, dy = y1 - y0, length = std::hypot(dx, dy), reach = width / 2 + 1;
  const Strip strip(width, length > 0 ? dx / length : 1, length > 0 ? dy / length : 0);
  // Along the longer side of the box, and for each step only as far aside as the line reaches.
  const bool isSteep = std::fabs(dy) > std::fabs(dx);
  const double begin = isSteep ? y0 : x0, along = isSteep ? dy : dx, beginAside = isSteep ? x0 : y0;
  const double slope = along == 0 ? 0 : (isSteep ? dx : dy) / along;
  const Span steps(std::min(begin, begin + along) - reach, std::max(begin, begin + along) + reach,
                   isSteep ? coverage.height() : coverage.width());
  for (int step = steps.mFirst; step <= steps.mLast; ++step) {
    const double center = std::clamp(step + 0.5, std::min(begin, begin + along), std::max(begin, begin + along));
    const double aside = beginAside + (center - begin) * slope, sideReach = reach * std::numbers::sqrt2;
    const Span band(aside - sideReach, aside + sideReach, isSteep ? coverage.width() : coverage.height());
    for (int other = band.mFirst; other <= band.mLast; ++other) {
      const int x = isSteep ? other : step, y = isSteep ? step : other;
      const double px = x + 0.5 - x0, py = y + 0.5 - y0;
      const double way = length > 0 ? (px * dx + py * dy) / length : 0, part = std::clamp(way, 0.0, length);
      const double offset = length > 0 ? std::fabs(px * dy - py * dx) / length : py;
      // Ends are round, and as pale as a thin line.
      const double covered =
          way == part && length > 0
              ? strip.coveredPart(offset)
              : std::min(width, 1.0) * coveredPart(std::max(width, 1.0) / 2, std::hypot(way - part, offset));
      if (covered > static_cast<double>(coverage.at(x, y)))
        coverage.raise(x, y, static_cast<float>(covered * strengthAt(length > 0 ? part / length : 0)));
    }
  }
}

void paintDot(Coverage& coverage, double x, double y, double radius, DotShape shape, double strength) {
  const double reach = (radius + 0.5) * std::numbers::sqrt2;
  const Span columns(x - reach, x + reach, coverage.width()), rows(y - reach, y + reach, coverage.height());
  for (int row = rows.mFirst; row <= rows.mLast; ++row) {
    for (int column = columns.mFirst; column <= columns.mLast; ++column) {
      const double dx = column + 0.5 - x, dy = row + 0.5 - y;
      const double distance = shape == DotShape::disc     ? std::hypot(dx, dy)
                              : shape == DotShape::square ? std::max(std::fabs(dx), std::fabs(dy))
                                                          : (std::fabs(dx) + std::fabs(dy)) / std::numbers::sqrt2;
      coverage.raise(column, row, static_cast<float>(coveredPart(radius, distance) * strength));
    }
  }
}

void LinePainter::paintEdge(Coverage& coverage, const Vector& from, const Vector& to, double width) const {
  const Vector a = projected(from), b = projected(to);
  double begin = 0, end = 1;
  for (const Vector& side : {Vector{1, 0, 1}, Vector{-1, 0, 1}, Vector{0, 1, 1}, Vector{0, -1, 1}})
    clip(dot(side, a), dot(side, b), begin, end);
  clip(a.z - mCamera.mNear, b.z - mCamera.mNear, begin, end);
  if (!(begin < end)) return;
  const Point first = pointOf(a + (b - a) * begin), last = pointOf(a + (b - a) * end);
  const auto strengthAt = [&](double part) {
    // The inverse of depth changes linearly across the picture, depth itself does not.
    const Point point{first.mColumn + (last.mColumn - first.mColumn) * part,
                      first.mRow + (last.mRow - first.mRow) * part,
                      1 / ((1 - part) / first.mDepth + part / last.mDepth)};
    int count = 0, seen = 0;
    forSamplesAround(point, [&](const Sample& sample, const Vector& ray) {
      ++count;
      seen += isHiddenBy(sample, ray, point) ? 0 : 1;
    });
    return mHidden + (1 - mHidden) * seen / count;
  };
  paintLine(coverage, first.mColumn, first.mRow, last.mColumn, last.mRow, width, strengthAt);
}

void LinePainter::paintVertex(Coverage& coverage, const Vector& place, double radius, DotShape shape) const {
  const Vector v = projected(place);
  if (v.z < mCamera.mNear || std::fabs(v.x) > v.z || std::fabs(v.y) > v.z) return;
  const Point point = pointOf(v);
  bool isSeen = false;
  forSamplesAround(point, [&](const Sample& sample, const Vector& ray) { isSeen |= !isHiddenBy(sample, ray, point); });
  paintDot(coverage, point.mColumn, point.mRow, radius, shape, isSeen ? 1 : mHidden);
}

// Positions in the picture times depth, and the depth: these change linearly along an edge.
Vector LinePainter::projected(const Vector& place) const {
  const Vector v = place - mCamera.mEye;
  return {dot(v, mCamera.mRight) / mCamera.mTanX, dot(v, mCamera.mUp) / mCamera.mTanY, dot(v, mCamera.mForward)};
}

LinePainter::Point LinePainter::pointOf(const Vector& v) const {
  const double width = mGrid.width() / mGrid.perPixel(), height = mGrid.height() / mGrid.perPixel();
  return {(v.x / v.z + 1) / 2 * width, (1 - v.y / v.z) / 2 * height, v.z};
}

// The samples of the pixel that the point is in.
template <typename Use>
void LinePainter::forSamplesAround(const Point& point, Use use) const {
  const int n = mGrid.perPixel();
  const int left = std::clamp(static_cast<int>(point.mColumn) * n, 0, mGrid.width() - n);
  const int top = std::clamp(static_cast<int>(point.mRow) * n, 0, mGrid.height() - n);
  for (int y = top; y < top + n; ++y)
    for (int x = left; x < left + n; ++x) use(mGrid.at(x, y), normalized(mGrid.directionTo(x, y)));
}

// A point is hidden when it lies behind the plane of the visible face, by more than the size of a pixel: the plane is
// that of the face at the sample's center.
bool LinePainter::isHiddenBy(const Sample& sample, const Vector& ray, const Point& point) const {
  if (!sample.isHit()) return false;
  const double height = mGrid.height() / mGrid.perPixel(), width = mGrid.width() / mGrid.perPixel();
  const Vector place = mCamera.directionTo(2 * point.mColumn / width - 1, 1 - 2 * point.mRow / height) * point.mDepth;
  const Vector normal = sample.normal();
  const double behind =
      dot(place - ray * static_cast<double>(sample.mDistance), normal) * (dot(ray, normal) < 0 ? -1 : 1);
  return behind > 2 * point.mDepth * mCamera.mTanY / height;
}

}  // namespace tool
