#include <facetbox/triangulate.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <span>
#include <stdexcept>
#include <utility>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/RequireValid.h>
#include <facetbox/mesh/WorkingMesh.h>
#include <facetbox/polygons/Crossings.h>
#include <facetbox/triangles/HoleView.h>
#include <facetbox/triangles/SpaceCut.h>
#include <facetbox/triangles/Tessellator.h>
#include <facetbox/triangles/ThinTriangles.h>

namespace facetbox {
namespace {

using util::Tessellator;
using util::Vec2;
using util::Vec3;
using Reason = SkippedFace::Reason;

/// A single contour of so many corners becomes a fan if it can.
constexpr std::size_t kMostFanCorners = 100;

/// Faces with more pairs of crossing edges are not handed to the tessellator: its time grows with the cube. A few times
/// the number of points that it can make, as several edges may cross in one point.
constexpr std::size_t kMostCrossings = 4 * Tessellator::kMostAddedCorners;

/// Where the area vector is smaller than this part of a triangle in it, its direction is rounding noise: the outline
/// crosses itself and its parts cancel out.
constexpr double kNoise = 1e-10;

/// Area vectors below this length have no direction.
constexpr double kNoArea = 1e-25;

constexpr double kLargest = std::numeric_limits<double>::max();

/// Places are about one in size: what is this close is at the same place, but for rounding.
constexpr double kRounding = 1e-15;

/// What is this close in space is taken to touch: coordinates may have been rounded to floats. A face that leaves its
/// plane by less is flat.
constexpr double kGap = 1e-6;

/// Diagonals whose triangles are alike but for this part are equally good.
constexpr double kTie = 1e-4;

/// A triangle of a fan whose area is a smaller part of its squared edges is looked at again.
constexpr double kThinFan = 1e-8;

/// Faces are looked after by a monitor in units of no more than a microsecond or two: with holes, a corner takes
/// longer.
constexpr std::uint64_t kWorkPerCorner = 8;

/// The power of two that makes a size about one.
double scaleToOne(double size) {
  int exponent = 0;
  std::frexp(size, &exponent);
  return std::ldexp(1.0, std::min(-exponent, 1000));
}

/// The value at `share` of the way from a to b; a where both are alike.
double between(double a, double b, double share) {
  const double value = a + share * (b - a);
  return std::isfinite(value) ? value : std::clamp((1.0 - share) * a + share * b, -kLargest, kLargest);
}

/// Items of `perItem` numbers: first those of the mesh, `given` numbers, then the made ones. Of these, drops what was
/// made from `mark` on and is not used by `indices`.
void dropUnused(std::vector<double>& made, std::size_t mark, std::size_t perItem, std::size_t given,
                std::span<std::uint32_t> indices) {
  if (made.size() == mark) return;
  const std::size_t first = (given + mark) / perItem;
  std::vector<std::uint32_t> newNumbers((made.size() - mark) / perItem, kNone);
  const auto isMade = [=](std::uint32_t index) { return index != kNone && index >= first; };
  for (const std::uint32_t index : indices)
    if (isMade(index)) newNumbers[index - first] = 0;
  std::size_t end = mark;
  for (std::size_t i = 0; i < newNumbers.size(); ++i) {
    if (newNumbers[i] == kNone) continue;
    newNumbers[i] = static_cast<std::uint32_t>((given + end) / perItem);
    for (std::size_t k = 0; k < perItem; ++k) made[end++] = made[mark + i * perItem + k];
  }
  made.resize(end);
  for (std::uint32_t& index : indices)
    if (isMade(index)) index = newNumbers[index - first];
}

class MeshTriangulation final : private Tessellator::Caller {
 public:
  MeshTriangulation(const MeshView& mesh, util::Monitor* monitor);

  Triangulation run();

 private:
  /// A corner of the face under way and of its holes, or an added one.
  struct Corner {
    std::uint32_t vertex, pair;
    Vec3 place;  ///< seen from the face's first corner, which lies at the origin, and about one in size
  };
  enum class Fan { none, thin, plain };                ///< thin: some triangle of it may have no area
  enum class Seen { asInSpace, otherwise, tooOften };  ///< otherwise: what meets as it is seen passes by in space
  struct Marks {
    std::size_t madePoints, madeTexCoords;
  };

