#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>

#include <boost/thread/mutex.hpp>

#include <facetbox/util/Buffer.h>
#include <facetbox/util/Triangulator.h>

/// An edge of a triangle mesh, in the direction in which the first triangle that has it runs.
struct DirectedEdge {
  std::uint32_t mFrom, mTo;  ///< vertex numbers; differ
};

/// Every edge of a triangle mesh once, by the smaller of its vertex numbers, so that one end is found in the cache.
using EdgeList = util::Buffer<DirectedEdge>;

/// The edges of triangles, three vertex numbers below `vertexCount` each; those from a vertex to itself are left out.
/// O(vertices + corners), O(corners log corners) around a vertex that very many edges share.
EdgeList listEdges(std::span<const std::uint32_t> indices, std::size_t vertexCount);

/// The edge lists of shared triangle meshes. May be called by several threads at once.
class EdgeListCache {
 public:
  /// The edges of a mesh; made by the first who asks.
  std::shared_ptr<const EdgeList> edgesOf(const std::shared_ptr<const util::TriangleMesh>& mesh);
  /// Drops the lists of meshes that are gone. O(lists).
  void pruneUnused();

 private:
  // By owner, not by address, which a later mesh may have again.
  using ByMesh = std::map<std::weak_ptr<const util::TriangleMesh>, std::shared_ptr<const EdgeList>, std::owner_less<>>;

  boost::mutex mMutex;
  ByMesh mLists;  // guarded by mMutex
};
