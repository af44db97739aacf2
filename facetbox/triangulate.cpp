#include <facetbox/triangulate.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <span>
#include <stdexcept>
#include <utility>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/PolygonArea.h>
#include <facetbox/mesh/RequireValid.h>
#include <facetbox/mesh/WorkingMesh.h>
#include <facetbox/polygons/Crossings.h>
#include <facetbox/triangles/HoleView.h>
#include <facetbox/triangles/Tessellator.h>

namespace facetbox {
namespace {

using util::Tessellator;
using util::Vec2;
using util::Vec3;
using Reason = SkippedFace::Reason;

/// The tessellator cuts a single contour of so many corners into a fan if it can.
constexpr std::size_t kMostFanCorners = 100;

/// Faces with more pairs of crossing edges are not handed to the tessellator: its time grows with the cube. A few times
/// the number of points that it can make, as several edges may cross in one point.
constexpr std::size_t kMostCrossings = 4 * Tessellator::kMostAddedCorners;

/// Where the area vector is smaller than this part of a triangle in it, its direction is rounding noise: the outline
/// crosses itself and its parts cancel out.
constexpr double kNoise = 1e-10;

constexpr double kLargest = std::numeric_limits<double>::max();

/// Places are about one in size: what is this close is at the same place, but for rounding.
constexpr double kRounding = 1e-15;

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
  explicit MeshTriangulation(const MeshView& mesh);

  Triangulation run();

 private:
  /// A corner of the face under way and of its holes, or an added one.
  struct Corner {
    std::uint32_t vertex, pair;
    Vec3 place;  ///< seen from the face's first corner, which lies at the origin, and about one in size
  };
  struct Marks {
    std::size_t madePoints, madeTexCoords;
  };

  std::span<const std::uint32_t> cornersOf(std::size_t first, std::size_t face) const {
    return mMesh.indices.subspan(first, mMesh.counts[face]);
  }
  void addFace(std::uint32_t face, std::size_t first, std::span<const util::HoleTable::Group> groups);
  bool isFan(std::span<const std::uint32_t> corners, const Vec3& normal) const;
  void addFan(std::uint32_t face, std::size_t first);
  void collectCorners(std::uint32_t face, std::size_t first, std::span<const util::HoleTable::Group> groups);
  void addContour(std::size_t first, std::uint32_t count);
  void normalizePlaces();
  bool findPlane();
  bool crossTooOften();
  void tessellate(std::uint32_t face);

  std::uint32_t addCorner(const Vec3& position, std::span<const Tessellator::Source> sources) override;
  std::uint32_t addMeeting(const Tessellator::Source& a, const Tessellator::Source& b);
  double shareOfSecond(std::span<const Tessellator::Source> edge, std::span<const Tessellator::Source> other) const;
  std::uint32_t addMadePoint(const Vec3& place);
  std::uint32_t addMadePair(const Vec2& pair);
  void reportError(GLenum code) noexcept override { mIsOutOfMemory |= code == GLU_OUT_OF_MEMORY; }

  bool isMade(const Corner& corner) const { return corner.vertex >= mPoints.size(); }
  Vec2 flatPointOf(std::uint32_t number) const;
  Vec2 pairOf(std::uint32_t pair) const;
  void skip(std::uint32_t face, Reason reason) { mResult.skipped.push_back({face, reason}); }

