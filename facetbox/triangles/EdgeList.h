#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include <facetbox/base/Buffer.h>

namespace util {

/// An edge of a triangle mesh, in the direction in which the first triangle that has it runs.
struct DirectedEdge {
  std::uint32_t mFrom, mTo;  ///< vertex numbers; differ
};

/// Every edge of a triangle mesh once, by the smaller of its vertex numbers, so that one end is found in the cache.
class EdgeList : public Buffer<DirectedEdge> {};

/// The edges of triangles, three vertex numbers below `vertexCount` each; those from a vertex to itself are left out.
/// O(vertices + corners), O(corners log corners) around a vertex that very many edges share.
EdgeList listEdges(std::span<const std::uint32_t> indices, std::size_t vertexCount);

}  // namespace util
