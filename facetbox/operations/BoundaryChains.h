#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include <facetbox/base/Buffer.h>
#include <facetbox/mesh/MeshStorage.h>

namespace util {

/// The chains of a mesh's edges, along which all faces run from one end to the other.
///
/// A vertex lies inside a chain when it shares edges with exactly two others, and every corner at it lies between
/// these two. A chain is a longest run of such vertices with the vertex before and the one after it, its ends. So all
/// faces at a vertex inside a chain run along the whole of it, in either direction, and what goes from all of them
/// leaves no T-junction.
///
/// The ends of an open chain are two vertices, the lower one first. Those of a ring are one and the same: a vertex to
/// which the chain comes back or, where all vertices of a loop lie inside, the extreme one in a direction that is
/// parallel or perpendicular to nothing in particular. A ring runs as its lowest face does.
///
/// A vertex with an entry in a face's seam set, or whose entry in the set of outgoing edges differs from the corner's
/// before, lies inside no chain.
class BoundaryChains {
 public:
  /// O(vertices + corners).
  explicit BoundaryChains(const MeshStorage& mesh);

  std::size_t size() const { return mEnds.size(); }
  bool empty() const { return mEnds.empty(); }
  /// The vertices of a chain with both ends: three or more, of a ring four or more.
  std::span<const std::uint32_t> operator[](std::size_t i) const {
    const std::size_t begin = i == 0 ? 0 : mEnds[i - 1];
    return {mVertices.data() + begin, mEnds[i] - begin};
  }

 private:
  class Finder;

  Buffer<std::uint32_t> mVertices;
  Buffer<std::size_t> mEnds;
};

}  // namespace util
