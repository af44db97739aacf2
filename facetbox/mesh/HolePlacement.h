#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/polygons/PlanarPolygon.h>
#include <facetbox/spatial/BBoxOctree.h>

namespace util {

/// What a hole counts for a monitor: microseconds, as it may take in a large group.
inline constexpr std::size_t kWorkPerHole = 32;

/// Where holes lie relative to their outer face and to each other, seen along the dominant axis of a face's stored
/// normal. A point on the boundary is not inside, and edges that only touch cross. All answers are exact; those on
/// distances follow the stated formula. Hole and outer face may be any faces, planar or not, even the same one.
///
/// Queries for the holes of one outer face in a row project it once. Together they cost about O(n log n) in the number
/// n of corners of all faces queried, if each edge crosses few others; more only where faces with different dominant
/// axes cross each other. No allocation per hole, except for holes of hundreds of corners.
///
/// Between two calls faces may be cleared, but not changed otherwise.
class HolePlacement {
 public:
  explicit HolePlacement(const MeshStorage& mesh) : mMesh(mesh) {}

  /// How the corners of the outer face near a hole are found: one by one, or by an octree for large faces. The answers
  /// are the same.
  enum class Search { plain, indexed };

  /// Sets the outer face for the calls that follow.
  void setOuter(std::uint32_t outer, Search search);

  /// Whether a hole lies strictly inside the outer face: no corner of the outer face inside the hole (seen along the
  /// hole's axis), every corner of the hole inside the outer face, no edges that cross (both along the outer face's
  /// axis; edges are looked at only where both have three corners or more).
  /// @param hole  a face that is not cleared
  bool isInside(std::uint32_t hole);

  /// What keeps a hole from lying strictly inside: `outside`, `crosses` or `touches`. An edge crosses one of the
  /// outline where each has the other's ends strictly on both of its sides; a hole that the outline enters elsewhere,
  /// through a corner, crosses it too. About as much work again as isInside().
  /// @param hole  for which isInside() is false
  facetbox::DroppedHole::Reason whyNotInside(std::uint32_t hole);

  /// Whether some corner of the outer face and some corner of the hole are closer than the gap of the mesh's limits.
  bool sharesVertex(std::uint32_t hole);

  /// Whether two holes of one outer face overlap: some corner of one inside the other (seen along the axis of the one
  /// that contains it), or edges that cross (seen along the axis of `earlier`; only where both have three corners or
  /// more). A cleared hole overlaps nothing.
  bool overlap(std::uint32_t earlier, std::uint32_t later);

  /// A face seen along an axis. Valid until the next call.
  const PlanarPolygon& polygonOf(std::uint32_t face, int axis) { return projectionOf(face, axis).polygon; }

  int axisOf(std::uint32_t face) const { return dominantAxis(mMesh.mFaces.normal(face)); }

 private:
  using CornerNumber = std::pair<unsigned, unsigned>;  ///< face, and the corner's position in it

  /// A face seen along an axis.
  struct Projection {
    std::uint32_t face = HoleTable::kNone;
    int axis = 0;
    bool isFinite = true;
    std::uint64_t lastUse = 0;
    PlanarPolygon polygon;

    Vec2 corner() const { return polygon.corners().front(); }
    /// Other faces contain nothing, and their edges do not count.
    bool hasInterior() const { return isFinite && polygon.corners().size() >= 3; }
  };

  const Projection& projectionOf(std::uint32_t face, int axis);
  void fill(Projection& projection, std::uint32_t face, int axis);
  bool anyCornerInside(std::uint32_t face, const Projection& polygon) const;
  bool anyOuterCornerInside(const Projection& polygon);
  bool usesCornerIndex(std::size_t queries);
  bool areClose(const Vec3& a, const Vec3& b) const { return lengthSq(a - b) < mGapSq; }
  Vec2 projected(std::uint32_t vertex, int axis) const { return project(mMesh.mVertices[vertex], axis); }
  const Vec3& outerCorner(CornerNumber corner) const {
    return mMesh.mVertices[mMesh.mFaces.corners(corner.first)[corner.second]];
  }

  const MeshStorage& mMesh;
  Projection mOuter;
  double mGapSq = 0.0;
  Search mSearch = Search::plain;

  // The corners of the outer face.
  std::size_t mPlainQueries = 0;  // answered one by one
  bool mIsIndexed = false;
  BBoxOctree<CornerNumber> mCornerIndex;

  // Other faces: the four small ones last used, and all large ones since setOuter().
  std::array<Projection, 4> mSmall;
  std::uint64_t mUses = 0;
  std::unordered_map<std::uint64_t, Projection> mLarge;  // by 4 * face + axis
  Buffer<Vec2> mScratch;
};

}  // namespace util
