#include <facetbox/operations/ChainStraightener.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

#include <facetbox/math/Vec3.h>
#include <facetbox/operations/TexCoordTolerance.h>

namespace util {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFFu;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kRightAngle = 90.0, kStraightAngle = 180.0;
constexpr std::uint32_t kDeep = 200, kTooDeep = 320;
constexpr std::uint32_t kTexCoordMask = (1u << PrimitiveList::kTexCoordSets) - 1;

double square(double x) { return x * x; }
double radians(double degrees) { return degrees * (std::numbers::pi / 180.0); }

/// |am| + |mb| - |ab|, by formulas that lose no digits. The order of a and b does not matter, down to the last bit.
double detour(const Vec3& toA, const Vec3& toB) {
  const double a = length(toA), b = length(toB), cosine = dot(toA, toB);
  const double part = cosine < 0.0 ? lengthSq(cross(toA, toB)) / (a * b - cosine) : a * b + cosine;
  const double way = a + b + length(toB - toA);
  return way > 0.0 ? 2.0 * part / way : way;
}

/// Where a vertex lies on the way from A to B: the parts that A and B have in it.
struct Place {
  double ofA, ofB;

  Place(const Vec3& toA, const Vec3& toB) {
    const double a = length(toA), b = length(toB), all = a + b;
    ofA = all > 0.0 ? b / all : 0.5;
    ofB = all > 0.0 ? a / all : 0.5;
  }
  double distanceOff(const Vec2& own, const Vec2& atA, const Vec2& atB) const {
    const double du = own.x - (ofA * atA.x + ofB * atB.x), dv = own.y - (ofA * atA.y + ofB * atB.y);
    return std::sqrt(du * du + dv * dv);
  }
};

/// A face's texture coordinates by corner; NaN where an index lies beyond the pairs.
class TexCoords {
 public:
  TexCoords(const MeshStorage& m, std::uint32_t face, int set)
      : mIndices(m.mFaces.cornerSet(face, set)), mPairs(m.mTexCoords[static_cast<std::size_t>(set)]) {}

  Vec2 operator[](std::uint32_t corner) const {
    const std::uint32_t index = mIndices[corner];
    return index < mPairs.size() ? mPairs[index] : Vec2{kNaN, kNaN};
  }

 private:
  const std::span<const std::uint32_t> mIndices;
  const std::span<const Vec2> mPairs;
};

}  // namespace

/// The position with the greatest value. What is not a number is greater than everything; ties go to the lower vertex.
class ChainStraightener::Choice {
 public:
  explicit Choice(std::span<const std::uint32_t> chain) : mChain(chain) {}

  void offer(std::uint32_t position, double value) {
    if (std::isnan(value)) value = kInfinity;
    if (mPosition != kNone && (value < mValue || (value == mValue && mChain[position] > mChain[mPosition]))) return;
    mPosition = position;
    mValue = value;
  }
  std::uint32_t position() const { return mPosition; }  ///< kNone where nothing was offered

 private:
  const std::span<const std::uint32_t> mChain;
  std::uint32_t mPosition = kNone;
  double mValue = 0.0;
};

ChainStraightener::ChainStraightener(const MeshStorage& mesh, double toleranceDegrees,
                                     const CornersOfVertices* textured, std::vector<bool>& removed)
    : mMesh(mesh),
      mTextured(textured),
      mRemoved(removed),
      mAllStraight(toleranceDegrees >= kStraightAngle),
      mIsBelowRight(toleranceDegrees < kRightAngle),
      mSineSq(square(std::sin(radians(toleranceDegrees)))),
      mCosineSq(square(std::cos(radians(toleranceDegrees)))),
      mBack(std::tan(radians(toleranceDegrees) / 2.0)) {}

bool ChainStraightener::straighten(std::span<const std::uint32_t> chain) {
  if (chain.size() == 3) return straightenOne(chain);
  open(chain);
  if (chain.front() == chain.back())
    straightenRing();
  else
    straightenBetween({0, lastPosition()}, 0);
  return mKeptCount > 0;
}

/// The most frequent chain, with one vertex inside.
bool ChainStraightener::straightenOne(std::span<const std::uint32_t> chain) {
  const Vec3& own = mMesh.mVertices[chain[1]];
  const Vec3 toA = mMesh.mVertices[chain[0]] - own, toB = mMesh.mVertices[chain[2]] - own;
  const bool isKept = (!mAllStraight && isOutOfSight(toA, toB)) || (mTextured && isOneOffInTexture(chain, toA, toB));
  mRemoved[chain[1]] = !isKept;
  return isKept;
}