  const MeshView& mMesh;
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
  int mAxis = 0;                                ///< that the face is seen along
  std::vector<Corner> mCorners;                 ///< by number
  std::vector<std::uint32_t> mContourEnds;      ///< numbers
  std::vector<std::uint32_t> mTriangleCorners;  ///< numbers, three per triangle
  std::vector<util::Segment2> mEdges;
};

MeshTriangulation::MeshTriangulation(const MeshView& mesh) : mMesh(mesh), mFrame(util::frameOf(mesh)) {
  util::readVertices(mesh, mFrame, nullptr, mPoints);
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
  std::size_t first = 0;
  for (std::uint32_t face = 0; face < faces; first += mMesh.counts[face++]) {
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
  const bool hasHoles = !groups.empty() && !groups[0].holes.empty();
  const bool hasNormal = util::computeFaceNormal(mPoints, corners, mNormal);
  if (hasNormal && !hasHoles && corners.size() <= kMostFanCorners && isFan(corners, mNormal))
    return addFan(face, first);
  collectCorners(face, first, groups);
  if (!findPlane()) return skip(face, Reason::noArea);
  if (crossTooOften()) return skip(face, Reason::tooManyCrossings);
  tessellate(face);
}

/// Whether all triangles around the first corner turn the way of the normal: what the tessellator looks for first.
bool MeshTriangulation::isFan(std::span<const std::uint32_t> corners, const Vec3& normal) const {
  const Vec3& first = mPoints[corners[0]];
  Vec3 edge = mPoints[corners[1]] - first;
  for (const std::uint32_t vertex : corners.subspan(2)) {
    const Vec3 next = mPoints[vertex] - first;
    const Vec3 areaVector = cross(edge, next);
    const double along = dot(areaVector, normal);
    if (along < 0.0 || along * along < kNoise * kNoise * lengthSq(areaVector)) return false;
    edge = next;
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
  for (Corner& corner : mCorners) {
    corner.place = mPoints[corner.vertex] - first;
    largest = std::max(largest, util::largestMagnitude(corner.place));
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
  if (!(size > 1e-25)) return false;
  mNormal = clear / size;
  mAxis = util::dominantAxis(mNormal);
  return true;
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

void MeshTriangulation::tessellate(std::uint32_t face) {
  const Marks marks{mResult.madePoints.size(), mResult.madeTexCoords.size()};
  mTriangleCorners.clear();
  mTessellator.begin(mCorners.size(), mNormal, mTriangleCorners);
  std::uint32_t begin = 0;
  for (const std::uint32_t end : mContourEnds) {
    mTessellator.addContour(end - begin, [=, this](std::size_t i) {
      const auto number = static_cast<std::uint32_t>(begin + i);
      return std::pair(number, &mCorners[number].place.x);
    });
    begin = end;
  }
  const bool isComplete = mTessellator.end();
  if (mIsOutOfMemory) throw std::bad_alloc();
  if (!isComplete || mTriangleCorners.empty()) {
    mResult.madePoints.resize(marks.madePoints);
    mResult.madeTexCoords.resize(marks.madeTexCoords);
    return skip(face, isComplete ? Reason::nothingInside : Reason::tooManyCrossings);
  }
  const std::size_t first = mResult.triangles.size();
  for (const std::uint32_t number : mTriangleCorners) mResult.triangles.push_back(mCorners[number].vertex);
  dropUnused(mResult.madePoints, marks.madePoints, 3, mMesh.points.size(), std::span(mResult.triangles).subspan(first));
  if (!mMesh.texIndices.empty()) {
    for (const std::uint32_t number : mTriangleCorners) mResult.texIndices.push_back(mCorners[number].pair);
    dropUnused(mResult.madeTexCoords, marks.madeTexCoords, 2, mMesh.texCoords.size(),
               std::span(mResult.texIndices).subspan(first));
  }
  mResult.faces.resize(mResult.triangles.size() / 3, face);
}

std::uint32_t MeshTriangulation::addCorner(const Vec3&, std::span<const Tessellator::Source> sources) {
  if (sources.size() != 4) return addMeeting(sources.front(), sources.back());
  // The tessellator weighs in floats and without regard to where the face stands: interpolated anew.
  const double s = shareOfSecond(sources.first(2), sources.last(2)),
               t = shareOfSecond(sources.last(2), sources.first(2));
  const auto cornerOf = [&](int i) -> const Corner& { return mCorners[sources[i].number]; };
  const auto mean = [&](auto valueOf) {
    return 0.5 * between(valueOf(cornerOf(0)), valueOf(cornerOf(1)), s) +
           0.5 * between(valueOf(cornerOf(2)), valueOf(cornerOf(3)), t);
  };
  const Vec3 place{mean([](const Corner& corner) { return corner.place.x; }),
                   mean([](const Corner& corner) { return corner.place.y; }),
                   mean([](const Corner& corner) { return corner.place.z; })};
  for (const Tessellator::Source& source : sources)
    if (util::largestMagnitude(mCorners[source.number].place - place) < kRounding) return source.number;
  Corner corner{addMadePoint(place), kNone, place};
  if (cornerOf(0).pair != kNone)
    corner.pair = addMadePair({mean([this](const Corner& c) { return pairOf(c.pair).x; }),
                               mean([this](const Corner& c) { return pairOf(c.pair).y; })});
  mCorners.push_back(corner);
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
  if (first.place != second.place) {
    corner.place = 0.5 * first.place + 0.5 * second.place;
    corner.vertex = addMadePoint(corner.place);
  }
  if (!sharePair) {
    const Vec2 p = pairOf(first.pair), q = pairOf(second.pair);
    corner.pair = addMadePair({0.5 * p.x + 0.5 * q.x, 0.5 * p.y + 0.5 * q.y});
  }
  mCorners.push_back(corner);
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

/// A corner as the tessellator sees it; it sweeps along x.
Vec2 MeshTriangulation::flatPointOf(std::uint32_t number) const {
  const Vec3& p = mCorners[number].place;
  return mAxis == 0 ? Vec2{p.y, p.z} : mAxis == 1 ? Vec2{p.z, p.x} : Vec2{p.x, p.y};
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

Triangulation triangulate(const MeshView& mesh) {
  requireValid(mesh);
  return MeshTriangulation(mesh).run();
}

}  // namespace facetbox
