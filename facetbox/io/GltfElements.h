#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <facetbox/io/HashIndex.h>

namespace facetbox {

/// What floats have done to numbers.
struct Rounding {
  std::size_t count = 0;
  double most = 0;

  void add(double before, double after);
};

/// The float next to a number. @throws WriteError where none reaches it
float floatOf(double value);

/// The corners of triangles as elements of accessors: one per vertex that is used, in the order of the vertices, then
/// further ones where a vertex has several pairs of texture coordinates.
class GltfElements {
 public:
  /// @param triangles  no face has more or fewer corners than three
  GltfElements(const PolyMesh& triangles, Rounding& rounding);

  /// Of each element.
  const std::vector<std::uint32_t>& vertices() const { return mVertices; }
  /// How many vertices are used: the others repeat one of them.
  std::size_t usedCount() const { return mUsed; }
  /// The element of each corner.
  const std::vector<std::uint32_t>& corners() const { return mCorners; }
  /// Two per element, zero where no corner has any; empty where the mesh has none.
  const std::vector<float>& texCoords() const { return mTexCoords; }

 private:
  std::uint32_t elementOf(std::uint32_t vertex, const double* uv, Rounding& rounding);

  std::vector<std::uint32_t> mFirst;  // element of each vertex, kNone for those that are not used
  std::vector<std::uint32_t> mVertices, mCorners;
  std::vector<float> mTexCoords;
  std::vector<bool> mHasPair;  // of each used vertex
  HashIndex mKnown;
  std::size_t mUsed = 0;
};

}  // namespace facetbox
