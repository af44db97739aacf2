#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/util/Buffer.h>
#include <facetbox/util/mesh/PrimitiveList.h>

namespace util {

/// Which edges of the faces a map holds when vertices are marked.
enum class EdgeMask { bothEndsMarked, oneEndMarked };

/// The undirected edges of a face list, in the order in which a walk over the faces and their corners first meets
/// them, each with the faces that use it.
class EdgeMap {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

  struct Edge {
    std::uint32_t low, high;  ///< vertex indices, low <= high
  };

  std::size_t size() const { return mEdges.size(); }
  const Edge& edge(std::size_t e) const { return mEdges[e]; }
  /// Whether the walk first met the edge running from its higher to its lower vertex (or from a vertex to itself).
  bool firstMetReversed(std::size_t e) const { return mReversed[e] != 0; }
  /// The faces that use the edge, in the order of the walk; a face that uses it twice stands twice.
  std::span<const std::uint32_t> faces(std::size_t e) const {
    return {mFaces.data() + mFaceOffsets[e], mFaceOffsets[e + 1] - mFaceOffsets[e]};
  }
  /// Number of the edge that leaves the corner at a position of the corner pool, or kNone where it was masked out.
  std::uint32_t edgeOfCorner(std::size_t poolPosition) const { return mEdgeOfCorner[poolPosition]; }

 private:
  friend EdgeMap buildEdgeMap(const PrimitiveList& faces, std::size_t vertexCount, const std::vector<bool>* marked,
                              EdgeMask mode);

  Buffer<Edge> mEdges;
  Buffer<std::uint8_t> mReversed;
  Buffer<std::uint32_t> mFaceOffsets;
  Buffer<std::uint32_t> mFaces;
  Buffer<std::uint32_t> mEdgeOfCorner;
};

/// Builds the edge map of a face list whose vertex indices are below `vertexCount`. With `marked` (one entry per
/// vertex), only the edges that `mode` asks for. O(vertices + corners), O(corners log corners) around a vertex that
/// very many edges share.
EdgeMap buildEdgeMap(const PrimitiveList& faces, std::size_t vertexCount, const std::vector<bool>* marked = nullptr,
                     EdgeMask mode = EdgeMask::bothEndsMarked);

}  // namespace util