bool ChainStraightener::isOneOffInTexture(std::span<const std::uint32_t> chain, const Vec3& toA,
                                          const Vec3& toB) const {
  const Place place(toA, toB);
  for (const FaceCorner& corner : (*mTextured)[chain[1]]) {
    const std::uint32_t n = mMesh.mFaces.cornerCount(corner.face), at = corner.position;
    const std::uint32_t before = (at == 0 ? n : at) - 1, after = at + 1 == n ? 0 : at + 1;
    const bool isForward = mMesh.mFaces.corners(corner.face)[after] == chain[2];
    for (std::uint32_t bits = mMesh.mFaces.mask(corner.face) & kTexCoordMask; bits != 0; bits &= bits - 1) {
      const TexCoords coords(mMesh, corner.face, std::countr_zero(bits));
      const Vec2 ofA = coords[isForward ? before : after], ofB = coords[isForward ? after : before];
      if (!(place.distanceOff(coords[at], ofA, ofB) < kTexCoordTolerance)) return true;
    }
  }
  return false;
}

void ChainStraightener::straightenKeepingOne(std::span<const std::uint32_t> chain) {
  open(chain);
  const std::uint32_t end = lastPosition();
  Choice middle(mChain);
  for (std::uint32_t i = 1; i < end; ++i) middle.offer(i, detour(mPoints[0] - mPoints[i], mPoints[end] - mPoints[i]));
  keep(middle.position());
  straightenBetween({0, middle.position(), end}, 1);
}

void ChainStraightener::straightenRing() {
  const std::uint32_t end = lastPosition();
  Choice farthest(mChain);
  for (std::uint32_t i = 1; i < end; ++i) farthest.offer(i, lengthSq(mPoints[i] - mPoints[0]));
  const std::uint32_t opposite = farthest.position();
  keep(opposite);
  straightenBetween({0, opposite, end}, 0);
  if (mKeptCount > 1) return;
  // Two corners are no face.
  Choice farthestAside(mChain);
  for (std::uint32_t i = 1; i < end; ++i)
    if (i != opposite) farthestAside.offer(i, detour(mPoints[0] - mPoints[i], mPoints[opposite] - mPoints[i]));
  const std::uint32_t third = farthestAside.position();
  keep(third);
  straightenBetween({0, std::min(opposite, third), std::max(opposite, third), end}, 1);
}

void ChainStraightener::open(std::span<const std::uint32_t> chain) {
  mChain = chain;
  mKeptCount = 0;
  mPoints.resize(chain.size());
  for (std::size_t i = 0; i < chain.size(); ++i) mPoints[i] = mMesh.mVertices[chain[i]];
  for (std::size_t i = 1; i + 1 < chain.size(); ++i) mRemoved[chain[i]] = true;
  if (mTextured) findVisits();
}

void ChainStraightener::keep(std::uint32_t position) {
  mRemoved[mChain[position]] = false;
  ++mKeptCount;
}

void ChainStraightener::straightenBetween(std::initializer_list<std::uint32_t> positions, std::uint32_t depth) {
  for (auto end = positions.begin() + 1; end != positions.end(); ++end) push({end[-1], *end, depth});
  while (!mParts.empty()) {
    const Part part = mParts.back();
    mParts.pop_back();
    count(part);
    if (part.depth < kTooDeep) {
      divide(part);
    } else {
      for (std::uint32_t i = part.begin + 1; i < part.end; ++i) keep(i);
    }
  }
}

void ChainStraightener::push(const Part& part) {
  if (part.end - part.begin > 1) mParts.push_back(part);
}

void ChainStraightener::count(const Part& part) {
  constexpr std::size_t kMuch = 1 << 16;
  mWork += part.end - part.begin;
  if (mWork < kMuch) return;
  mWork = 0;
  if (mMesh.mMonitor) mMesh.mMonitor->look();
}

void ChainStraightener::divide(const Part& part) {
  if (!mAllStraight) {
    if (const std::uint32_t corner = findCorner(part); corner != kNone)
      return divideAt(part, corner, part.depth < kDeep ? kNone : findInTheMiddle(part));
    if (const auto [to, from] = findBack(part); to != kNone) return divideAt(part, to, from);
  }
  if (!mVisits.empty())
    if (const std::uint32_t off = findOffInTexture(part); off != kNone) divideAt(part, off, kNone);
}

void ChainStraightener::divideAt(const Part& part, std::uint32_t a, std::uint32_t b) {
  if (b == kNone) b = a;
  const auto [low, high] = std::minmax(a, b);
  keep(low);
  if (low != high) keep(high);
  push({part.begin, low, part.depth + 1});
  push({low, high, part.depth + 1});
  push({high, part.end, part.depth + 1});
}