  std::span<const std::uint32_t> cornersOf(std::size_t first, std::size_t face) const {
    return mMesh.indices.subspan(first, mMesh.counts[face]);
  }
  void addFace(std::uint32_t face, std::size_t first, std::span<const util::HoleTable::Group> groups);
  bool addQuad(std::uint32_t face, std::size_t first);
  Fan fanOf(std::span<const std::uint32_t> corners) const;
  bool isPlainFan(std::span<const std::uint32_t> corners, const Vec3& areaVector) const;
  void addFan(std::uint32_t face, std::size_t first);
  void collectCorners(std::uint32_t face, std::size_t first, std::span<const util::HoleTable::Group> groups);
  void addContour(std::size_t first, std::uint32_t count);
  void normalizePlaces();
  bool findPlane();
  void lookAlongAxis();
  void lookAlongNormal();
  Vec3 asSeen(const Vec3& place) const { return {dot(mRight, place), dot(mUp, place), 0.0}; }
  bool cutThinFan();
  Seen cut();
  Seen cutAsSeen();
  void cutAlongDiagonals();
  void discard();
  bool fanTurnsBothWays() const;
  bool crossTooOften();
  bool isFlat() const;
  bool keepsOutline() const;
  bool touchesOnlyAsSeen(std::uint32_t from, std::uint32_t to) const;
  std::size_t flipThin();
  void dropWithin(std::span<const std::uint32_t> places);
  void addTriangles(std::uint32_t face);

  std::uint32_t addCorner(const Vec3& position, std::span<const Tessellator::Source> sources) override;
  std::uint32_t addMeeting(const Tessellator::Source& a, const Tessellator::Source& b);
  double shareOfSecond(std::span<const Tessellator::Source> edge, std::span<const Tessellator::Source> other) const;
  std::uint32_t addMadePoint(const Vec3& place);
  std::uint32_t addMadePair(const Vec2& pair);
  void reportError(GLenum code) noexcept override { mIsOutOfMemory |= code == GLU_OUT_OF_MEMORY; }

  bool isMade(const Corner& corner) const { return corner.vertex >= mPoints.size(); }
  Vec3 pointOf(const Corner& corner) const;
  Vec2 flatPointOf(std::uint32_t number) const { return {mSeen[number].x, mSeen[number].y}; }
  Vec2 pairOf(std::uint32_t pair) const;
  void skip(std::uint32_t face, Reason reason) { mResult.skipped.push_back({face, reason}); }

  const MeshView& mMesh;
  util::Monitor* const mMonitor;
  const util::MeshFrame mFrame;
  util::Buffer<Vec3> mPoints;  ///< in the frame
  util::HoleTable mHoles;
  util::Buffer<std::uint32_t> mFirstCorners;  ///< per face; only where there are holes
  Triangulation mResult;
  Tessellator mTessellator{*this};
  bool mIsOutOfMemory = false;

