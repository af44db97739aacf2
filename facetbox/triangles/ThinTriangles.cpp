#include <facetbox/triangles/ThinTriangles.h>

#include <bit>
#include <limits>
#include <utility>

#include <facetbox/math/Predicates.h>

namespace util {
namespace {

constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kMostFlips = 16;  ///< per triangle

std::uint64_t mixed(std::uint64_t x) {
  x *= 0x9E3779B97F4A7C15u;
  return x ^ (x >> 32);
}

/// Of a place in the list of triangles: those of its triangle's next corner and of the one before.
std::uint32_t nextOf(std::uint32_t place) { return place % 3 == 2 ? place - 2 : place + 1; }
std::uint32_t beforeOf(std::uint32_t place) { return place % 3 == 0 ? place + 2 : place - 1; }

/// The place from which the longest edge of a triangle runs.
std::uint32_t longestOf(const ThinTriangles::Cut& cut, std::uint32_t triangle, double& longestSq) {
  std::uint32_t longest = 3 * triangle;
  longestSq = -1;
  for (std::uint32_t place = 3 * triangle; place < 3 * triangle + 3; ++place) {
    const double size = lengthSq(cut.points[cut.triangles[nextOf(place)]] - cut.points[cut.triangles[place]]);
    if (size <= longestSq) continue;
    longestSq = size;
    longest = place;
  }
  return longest;
}

}  // namespace

std::span<const std::uint32_t> EqualPlaces::find(std::span<const Vec3> points) {
  mPlaces.resize(points.size());
  mSlots.assign(std::bit_ceil(2 * points.size() + 1), kNone);
  for (std::uint32_t i = 0; i < points.size(); ++i) {
    std::uint64_t hash = 0;
    for (const double x : {points[i].x, points[i].y, points[i].z})
      hash = mixed(hash ^ std::bit_cast<std::uint64_t>(x + 0.0));  // of -0 as of 0
    std::size_t slot = hash & (mSlots.size() - 1);
    while (mSlots[slot] != kNone && points[mSlots[slot]] != points[i]) slot = (slot + 1) & (mSlots.size() - 1);
    if (mSlots[slot] == kNone) mSlots[slot] = i;
    mPlaces[i] = mSlots[slot];
  }
  return mPlaces;
}

std::size_t ThinTriangles::flip(const Cut& cut) {
  const auto count = static_cast<std::uint32_t>(cut.triangles.size() / 3);
  findNeighbours(cut);
  mCandidates.clear();
  for (std::uint32_t triangle = 0; triangle < count; ++triangle) addIfThin(cut, triangle);
  for (std::size_t flips = 0; !mCandidates.empty() && flips < kMostFlips * count;) {
    std::pop_heap(mCandidates.begin(), mCandidates.end());
    const std::uint32_t triangle = mCandidates.back().triangle;
    mCandidates.pop_back();
    flips += flipLongest(cut, triangle);
  }
  std::size_t withoutArea = 0;
  for (std::size_t i = 0; i < cut.triangles.size(); i += 3)
    withoutArea += !hasArea(
        shapeOf(cut.points[cut.triangles[i]], cut.points[cut.triangles[i + 1]], cut.points[cut.triangles[i + 2]]));
  return withoutArea;
}

void ThinTriangles::findNeighbours(const Cut& cut) {
  const auto sides = static_cast<std::uint32_t>(cut.triangles.size());
  mSides.resize(sides);
  mFirstSides.assign(std::bit_ceil(cut.triangles.size()), kNone);
  for (std::uint32_t side = 0; side < sides; ++side) {
    const std::uint32_t from = cut.places[cut.triangles[side]], to = cut.places[cut.triangles[nextOf(side)]];
    const std::uint64_t key = std::uint64_t{std::min(from, to)} << 32 | std::max(from, to);
    std::uint32_t& first = mFirstSides[mixed(key) & (mFirstSides.size() - 1)];
    mSides[side] = {key, first, from < to};
    first = side;
  }
  // Where just two sides share an edge, in opposite directions.
  mAcross.assign(sides, kNone);
  for (std::uint32_t side = 0; side < sides; ++side) {
    const std::uint64_t key = mSides[side].key;
    std::uint32_t other = kNone, count = 0;
    for (std::uint32_t i = mFirstSides[mixed(key) & (mFirstSides.size() - 1)]; i != kNone; i = mSides[i].next) {
      count += mSides[i].key == key;
      if (mSides[i].key == key && i != side) other = i;
    }
    if (count == 2 && mSides[side].isUpward != mSides[other].isUpward) mAcross[side] = other;
  }
}

void ThinTriangles::addIfThin(const Cut& cut, std::uint32_t triangle) {
  const auto at = [&](std::uint32_t k) -> const Vec3& { return cut.points[cut.triangles[3 * triangle + k]]; };
  if (!isThin(shapeOf(at(0), at(1), at(2)))) return;
  double longestSq;
  longestOf(cut, triangle, longestSq);
  mCandidates.push_back({longestSq, triangle});
  std::push_heap(mCandidates.begin(), mCandidates.end());
}

/// Triangles abc and bad become adc and dbc if that is better.
bool ThinTriangles::flipLongest(const Cut& cut, std::uint32_t triangle) {
  double longestSq;
  const std::uint32_t ab = longestOf(cut, triangle, longestSq), ba = mAcross[ab];
  if (ba == kNone) return false;
  const std::uint32_t bc = nextOf(ab), ca = beforeOf(ab), ad = nextOf(ba), db = beforeOf(ba);
  const std::uint32_t a = cut.triangles[ab], b = cut.triangles[ba], c = cut.triangles[ca], d = cut.triangles[db];
  const auto shape = [&](std::uint32_t i, std::uint32_t j, std::uint32_t k) {
    return shapeOf(cut.points[i], cut.points[j], cut.points[k]);
  };
  const auto turn = [&](std::uint32_t i, std::uint32_t j, std::uint32_t k) {
    const auto flat = [&](std::uint32_t number) { return Vec2{cut.seen[number].x, cut.seen[number].y}; };
    return orientation(flat(i), flat(j), flat(k));
  };
  const double before = std::min(shape(a, b, c), shape(b, a, d)), after = std::min(shape(a, d, c), shape(d, b, c));
  if (hasArea(after)) {
    if (!(after > before) && hasArea(before)) return false;
    if (turn(a, d, c) <= 0 || turn(d, b, c) <= 0) return false;
  } else {
    // All on one line: shorter is better.
    const auto sq = [&](std::uint32_t i, std::uint32_t j) { return lengthSq(cut.points[j] - cut.points[i]); };
    if (hasArea(shape(b, a, d)) || hasArea(shape(a, b, c)) || cut.places[c] == cut.places[d] ||
        std::max({sq(c, d), sq(a, c), sq(a, d), sq(b, c), sq(b, d)}) >= longestSq)
      return false;
  }

  // The first triangle's places become a d c, the second's b c d: edge dc where ab was, and so on.
  const std::uint32_t behindBc = mAcross[bc], behindAd = mAcross[ad];
  cut.triangles[bc] = d;
  cut.triangles[ad] = c;
  const auto join = [&](std::uint32_t place, std::uint32_t other) {
    mAcross[place] = other;
    if (other != kNone) mAcross[other] = place;
  };
  join(ab, behindAd);
  join(ba, behindBc);
  join(bc, ad);
  for (const std::uint32_t place : {ab, ba, ca, db}) {
    if (mAcross[place] != kNone) addIfThin(cut, mAcross[place] / 3);
  }
  addIfThin(cut, ab / 3);
  addIfThin(cut, ba / 3);
  return true;
}

}  // namespace util
