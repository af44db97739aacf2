#pragma once

#include <facetbox/util/Buffer.h>
#include <facetbox/util/math/PlanarPolygon.h>
#include <facetbox/util/math/Vec3.h>
#include <facetbox/util/mesh/MeshStorage.h>

#include <cstdint>

namespace util {

/// How faces lie to each other when seen along the dominant axis of a face's stored normal. Points count as inside
/// only strictly, edges are closed: mere touching is crossing. All answers are exact.
///
/// Asking many holes of one outer face in a row costs its projection once.
class HolePlacement {
 public:
  explicit HolePlacement(const MeshStorage& mesh) : mMesh(mesh) {}

  /// Whether some corner of `points` lies inside `polygon`, seen along the polygon's axis.
  bool anyCornerInside(std::uint32_t points, std::uint32_t polygon);
  /// Whether some corner of `points` does not lie inside `polygon`, seen along the polygon's axis.
  bool anyCornerOutside(std::uint32_t points, std::uint32_t polygon);
  /// Whether an edge of one face meets an edge of the other, seen along the first face's axis; not so when either has
  /// fewer than three corners.
  bool edgesCross(std::uint32_t first, std::uint32_t second);

  /// Whether a hole lies strictly inside an outer face: no corner of the outer face inside the hole, every corner of
  /// the hole inside the outer face, no edges that cross.
  bool isInside(std::uint32_t hole, std::uint32_t outer) {
    return !anyCornerInside(outer, hole) && !anyCornerOutside(hole, outer) && !edgesCross(outer, hole);
  }

 private:
  /// A face's projection, kept until another face is asked for.
  struct Projection {
    std::uint32_t face = HoleTable::kNone;
    PlanarPolygon polygon;
  };

  const PlanarPolygon& projectionOf(std::uint32_t face);
  int axisOf(std::uint32_t face) const { return dominantAxis(mMesh.mFaces.normal(face)); }
  Vec2 corner(std::uint32_t vertex, int axis) const { return project(mMesh.mVertices[vertex], axis); }

  const MeshStorage& mMesh;
  Projection mLast[2];  // the two faces asked for last: an outer face and a hole take turns
  int mOlder = 0;
  Buffer<Vec2> mScratch;
};

}  // namespace util