  // Of the face under way.
  Vec3 mNormal{};
  double mPlaceScale = 1.0;                     ///< from the frame to places
  Vec3 mRight{}, mUp{};                         ///< directions in which the face is seen
  Marks mMarks{};                               ///< what faces before it have made
  bool mCrosses = false, mPasses = false;       ///< whether edges or corners meet in space, and as seen only
  std::vector<Corner> mCorners;                 ///< by number
  std::vector<Vec3> mSeen;                      ///< by number: to the right, up, 0
  std::vector<std::uint32_t> mContourEnds;      ///< numbers
  std::vector<std::uint32_t> mTriangleCorners;  ///< numbers, three per triangle
  std::vector<util::Segment2> mEdges;
  std::vector<Vec3> mPositions;
  util::EqualPlaces mEqualPlaces;
  util::ThinTriangles mThinTriangles;
};

MeshTriangulation::MeshTriangulation(const MeshView& mesh, util::Monitor* monitor)
    : mMesh(mesh), mMonitor(monitor), mFrame([&] {
        const util::Monitor::Part part(monitor, 0.0, 0.05);
        return util::frameOf(mesh, monitor);
      }()) {
  const util::Monitor::Part part(monitor, 0.05, 0.1);
  util::readVertices(mesh, mFrame, monitor, mPoints);
  if (mesh.holes.empty()) return;
  mHoles.append(mesh.holes.data(), mesh.holes.size());
  mFirstCorners.resize(mesh.counts.size());
  std::uint32_t first = 0;
  for (std::size_t face = 0; face < mesh.counts.size(); first += mesh.counts[face++]) mFirstCorners[face] = first;
}

Triangulation MeshTriangulation::run() {
  const std::size_t faces = mMesh.counts.size(), corners = mMesh.indices.size();
  const std::size_t expected = corners - std::min(corners, 2 * faces);
  mResult.triangles.reserve(3 * expected);
  mResult.faces.reserve(expected);
  if (!mMesh.texIndices.empty()) mResult.texIndices.reserve(3 * expected);

  util::HoleView holes(mHoles, faces);
  const util::Monitor::Part part(mMonitor, 0.1, 1.0, kWorkPerCorner * corners);
  std::size_t first = 0;
  for (std::uint32_t face = 0; face < faces; first += mMesh.counts[face++]) {
    if (mMonitor) mMonitor->tick(kWorkPerCorner * mMesh.counts[face]);
    const auto groups = holes.groupsOf(face);
    if (mMesh.counts[face] < 3)
      skip(face, Reason::tooFewCorners);
    else if (!holes.isHole(face))
      addFace(face, first, groups);
  }
  return std::move(mResult);
}

void MeshTriangulation::addFace(std::uint32_t face, std::size_t first, std::span<const util::HoleTable::Group> groups) {
  const auto corners = cornersOf(first, face);
  Fan fan = Fan::none;
  if (groups.empty() || groups[0].holes.empty()) {
    if (corners.size() == 4 && addQuad(face, first)) return;
    if (corners.size() <= kMostFanCorners) fan = fanOf(corners);
    if (fan == Fan::plain) return addFan(face, first);
  }
  mMarks = {mResult.madePoints.size(), mResult.madeTexCoords.size()};
  collectCorners(face, first, groups);
  if (!findPlane()) return skip(face, Reason::noArea);
  if (fan != Fan::thin || !cutThinFan()) {
    const bool isTooOften = cut() == Seen::tooOften;
    if (mTriangleCorners.empty()) discard();
    if (mTriangleCorners.empty()) return skip(face, isTooOften ? Reason::tooManyCrossings : Reason::nothingInside);
  }
  addTriangles(face);
}

/// Cuts a quad along its better diagonal: that of the larger smallest triangle, by the area that faces the quad's area
/// vector over the squared lengths of the edges. A triangle that is turned over is below zero, which a diagonal outside
/// of the quad always makes. Of equal ones, the diagonal of the lowest vertex. False where no diagonal is good.
bool MeshTriangulation::addQuad(std::uint32_t face, std::size_t first) {
  const std::uint32_t* const v = &mMesh.indices[first];
  const Vec3 &a = mPoints[v[0]], &b = mPoints[v[1]], &c = mPoints[v[2]], &d = mPoints[v[3]];
  const Vec3 ab = b - a, ac = c - a, ad = d - a, bc = c - b, bd = d - b, cd = d - c;
  const Vec3 abc = cross(ab, ac), acd = cross(ac, ad), abd = cross(ab, ad), bcd = cross(bc, bd), sum = abc + acd;
  const double ab2 = lengthSq(ab), ac2 = lengthSq(ac), ad2 = lengthSq(ad), bc2 = lengthSq(bc), bd2 = lengthSq(bd),
               cd2 = lengthSq(cd);
  const double alongAc = std::min(dot(abc, sum) / (ab2 + bc2 + ac2), dot(acd, sum) / (ac2 + cd2 + ad2));
  const double alongBd = std::min(dot(abd, sum) / (ab2 + bd2 + ad2), dot(bcd, sum) / (bc2 + cd2 + bd2));
  const double best = std::max(alongAc, alongBd);
  // NaN, of edges without length, ends here as well.
  if (!(alongAc == alongAc && best > 0.0 && best * best > util::kThinShape * lengthSq(sum))) return false;
  const bool isTie = std::fabs(alongAc - alongBd) <= kTie * best;
  const std::size_t k = (isTie ? std::min(v[0], v[2]) > std::min(v[1], v[3]) : alongBd > alongAc) ? 1 : 0;
  const auto add = [k](std::vector<std::uint32_t>& to, const std::uint32_t* of) {
    const std::size_t size = to.size();
    to.resize(size + 6);
    std::uint32_t* const out = to.data() + size;
    out[0] = of[0];
    out[1] = of[1];
    out[2] = of[2 + k];
    out[3] = of[k];
    out[4] = of[2];
    out[5] = of[3];
  };
  add(mResult.triangles, v);
  if (!mMesh.texIndices.empty()) add(mResult.texIndices, &mMesh.texIndices[first]);
  mResult.faces.resize(mResult.faces.size() + 2, face);
  return true;
}

/// Whether all triangles around the first corner turn the way of the face's area vector, and go around the corner less
/// than once.
MeshTriangulation::Fan MeshTriangulation::fanOf(std::span<const std::uint32_t> corners) const {
  const Vec3& first = mPoints[corners[0]];
  const auto edgeTo = [&](std::size_t i) { return mPoints[corners[i]] - first; };
  Vec3 sum{}, edge = edgeTo(1);
  for (std::size_t i = 2; i < corners.size(); ++i) {
    const Vec3 next = edgeTo(i);
    sum = sum + cross(edge, next);
    edge = next;
  }
  if (!(lengthSq(sum) > kNoArea * kNoArea)) return Fan::none;
  if (corners.size() == 3 || isPlainFan(corners, sum)) return Fan::plain;

  const Vec3 left = cross(sum, edgeTo(1));
  const double thin = kThinFan * length(sum);
  bool isBehind = false;
  for (std::size_t i = 2; i < corners.size(); ++i) {
    const Vec3 areaVector = cross(edgeTo(i - 1), edgeTo(i));
    const double along = dot(areaVector, sum), towards = dot(left, edgeTo(i));
    if (along < 0.0 || along * along < kNoise * kNoise * lengthSq(areaVector) * lengthSq(sum)) return Fan::none;
    if (isBehind && towards > 0.0) return Fan::none;
    // An edge through the first corner: which way around it?
    if (!(dot(edgeTo(i - 1), edgeTo(i)) > 0.0) && !(along > thin * (lengthSq(edgeTo(i - 1)) + lengthSq(edgeTo(i)))))
      return Fan::none;
    isBehind = isBehind || towards < 0.0;
  }
  return Fan::thin;
}

/// Whether a fan turns by less than half around its first corner, and none of its triangles is thin.
bool MeshTriangulation::isPlainFan(std::span<const std::uint32_t> corners, const Vec3& areaVector) const {
  const Vec3& first = mPoints[corners[0]];
  Vec3 edge = mPoints[corners[1]] - first;
  const Vec3 left = cross(areaVector, edge);
  const double thin = kThinFan * length(areaVector);
  double size = lengthSq(edge);
  for (std::size_t i = 2; i < corners.size(); ++i) {
    const Vec3 next = mPoints[corners[i]] - first;
    const double nextSize = lengthSq(next);
    if (!(dot(cross(edge, next), areaVector) > thin * (size + nextSize) && dot(left, next) > 0.0)) return false;
    edge = next;
    size = nextSize;
  }
  return true;
}

void MeshTriangulation::addFan(std::uint32_t face, std::size_t first) {
  const std::uint32_t count = mMesh.counts[face];
  const auto add = [=](std::vector<std::uint32_t>& to, std::span<const std::uint32_t> values) {
    const std::size_t size = to.size();
    to.resize(size + 3 * (count - 2));
    std::uint32_t* out = to.data() + size;
    for (std::uint32_t i = 2; i < count; ++i) {
      *out++ = values[0];
      *out++ = values[i - 1];
      *out++ = values[i];
    }
  };
  add(mResult.triangles, mMesh.indices.subspan(first, count));
  if (!mMesh.texIndices.empty()) add(mResult.texIndices, mMesh.texIndices.subspan(first, count));
  mResult.faces.resize(mResult.faces.size() + count - 2, face);
}

void MeshTriangulation::collectCorners(std::uint32_t face, std::size_t first,
                                       std::span<const util::HoleTable::Group> groups) {
  mCorners.clear();
  mContourEnds.clear();
  addContour(first, mMesh.counts[face]);
  for (const util::HoleTable::Group& group : groups)
    for (const std::uint32_t hole : group.holes)
      if (mMesh.counts[hole] >= 3) addContour(mFirstCorners[hole], mMesh.counts[hole]);
  // Half of a texture is none.
  if (std::ranges::any_of(mCorners, [](const Corner& corner) { return corner.pair == kNone; }))
    for (Corner& corner : mCorners) corner.pair = kNone;
  normalizePlaces();
}

void MeshTriangulation::addContour(std::size_t first, std::uint32_t count) {
  for (std::size_t i = first; i < first + count; ++i)
    mCorners.push_back({mMesh.indices[i], mMesh.texIndices.empty() ? kNone : mMesh.texIndices[i], {}});
  mContourEnds.push_back(static_cast<std::uint32_t>(mCorners.size()));
}

/// What the tessellator computes depends on the size of coordinates: places do not depend on where the face lies.
void MeshTriangulation::normalizePlaces() {
  const Vec3& first = mPoints[mCorners[0].vertex];
  double largest = 0.0;
  for (std::size_t i = 0; i < mCorners.size(); ++i) {
    Vec3& place = mCorners[i].place;
    place = mPoints[mCorners[i].vertex] - first;
    if (i < mContourEnds[0]) largest = std::max(largest, util::largestMagnitude(place));
  }
  mPlaceScale = scaleToOne(largest);
  for (Corner& corner : mCorners) corner.place = mPlaceScale * corner.place;
}

/// The direction that the face is seen along: its normal or, where its parts cancel out, that of the largest triangle
/// of the fan around the first corner. False where the face has no area.
bool MeshTriangulation::findPlane() {
  Vec3 sum{}, largest{};
  for (std::size_t i = 1; i + 1 < mContourEnds[0]; ++i) {
    const Vec3 areaVector = cross(mCorners[i].place, mCorners[i + 1].place);
    sum = sum + areaVector;
    if (lengthSq(areaVector) > lengthSq(largest)) largest = areaVector;
  }
  const Vec3& clear = length(sum) > kNoise * length(largest) ? sum : largest;
  const double size = length(clear);
  if (!(size > kNoArea)) return false;
  mNormal = clear / size;
  lookAlongAxis();
  return true;
}

/// The coordinates as they are.
void MeshTriangulation::lookAlongAxis() {
  mRight = mUp = {};
  switch (util::dominantAxis(mNormal)) {
    case 0:
      mRight.y = 1.0;
      mUp.z = mNormal.x > 0.0 ? 1.0 : -1.0;
      break;
    case 1:
      mRight.z = 1.0;
      mUp.x = mNormal.y > 0.0 ? 1.0 : -1.0;
      break;
    default:
      mRight.x = 1.0;
      mUp.y = mNormal.z > 0.0 ? 1.0 : -1.0;
  }
}

void MeshTriangulation::lookAlongNormal() {
  mRight = cross(mUp, mNormal);
  mRight = mRight / length(mRight);
  mUp = cross(mNormal, mRight);
}

/// Cuts a fan with triangles without area into others. False where such are left.
bool MeshTriangulation::cutThinFan() {
  const auto count = static_cast<std::uint32_t>(mCorners.size());
  mSeen.clear();
  for (const Corner& corner : mCorners) mSeen.push_back(asSeen(corner.place));
  mTriangleCorners.clear();
  for (std::uint32_t i = 2; i < count; ++i) mTriangleCorners.insert(mTriangleCorners.end(), {0, i - 1, i});
  return flipThin() == 0;
}

/// Cuts the face as it is seen along the axis. Where that differs from what is in space: as it is seen along the normal
/// or, if that does not help either, along diagonals, whatever they look like.
MeshTriangulation::Seen MeshTriangulation::cut() {
  const bool flat = isFlat();
  const auto look = [&] {
    Seen seen = cutAsSeen();
    if (seen == Seen::asInSpace && !flat && !mCrosses && (mPasses || mTriangleCorners.empty() || !keepsOutline()))
      seen = Seen::otherwise;
    return seen;
  };
  Seen seen = look();
  if (seen == Seen::asInSpace || flat || mCrosses) {
    flipThin();
    return seen;
  }
  lookAlongNormal();
  const Seen alongNormal = look();
  if (alongNormal != Seen::asInSpace && mContourEnds.size() == 1) {
    cutAlongDiagonals();
    return Seen::asInSpace;
  }
  if (alongNormal != Seen::asInSpace) {
    lookAlongAxis();
    seen = cutAsSeen();
  } else {
    seen = alongNormal;
  }
  flipThin();
  return seen;
}

/// Removes what was made of the face.
void MeshTriangulation::discard() {
  mCorners.resize(mContourEnds.back());
  mResult.madePoints.resize(mMarks.madePoints);
  mResult.madeTexCoords.resize(mMarks.madeTexCoords);
  mTriangleCorners.clear();
  mCrosses = mPasses = false;
}

MeshTriangulation::Seen MeshTriangulation::cutAsSeen() {
  discard();
  mSeen.clear();
  for (const Corner& corner : mCorners) mSeen.push_back(asSeen(corner.place));
  if (crossTooOften()) return Seen::tooOften;
  mTessellator.begin(mCorners.size() + 1, {0.0, 0.0, 1.0}, mTriangleCorners);
  const auto add = [this](std::uint32_t begin, std::uint32_t end) {
    mTessellator.addContour(end - begin, [=, this](std::size_t i) {
      const auto number = static_cast<std::uint32_t>(begin + i);
      return std::pair(number, &mSeen[number].x);
    });
  };
  std::uint32_t begin = 0;
  for (const std::uint32_t end : mContourEnds) {
    add(begin, end);
    begin = end;
  }
  // A contour of one corner changes nothing, but of a single one the tessellator makes a fan if all of it turns one
  // way, even if it goes around twice.
  if (mContourEnds.size() == 1 && !fanTurnsBothWays()) add(0, 1);
  const bool isComplete = mTessellator.end();
  if (mIsOutOfMemory) throw std::bad_alloc();
  if (isComplete) return Seen::asInSpace;
  const bool crosses = mCrosses;
  discard();
  mCrosses = crosses;
  return Seen::tooOften;
}

bool MeshTriangulation::fanTurnsBothWays() const {
  bool left = false, right = false;
  const Vec2 first = flatPointOf(0);
  for (std::uint32_t i = 2; i < mSeen.size() && !(left && right); ++i) {
    const Vec2 a = flatPointOf(i - 1), b = flatPointOf(i);
    const double turn = (a.x - first.x) * (b.y - first.y) - (a.y - first.y) * (b.x - first.x);
    left |= turn > 0.0;
    right |= turn < 0.0;
  }
  return left && right;
}

bool MeshTriangulation::crossTooOften() {
  const std::size_t n = mCorners.size();
  if (n * (n - 1) / 2 <= kMostCrossings) return false;
  mEdges.clear();
  std::uint32_t begin = 0;
  for (const std::uint32_t end : mContourEnds) {
    for (std::uint32_t i = begin; i < end; ++i)
      mEdges.push_back({flatPointOf(i), flatPointOf(i + 1 < end ? i + 1 : begin)});
    begin = end;
  }
  return util::crossMoreOftenThan(kMostCrossings, mEdges);
}

bool MeshTriangulation::isFlat() const {
  double lowest = 0.0, highest = 0.0;
  for (const Corner& corner : mCorners) {
    const double height = dot(mNormal, corner.place);
    lowest = std::min(lowest, height);
    highest = std::max(highest, height);
  }
  return highest - lowest <= kGap;
}

/// Whether every edge of the contours is that of a triangle, unless corners lie on it in space.
bool MeshTriangulation::keepsOutline() const {
  std::vector<std::uint32_t> next(mContourEnds.back());
  std::uint32_t begin = 0;
  for (const std::uint32_t end : mContourEnds) {
    for (std::uint32_t i = begin; i < end; ++i) next[i] = i + 1 < end ? i + 1 : begin;
    begin = end;
  }
  std::vector<bool> isKept(next.size());
  for (std::size_t i = 0; i < mTriangleCorners.size(); ++i) {
    const std::uint32_t a = mTriangleCorners[i], b = mTriangleCorners[i % 3 == 2 ? i - 2 : i + 1];
    if (a < next.size() && next[a] == b) isKept[a] = true;
    if (b < next.size() && next[b] == a) isKept[b] = true;
  }
  for (std::uint32_t i = 0; i < next.size(); ++i)
    if (!isKept[i] && touchesOnlyAsSeen(i, next[i])) return false;
  return true;
}

/// Whether a corner lies on an edge as it is seen, but not in space.
bool MeshTriangulation::touchesOnlyAsSeen(std::uint32_t from, std::uint32_t to) const {
  const Vec3 edge = mSeen[to] - mSeen[from];
  const double size = lengthSq(edge);
  for (std::uint32_t i = 0; i < mContourEnds.back(); ++i) {
    const Vec3 seen = mSeen[i] - mSeen[from];
    const double share = dot(seen, edge) / size;
    if (!(share > 0.0 && share < 1.0) || length(seen - share * edge) > 1e-9) continue;
    const Vec3 place = mCorners[from].place + share * (mCorners[to].place - mCorners[from].place);
    if (util::largestMagnitude(mCorners[i].place - place) > kGap) return true;
  }
  return false;
}

void MeshTriangulation::cutAlongDiagonals() {
  discard();
  mPositions.clear();
  for (const Corner& corner : mCorners) mPositions.push_back(corner.place);
  util::cutInSpace(mPositions, mTriangleCorners);
  dropWithin(mEqualPlaces.find(mPositions));
}

/// Drops triangles between two corners at one place, and makes thin ones better. Returns how many without area are
/// left.
std::size_t MeshTriangulation::flipThin() {
  // Places are rounded: what is small among them needs a closer look.
  const auto mayBeThin = [this](std::size_t i) {
    const Vec2 a = flatPointOf(mTriangleCorners[i]), b = flatPointOf(mTriangleCorners[i + 1]),
               c = flatPointOf(mTriangleCorners[i + 2]);
    const Vec2 ab{b.x - a.x, b.y - a.y}, ac{c.x - a.x, c.y - a.y};
    const double area = ab.x * ac.y - ab.y * ac.x, edges = ab.x * ab.x + ab.y * ab.y + ac.x * ac.x + ac.y * ac.y;
    return !(area * area > edges * (1e-28 + 1e-12 * edges));
  };
  bool any = false;
  for (std::size_t i = 0; i < mTriangleCorners.size() && !any; i += 3) any = mayBeThin(i);
  if (!any) return 0;
  mPositions.clear();
  for (const Corner& corner : mCorners) mPositions.push_back(pointOf(corner));
  const std::span<const std::uint32_t> places = mEqualPlaces.find(mPositions);
  dropWithin(places);
  return mThinTriangles.flip({mPositions, mSeen, places, mTriangleCorners});
}

/// Drops triangles that have two corners at one place.
void MeshTriangulation::dropWithin(std::span<const std::uint32_t> places) {
  std::size_t end = 0;
  for (std::size_t i = 0; i < mTriangleCorners.size(); i += 3) {
    const auto at = [&](std::size_t k) { return places[mTriangleCorners[i + k]]; };
    if (at(0) == at(1) || at(1) == at(2) || at(2) == at(0)) continue;
    for (std::size_t k = 0; k < 3; ++k) mTriangleCorners[end++] = mTriangleCorners[i + k];
  }
  mTriangleCorners.resize(end);
}

void MeshTriangulation::addTriangles(std::uint32_t face) {
  const std::size_t first = mResult.triangles.size();
  for (const std::uint32_t number : mTriangleCorners) mResult.triangles.push_back(mCorners[number].vertex);
  dropUnused(mResult.madePoints, mMarks.madePoints, 3, mMesh.points.size(),
             std::span(mResult.triangles).subspan(first));
  if (!mMesh.texIndices.empty()) {
    for (const std::uint32_t number : mTriangleCorners) mResult.texIndices.push_back(mCorners[number].pair);
    dropUnused(mResult.madeTexCoords, mMarks.madeTexCoords, 2, mMesh.texCoords.size(),
               std::span(mResult.texIndices).subspan(first));
  }
  mResult.faces.resize(mResult.triangles.size() / 3, face);
}

/// Where a corner is, but for the scale: differences are those of the mesh's points, rounded once. Where points are
/// made, they are rounded as places, wherever the face lies.
Vec3 MeshTriangulation::pointOf(const Corner& corner) const {
  return mCorners.size() > mContourEnds.back() ? corner.place : mPlaceScale * mPoints[corner.vertex];
}

std::uint32_t MeshTriangulation::addCorner(const Vec3&, std::span<const Tessellator::Source> sources) {
  if (sources.size() != 4) return addMeeting(sources.front(), sources.back());
  // The tessellator weighs in floats and without regard to where the face stands: interpolated anew.
  const double s = shareOfSecond(sources.first(2), sources.last(2)),
               t = shareOfSecond(sources.last(2), sources.first(2));
  const auto cornerOf = [&](int i) -> const Corner& { return mCorners[sources[i].number]; };
  const auto onFirst = [&](auto valueOf) { return between(valueOf(cornerOf(0)), valueOf(cornerOf(1)), s); };
  const auto onSecond = [&](auto valueOf) { return between(valueOf(cornerOf(2)), valueOf(cornerOf(3)), t); };
  const auto mean = [&](auto valueOf) { return 0.5 * onFirst(valueOf) + 0.5 * onSecond(valueOf); };
  const auto placeBy = [](auto valueBy) {
    return Vec3{valueBy([](const Corner& corner) { return corner.place.x; }),
                valueBy([](const Corner& corner) { return corner.place.y; }),
                valueBy([](const Corner& corner) { return corner.place.z; })};
  };
  const Vec3 place = placeBy(mean);
  for (const Tessellator::Source& source : sources)
    if (util::largestMagnitude(mCorners[source.number].place - place) < kRounding) return source.number;
  (util::largestMagnitude(placeBy(onFirst) - placeBy(onSecond)) > kGap ? mPasses : mCrosses) = true;
  Corner corner{addMadePoint(place), kNone, place};
  if (cornerOf(0).pair != kNone)
    corner.pair = addMadePair({mean([this](const Corner& c) { return pairOf(c.pair).x; }),
                               mean([this](const Corner& c) { return pairOf(c.pair).y; })});
  mCorners.push_back(corner);
  mSeen.push_back(asSeen(place));
  return static_cast<std::uint32_t>(mCorners.size() - 1);
}

/// Two corners that coincide, seen along the axis.
std::uint32_t MeshTriangulation::addMeeting(const Tessellator::Source& a, const Tessellator::Source& b) {
  const Corner first = mCorners[a.number], second = mCorners[b.number];
  // Of a made point and a vertex, the vertex; a made point is where it is but for rounding.
  if (isMade(second)) return a.number;
  if (isMade(first)) return b.number;
  const bool sharePair = first.pair == second.pair || pairOf(first.pair) == pairOf(second.pair);
  if (first.place == second.place && sharePair) return a.number;
  Corner corner = first;
  mPasses = mPasses || util::largestMagnitude(first.place - second.place) > kGap;
  if (first.place != second.place) {
    corner.place = 0.5 * first.place + 0.5 * second.place;
    corner.vertex = addMadePoint(corner.place);
  }
  if (!sharePair) {
    const Vec2 p = pairOf(first.pair), q = pairOf(second.pair);
    corner.pair = addMadePair({0.5 * p.x + 0.5 * q.x, 0.5 * p.y + 0.5 * q.y});
  }
  mCorners.push_back(corner);
  mSeen.push_back(asSeen(corner.place));
  return static_cast<std::uint32_t>(mCorners.size() - 1);
}

/// Where on an edge another one crosses it: 0 at its first end, 1 at its second.
double MeshTriangulation::shareOfSecond(std::span<const Tessellator::Source> edge,
                                        std::span<const Tessellator::Source> other) const {
  const Vec2 a = flatPointOf(edge[0].number), b = flatPointOf(edge[1].number), c = flatPointOf(other[0].number),
             d = flatPointOf(other[1].number);
  const double first = edge[0].weight, second = edge[1].weight;
  const double given = first + second > 0 ? second / (first + second) : 0.5;
  const double share =
      ((c.x - a.x) * (d.y - c.y) - (c.y - a.y) * (d.x - c.x)) / ((b.x - a.x) * (d.y - c.y) - (b.y - a.y) * (d.x - c.x));
  // Edges that run almost alike, or meet at an end, may have been moved by the tessellator. NaN ends here as well.
  return std::fabs(share - given) < 1e-6 && share >= 0.0 && share <= 1.0 ? share : given;
}

std::uint32_t MeshTriangulation::addMadePoint(const Vec3& place) {
  const std::size_t vertex = mPoints.size() + mResult.madePoints.size() / 3;
  if (vertex >= kNone) throw std::length_error("a triangulation needs 2^32 - 1 points or more");
  const Vec3 point = mFrame.fromFrame(mPoints[mCorners[0].vertex] + place / mPlaceScale);
  for (const double x : {point.x, point.y, point.z}) mResult.madePoints.push_back(std::clamp(x, -kLargest, kLargest));
  return static_cast<std::uint32_t>(vertex);
}

std::uint32_t MeshTriangulation::addMadePair(const Vec2& pair) {
  const std::size_t number = (mMesh.texCoords.size() + mResult.madeTexCoords.size()) / 2;
  if (number >= kNone) throw std::length_error("a triangulation needs 2^32 - 1 texture coordinates or more");
  mResult.madeTexCoords.insert(mResult.madeTexCoords.end(), {pair.x, pair.y});
  return static_cast<std::uint32_t>(number);
}

Vec2 MeshTriangulation::pairOf(std::uint32_t pair) const {
  const std::size_t first = 2 * std::size_t{pair}, given = mMesh.texCoords.size();
  const double* const values = first < given ? &mMesh.texCoords[first] : &mResult.madeTexCoords[first - given];
  return {values[0], values[1]};
}

}  // namespace

std::string describe(const SkippedFace& skipped) {
  const std::string begin = "Face " + std::to_string(skipped.face) + " has no triangles: ";
  switch (skipped.reason) {
    case Reason::tooFewCorners:
      return begin + "it has fewer than three corners.";
    case Reason::noArea:
      return begin + "its corners lie on one line.";
    case Reason::nothingInside:
      return begin + "its outline and its holes leave nothing.";
    case Reason::tooManyCrossings:
      return begin + "its outline and its holes cross in more than " + std::to_string(Tessellator::kMostAddedCorners) +
             " points.";
  }
  return begin + "unknown reason.";
}

Triangulation triangulate(const MeshView& mesh, const TriangulateOptions& options) {
  requireValid(mesh);
  util::Monitor monitor([&options](double fraction) {
    if (options.isCancelled && options.isCancelled()) throw Cancelled();
    if (options.progress) options.progress(fraction);
  });
  monitor.start();
  Triangulation result = MeshTriangulation(mesh, options.isCancelled || options.progress ? &monitor : nullptr).run();
  monitor.finish();
  return result;
}

}  // namespace facetbox
