#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>
#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>

namespace util {

/// A mesh that has no fatal problem, and what all checks need to know of it.
///
/// Local points are measured from the low corner of the box of all used vertices, in a power of two such that its
/// longest side is 0.5 to 1: nothing over- or underflows, and place and unit of the mesh do not matter.
class CheckedMesh {
 public:
  static constexpr std::uint32_t kNone = facetbox::kNone;

  /// @param monitor  of the check, or null
  /// O(vertices + corners).
  explicit CheckedMesh(const facetbox::MeshView& view, Monitor* monitor = nullptr);

  Monitor* monitor() const { return mMonitor; }

  std::uint32_t faceCount() const { return static_cast<std::uint32_t>(mView.counts.size()); }
  std::uint32_t vertexCount() const { return static_cast<std::uint32_t>(mView.points.size() / 3); }
  const facetbox::MeshView& view() const { return mView; }

  std::span<const std::uint32_t> corners(std::uint32_t face) const {
    return mView.indices.subspan(mFirstCorners[face], mView.counts[face]);
  }
  /// The face that a face is a hole of, or kNone.
  std::uint32_t outerOf(std::uint32_t face) const { return mOuterOf.empty() ? kNone : mOuterOf[face]; }
  bool isHole(std::uint32_t face) const { return outerOf(face) != kNone; }
  bool hasHoles() const { return !mOuterOf.empty(); }
  bool isLeftOut(std::uint32_t face) const {
    return mView.counts[face] < 3 || (isHole(face) && mView.counts[mOuterOf[face]] < 3);
  }
  bool isUsed(std::uint32_t vertex) const { return mIsUsed[vertex] != 0; }

  Vec3 point(std::uint32_t vertex) const { return toVec3(mView.points.data() + 3 * std::size_t{vertex}); }
  /// Only of vertices that are used.
  const Vec3& local(std::uint32_t vertex) const { return mLocal[vertex]; }
  /// A length of the mesh in local units.
  double toLocal(double length) const;
  /// A number of local units, or of their squares or cubes, in those of the mesh.
  double fromLocal(double value, int power) const;

  /// Of the used vertices; empty where there are none.
  const Box& box() const { return mBox; }
  /// Of the box, in local units.
  double localDiagonal() const { return mDiagonal; }

  /// Twice the area vector of the polygon, in local units.
  Vec3 doubleAreaOf(std::uint32_t face) const;
  /// Whether a hole is wound like its outer face, so that its rim runs the other way round.
  bool isRimReversed(std::uint32_t hole) const { return mIsReversed[hole] != 0; }

 private:
  void readHoles();
  void findUsed();
  void placeLocally();

  facetbox::MeshView mView;
  Monitor* mMonitor;
  Buffer<std::uint32_t> mFirstCorners;
  std::vector<std::uint32_t> mOuterOf;    // per face; empty without holes
  std::vector<std::uint8_t> mIsReversed;  // likewise
  std::vector<std::uint8_t> mIsUsed;
  Buffer<Vec3> mLocal;
  Box mBox;
  double mDiagonal = 0;
  int mExponent = 0;  // a local unit is 2^mExponent of the mesh's
};

}  // namespace util
