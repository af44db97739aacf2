#include <facetbox/mesh/HolePlacement.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>
#include <vector>

// What makes the tests cheap: the edges of a polygon form one closed line. Where it touches no edge of another polygon,
// all corners of the other are inside or none is, so one corner decides. That needs at least three corners in both
// (with fewer, edges do not count), finite corners (an edge with another touches nothing), and one axis of projection.

namespace util {
namespace {

/// Half the size of the box in which close corners are sought, in gaps: more than their distance, whatever rounding
/// adds.
constexpr double kReachInGaps = 1.25;

/// Faces of that many corners stay projected until the next outer face.
constexpr std::size_t kLargeFace = 256;

/// From this many corners and this many looks at all of them on, an index over an outer face's corners pays: building
/// it costs as much as some 150 looks (measured).
constexpr std::size_t kIndexedOuter = 101;
constexpr std::size_t kPlainQueries = 128;

/// All points that project into a box of the plane.
Box columnOf(const Box2& box, int axis) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const auto unprojected = [axis](Vec2 p, double along) {
    if (axis == 0) return Vec3{along, p.y, p.x};
    if (axis == 1) return Vec3{p.x, along, p.y};
    return Vec3{p.x, p.y, along};
  };
  return {unprojected(box.min, -kInfinity), unprojected(box.max, kInfinity)};
}

}  // namespace

void HolePlacement::setOuter(std::uint32_t outer, Search search) {
  fill(mOuter, outer, axisOf(outer));
  Box box;
  if (mMesh.mLimits.mIsHoleGapRelative)
    for (const std::uint32_t v : mMesh.mFaces.corners(outer)) box.extend(mMesh.mVertices[v]);
  mGapSq = mMesh.mLimits.holeGapSq(lengthSq(box.max - box.min));
  mSearch = search;
  mPlainQueries = 0;
  mIsIndexed = false;
  if (!mLarge.empty()) mLarge.clear();  // which costs its largest size ever
}

void HolePlacement::fill(Projection& projection, std::uint32_t face, int axis) {
  const auto corners = mMesh.mFaces.corners(face);
  mScratch.resize(corners.size());
  std::ranges::transform(corners, mScratch.begin(), [&](std::uint32_t v) { return projected(v, axis); });
  projection.face = face;
  projection.axis = axis;
  projection.isFinite = std::ranges::all_of(mScratch, [](Vec2 p) { return util::isFinite(p); });
  projection.polygon.assign(mScratch);
  projection.polygon.setMonitor(mMesh.mMonitor.get());
}

/// The reference is valid until four other projections have been asked for.
const HolePlacement::Projection& HolePlacement::projectionOf(std::uint32_t face, int axis) {
  if (mMesh.mFaces.cornerCount(face) >= kLargeFace) {
    const auto [large, isNew] = mLarge.try_emplace(std::uint64_t{4} * face + static_cast<unsigned>(axis));
    if (isNew) fill(large->second, face, axis);
    return large->second;
  }
  const auto known =
      std::ranges::find_if(mSmall, [&](const Projection& p) { return p.face == face && p.axis == axis; });
  Projection& small = known != mSmall.end() ? *known : *std::ranges::min_element(mSmall, {}, &Projection::lastUse);
  if (known == mSmall.end()) fill(small, face, axis);
  small.lastUse = ++mUses;
  return small;
}

bool HolePlacement::isInside(std::uint32_t hole) {
  const Projection& seen = projectionOf(hole, mOuter.axis);
  assert(!mMesh.mFaces.isCleared(hole));
  if (!mOuter.hasInterior()) return false;
  // A non-finite corner is outside. Otherwise the hole has fewer than three corners: it contains nothing, and its edges
  // do not count.
  if (!seen.hasInterior()) return mOuter.polygon.containsAllStrictly(seen.polygon.corners());

  if (!mOuter.polygon.containsStrictly(seen.corner()) || mOuter.polygon.anyEdgeTouches(seen.polygon)) return false;
  const int axis = axisOf(hole);
  if (axis == mOuter.axis) return !seen.polygon.containsStrictly(mOuter.corner());
  return !anyOuterCornerInside(projectionOf(hole, axis));
}

