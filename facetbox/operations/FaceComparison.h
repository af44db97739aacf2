#pragma once

#include <cstdint>
#include <vector>

#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/TexCoordTolerance.h>

namespace util {

/// What removeFacesDouble() takes for double.
struct DoubleFaceRule {
  bool compareAttributes = true;
  /// A face that visits a vertex twice repeats itself and goes. Otherwise it is compared like any other.
  bool selfIsDouble = true;
  bool keepClosed = false;  ///< a face that runs backwards stays where its going would open the mesh
};

/// Decides whether two faces are double, as removeFacesDouble() defines it.
class FaceComparison {
 public:
  FaceComparison(const MeshStorage& mesh, const DoubleFaceRule& rule);

  bool comparesAttributes() const { return mRule.compareAttributes; }

  /// Whether face b, begun at the first corner of a that has b's first vertex, runs like a or backwards; a is the lower
  /// face, or the same. Where a visits that vertex again, no other beginning is tried; up to 16 are where a face is not
  /// its own double. O(corners + log runs).
  bool areDouble(std::uint32_t a, std::uint32_t b) const;

  /// Whether of two double faces b runs like a, whatever their attributes. O(corners).
  bool runAlike(std::uint32_t a, std::uint32_t b) const;

  /// A number for the face's first material: equal numbers, same material. O(log runs).
  std::uint32_t materialOf(std::uint32_t face) const;

 private:
  bool areDoubleFrom(std::size_t begin, std::uint32_t a, std::uint32_t b) const;

  const MeshStorage& mMesh;
  DoubleFaceRule mRule;
  std::vector<std::uint32_t> mHighestStarts;    // per run, of the runs up to it
  std::vector<std::uint32_t> mMaterialNumbers;  // per run
};

}  // namespace util