/// The angle between the two directions is pi - x with lengths * sin(x) = |cross| and lengths * cos(x) = -dot. So x is
/// compared with the tolerance by squares of tangents.
bool ChainStraightener::isOutOfSight(const Vec3& toA, const Vec3& toB) const {
  const double cosine = dot(toA, toB);
  const double across = lengthSq(cross(toA, toB)) * mCosineSq, along = cosine * cosine * mSineSq;
  return mIsBelowRight ? !(cosine <= 0.0 && across <= along) : !(cosine <= 0.0 || across >= along);
}

std::uint32_t ChainStraightener::findCorner(const Part& part) const {
  const Vec3 a = mPoints[part.begin], b = mPoints[part.end];
  Choice choice(mChain);
  for (std::uint32_t i = part.begin + 1; i < part.end; ++i) {
    const Vec3 toA = a - mPoints[i], toB = b - mPoints[i];
    if (isOutOfSight(toA, toB)) choice.offer(i, detour(toA, toB));
  }
  return choice.position();
}

/// Of the vertices in the middle half of AB the farthest from its line.
std::uint32_t ChainStraightener::findInTheMiddle(const Part& part) const {
  const Vec3 a = mPoints[part.begin], b = mPoints[part.end];
  const double reach = lengthSq(b - a) / 2.0;
  Choice choice(mChain);
  for (std::uint32_t i = part.begin + 1; i < part.end; ++i) {
    const Vec3 toA = a - mPoints[i], toB = b - mPoints[i];
    if (std::fabs(lengthSq(toA) - lengthSq(toB)) < reach) choice.offer(i, lengthSq(cross(toA, toB)));
  }
  return choice.position();
}

/// |Am|^2 - |mB|^2 grows by 2 |AB| times the way along AB.
std::pair<std::uint32_t, std::uint32_t> ChainStraightener::findBack(const Part& part) const {
  const Vec3 a = mPoints[part.begin], b = mPoints[part.end];
  double largest = lengthSq(b - a) * mBack, highest = -kInfinity;
  std::uint32_t top = kNone, to = kNone, from = kNone;
  for (std::uint32_t i = part.begin + 1; i < part.end; ++i) {
    const double along = lengthSq(a - mPoints[i]) - lengthSq(b - mPoints[i]);
    if (along > highest) {
      highest = along;
      top = i;
    } else if (highest - along > largest) {
      largest = highest - along;
      to = top;
      from = i;
    }
  }
  return {to, from};
}

void ChainStraightener::findVisits() {
  mVisits.clear();
  for (const FaceCorner& corner : (*mTextured)[mChain[1]]) {
    if ((mMesh.mFaces.mask(corner.face) & kTexCoordMask) == 0) continue;
    const auto corners = mMesh.mFaces.corners(corner.face);
    const auto n = static_cast<std::uint32_t>(corners.size());
    const std::uint32_t before = (corner.position == 0 ? n : corner.position) - 1,
                        after = corner.position + 1 == n ? 0 : corner.position + 1;
    const bool isForward = corners[after] == mChain[2];
    mVisits.push_back({corner.face, isForward ? before : after, isForward});
  }
}

std::uint32_t ChainStraightener::findOffInTexture(const Part& part) const {
  Choice choice(mChain);
  for (const Visit& visit : mVisits)
    for (std::uint32_t bits = mMesh.mFaces.mask(visit.face) & kTexCoordMask; bits != 0; bits &= bits - 1)
      offerOffInTexture(part, visit, std::countr_zero(bits), choice);
  return choice.position();
}

void ChainStraightener::offerOffInTexture(const Part& part, const Visit& visit, int set, Choice& choice) const {
  const TexCoords coords(mMesh, visit.face, set);
  const std::uint32_t n = mMesh.mFaces.cornerCount(visit.face);
  // The chain is no longer than the face; a ring's last vertex is its first.
  const auto cornerAt = [&](std::uint32_t i) {
    const std::uint32_t at = visit.isForward ? visit.position + i : visit.position + n - i;
    return at < n ? at : at - n;
  };
  const Vec2 ofA = coords[cornerAt(part.begin)], ofB = coords[cornerAt(part.end)];
  for (std::uint32_t i = part.begin + 1; i < part.end; ++i) {
    const Place place(mPoints[part.begin] - mPoints[i], mPoints[part.end] - mPoints[i]);
    const double off = place.distanceOff(coords[cornerAt(i)], ofA, ofB);
    if (!(off < kTexCoordTolerance)) choice.offer(i, off);
  }
}

}  // namespace util
