#pragma once

#include <cstdint>
#include <vector>

#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/TexCoordTolerance.h>

namespace util {

/// Decides whether two faces are double, as removeFacesDouble() defines it.
class FaceComparison {
 public:
  FaceComparison(const MeshStorage& mesh, bool compareAttributes);

  bool comparesAttributes() const { return mCompareAttributes; }

  /// Whether face b, begun at the first corner of a that has b's first vertex, runs like a or backwards; a is the lower
  /// face, or the same. Where a visits that vertex again, no other beginning is tried. O(corners + log runs).
  bool areDouble(std::uint32_t a, std::uint32_t b) const;

  /// A number for the face's first material: equal numbers, same material. O(log runs).
  std::uint32_t materialOf(std::uint32_t face) const;

 private:
  const MeshStorage& mMesh;
  bool mCompareAttributes;
  std::vector<std::uint32_t> mHighestStarts;    // per run, of the runs up to it
  std::vector<std::uint32_t> mMaterialNumbers;  // per run
};

}  // namespace util
