#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

#include <facetbox/base/Buffer.h>
#include <facetbox/mesh/MeshStorage.h>

namespace util {

/// Per face its area and whether it has a plane of its own.
class FacePlanes {
 public:
  FacePlanes() = default;
  /// Measures every face by its stored normal. O(corners).
  explicit FacePlanes(const MeshStorage& m);

  /// Measures faces that have changed, or were appended, anew.
  void remeasure(const MeshStorage& m, std::span<const std::uint32_t> faces);

  bool hasPlane(std::size_t face) const { return !std::signbit(mAreas[face]); }

  /// Whether a face comes after another as a seed: those of larger area come first, ties by lower index, and faces
  /// without a plane after all others.
  bool comesLater(std::uint32_t face, std::uint32_t other) const {
    return !hasPlane(face) || mAreas[face] < mAreas[other] || (mAreas[face] == mAreas[other] && face > other);
  }

  /// Per face its area, never NaN; negated, with -0 for 0, where the face has no plane: one read tells both.
  std::span<const double> areas() const { return mAreas; }
  /// Asks for the memory that a face's area and plane will need.
  void prefetch(std::uint32_t face) const { __builtin_prefetch(&mAreas[face]); }

 private:
  void measure(const MeshStorage& m, std::size_t face);

  Buffer<double> mAreas;
};

}  // namespace util
