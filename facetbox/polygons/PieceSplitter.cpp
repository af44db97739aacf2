#include <facetbox/polygons/PieceSplitter.h>

namespace util {
namespace {

/// From this many pieces on, a good cutting line is worth a longer search.
constexpr std::size_t kThorough = 128;

}  // namespace

bool PieceSplitter::findLine(std::size_t begin, std::size_t spare, Line& line) {
  return (chooseLine(begin, Ends::onOneSide, line) && splitsWithin(begin, line, spare)) ||
         (chooseLine(begin, Ends::onBothSides, line) && splitsWithin(begin, line, spare));
}

/// The best of several lines, rated on a sample of the pieces: across either axis, and along the longest and the middle
/// piece. Where these cut many pieces, also lines along and between other pieces, for radial bundles and rows of bends.
bool PieceSplitter::chooseLine(std::size_t begin, Ends ends, Line& line) {
  mEnds = ends;
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
  // The cost is left^2 + right^2. Sending nine in ten to both sides costs 2 * 0.9^2 = 1.62 of the square; a line that
  // costs more than 1.8 is useless.
  double cost = 1.8 * static_cast<double>(mSampled) * static_cast<double>(mSampled);
  const double costBefore = cost;
  const bool isWide =
      high.x - low.x > high.y - low.y;  // among equals the first one rated wins: this keeps regions compact
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

/// Takes pieces evenly, with a jitter so that no regular outline hides every second or fourth edge.
void PieceSplitter::takeSample(std::size_t begin) {
  const std::size_t count = mItems.size() - begin;
  mSampled = std::min(count, count < kThorough ? kSampleSize / 2 : kSampleSize);
  for (std::size_t i = 0; i < mSampled; ++i) {
    const std::size_t jitter = i * 2654435761u % count;
    mSample[i] = mItems[begin + (i * count + jitter) / mSampled].piece;
  }
}

/// Rates the line of that direction through the median of the sample's middles.
void PieceSplitter::rateDirection(Vec2 along, Line& best, double& bestCost) {
  Line line{normalOf(along), 0};
  if (line.normal == Vec2{}) return;
  for (std::size_t i = 0; i < mSampled; ++i) mHeights[i] = line.heightOf(mSample[i].middle());
  const auto median = mHeights.begin() + static_cast<std::ptrdiff_t>(mSampled / 2);
  std::nth_element(mHeights.begin(), median, mHeights.begin() + static_cast<std::ptrdiff_t>(mSampled));
  line.offset = *median;
  rate(line, best, bestCost);
}

/// Rates the line through two points.
void PieceSplitter::ratePoints(Vec2 a, Vec2 b, Line& best, double& bestCost) {
  Line line{normalOf({b.x - a.x, b.y - a.y}), 0};
  if (line.normal == Vec2{}) return;
  line.offset = line.heightOf(a);
  rate(line, best, bestCost);
}

void PieceSplitter::rate(const Line& line, Line& best, double& bestCost) const {
  double left = 0, right = 0;
  for (std::size_t i = 0; i < mSampled; ++i) {
    const double a = line.heightOf(mSample[i].a), b = line.heightOf(mSample[i].b);
    const double low = std::min(a, b), high = std::max(a, b);
    const bool isLeft = low<line.offset - mMarginWidth, isRight = high> line.offset + mMarginWidth;
    const bool isOn = !isLeft && !isRight, countsTwice = mEnds == Ends::onBothSides;
    left += isLeft || isOn || (countsTwice && low <= line.offset + mMarginWidth);
    right += isRight || isOn || (countsTwice && high >= line.offset - mMarginWidth);
  }
  const double cost = left * left + right * right;
  if (cost >= bestCost) return;
  bestCost = cost;
  best = line;
}

bool PieceSplitter::splitsWithin(std::size_t begin, const Line& line, std::size_t spare) const {
  const std::size_t count = mItems.size() - begin;
  std::size_t left = 0, right = 0;
  for (std::size_t i = begin; i < mItems.size(); ++i) {
    const double a = line.heightOf(mItems[i].piece.a), b = line.heightOf(mItems[i].piece.b);
    left += std::min(a, b) <= line.offset + mMarginWidth;
    right += std::max(a, b) >= line.offset - mMarginWidth;
  }
  return left < count && right < count && left + right - count <= spare;
}

std::size_t PieceSplitter::split(std::size_t begin, const Line& line) {
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

void PieceSplitter::dropSharedFrom(std::size_t middle) {
  const auto first = mItems.begin() + static_cast<std::ptrdiff_t>(middle);
  mItems.erase(std::remove_if(first, mItems.end(), [](const Item& item) { return item.isShared; }), mItems.end());
}

}  // namespace util