facetbox::DroppedHole::Reason HolePlacement::whyNotInside(std::uint32_t hole) {
  using Reason = facetbox::DroppedHole::Reason;
  const PlanarPolygon& seen = projectionOf(hole, mOuter.axis).polygon;
  bool anyIn = false, anyOut = false;
  for (const Vec2 corner : seen.corners()) {
    if (mOuter.polygon.containsStrictly(corner))
      anyIn = true;
    else if (!mOuter.polygon.anyEdgeTouches(corner, corner))
      anyOut = true;
    if (anyIn && anyOut) return Reason::crosses;
  }
  if (mOuter.polygon.anyEdgeCrosses(seen)) return Reason::crosses;
  if (anyOut) return Reason::outside;
  const bool touches = mOuter.polygon.anyEdgeTouches(seen);
  // Of all corners of the outer face, one inside the hole means that some of the hole lies beyond the outline, or, seen
  // along another axis, that it lies around it.
  if (!anyOuterCornerInside(projectionOf(hole, axisOf(hole)))) return Reason::touches;
  return touches ? Reason::crosses : Reason::outside;
}

bool HolePlacement::sharesVertex(std::uint32_t hole) {
  const auto holeCorners = mMesh.mFaces.corners(hole);
  const auto isNearOuter = [&](std::uint32_t v) {
    const Vec3& p = mMesh.mVertices[v];
    return std::ranges::any_of(mMesh.mFaces.corners(mOuter.face),
                               [&](std::uint32_t w) { return areClose(mMesh.mVertices[w], p); });
  };
  if (!usesCornerIndex(holeCorners.size())) return std::ranges::any_of(holeCorners, isNearOuter);

  const double reachAlong = kReachInGaps * std::sqrt(mGapSq);
  const Vec3 reach{reachAlong, reachAlong, reachAlong};
  return std::ranges::any_of(holeCorners, [&](std::uint32_t v) {
    const Vec3& p = mMesh.mVertices[v];
    return isFinite(p) && mCornerIndex.any({p - reach, p + reach},
                                           [&](CornerNumber corner) { return areClose(outerCorner(corner), p); });
  });
}

bool HolePlacement::overlap(std::uint32_t earlier, std::uint32_t later) {
  if (mMesh.mFaces.isCleared(earlier) || mMesh.mFaces.isCleared(later)) return false;
  const int axis = axisOf(earlier), laterAxis = axisOf(later);
  const Projection& a = projectionOf(earlier, axis);
  const Projection& b = projectionOf(later, axis);
  const bool haveEdges = a.polygon.corners().size() >= 3 && b.polygon.corners().size() >= 3;
  if (haveEdges && a.polygon.anyEdgeTouches(b.polygon)) return true;
  if (axis == laterAxis && a.hasInterior() && b.hasInterior())
    return a.polygon.containsStrictly(b.corner()) || b.polygon.containsStrictly(a.corner());
  return a.polygon.containsAnyStrictly(b.polygon.corners()) || anyCornerInside(earlier, projectionOf(later, laterAxis));
}

bool HolePlacement::anyCornerInside(std::uint32_t face, const Projection& polygon) const {
  return std::ranges::any_of(mMesh.mFaces.corners(face), [&](std::uint32_t v) {
    return polygon.polygon.containsStrictly(projected(v, polygon.axis));
  });
}

bool HolePlacement::anyOuterCornerInside(const Projection& polygon) {
  if (!usesCornerIndex(1)) return anyCornerInside(mOuter.face, polygon);
  return mCornerIndex.any(columnOf(polygon.polygon.box(), polygon.axis), [&](CornerNumber corner) {
    return polygon.polygon.containsStrictly(project(outerCorner(corner), polygon.axis));
  });
}

/// Whether the next `queries` searches for corners of the outer face shall use the index, which is built when it begins
/// to pay.
bool HolePlacement::usesCornerIndex(std::size_t queries) {
  const auto corners = mMesh.mFaces.corners(mOuter.face);
  if (mIsIndexed || mSearch == Search::plain || corners.size() < kIndexedOuter) return mIsIndexed;
  mPlainQueries += queries;
  if (mPlainQueries <= kPlainQueries) return false;
  std::vector<Box> boxes(corners.size());
  for (std::size_t i = 0; i < corners.size(); ++i) boxes[i].extend(mMesh.mVertices[corners[i]]);
  const Monitor::Part part(mMesh.mMonitor.get(), 0.0, 0.0);  // besides what is counted
  mCornerIndex.plan(boxes, mOuter.axis, mMesh.mMonitor.get());
  for (unsigned i = 0; i < corners.size(); ++i) mCornerIndex.insert(i, boxes[i], {mOuter.face, i});
  mIsIndexed = true;
  return true;
}

}  // namespace util
