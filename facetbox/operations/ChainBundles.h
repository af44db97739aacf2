#pragma once

#include <cstdint>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/BoundaryChains.h>

namespace util {

/// What becomes of chains of which nothing is to stay but their ends.
struct ChainBundles {
  Buffer<std::uint32_t> toKeepOne;  ///< the chains of which something has to stay; in no order, each once
  bool areEdgesJoined = false;      ///< open edges become one
};

/// Between the same two ends there may be several chains, and an edge as well. No two of them become one edge, so that
/// no edge gets more faces, but for two open ones whose faces run along them in opposite directions: these are sides
/// of one gap, or of a T-junction. Nor is a face left with two corners.
///
/// @param newEdges  the chains of which only the ends are to stay
/// @param removed   per vertex: is not to stay
/// O(vertices + corners + n log n) for n chains with a common end.
ChainBundles findBundles(const MeshStorage& mesh, const BoundaryChains& chains, const Buffer<std::uint32_t>& newEdges,
                         const std::vector<bool>& removed);

}  // namespace util
