#pragma once

#include <cassert>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>
#include <facetbox/math/Vec3.h>

namespace util {

/// The groups of vertices that are to be welded: each of two or more, known by the number of the vertex that founded
/// it. Vertices may leave.
class VertexGroups {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

  /// Groups by the rule at mergeVertices(), and throws as told there.
  VertexGroups(std::span<const Vec3> vertices, double tolerance, Monitor* monitor = nullptr);

  using Edge = std::pair<std::uint32_t, std::uint32_t>;
  /// Groups along edges alone: the vertex of lowest index that is in no group yet takes every vertex in no group that
  /// a chain of edges leads to whose vertices all lie within the tolerance of it, and founds the group.
  /// @param edges  pairs of different vertices; in any order and direction, as often as one likes
  /// O(vertices + edges).
  VertexGroups(std::span<const Vec3> vertices, std::span<const Edge> edges, double tolerance);

  bool empty() const { return mIsEmpty; }
  /// Whether a vertex has left a group.
  bool hasAnyLeft() const { return !mSeeds.empty(); }
  /// The group that a vertex is in, or kNone.
  std::uint32_t groupOf(std::uint32_t vertex) const { return mGroupOf[vertex]; }
  /// The lowest vertex of a group: the one that the others are merged into. The group must not be empty.
  std::uint32_t seedOf(std::uint32_t group) const {
    assert(mSizes.empty() || mSizes[group] > 1);
    return mSeeds.empty() ? group : mMembers[mSeeds[group]];
  }

  /// Takes a vertex out of the group that it is in. A group of two is dissolved: the other member leaves too.
  /// @return that other member, else kNone
  std::uint32_t removeFromGroup(std::uint32_t vertex);

  /// Ends the groups: per vertex its new number when every member is replaced by its seed and the remaining vertices
  /// close up in order.
  Buffer<std::uint32_t> intoNewNumbers(std::uint32_t& keptCount) &&;

 private:
  void listMembers();

  Buffer<std::uint32_t> mGroupOf;
  bool mIsEmpty = true;
  // Only once a vertex has left, addressed by group: where its members start in mMembers (ascending; some may have
  // left), where its seed stands, and how many are left.
  Buffer<std::uint32_t> mMembers;
  Buffer<std::uint32_t> mSeeds;
  Buffer<std::uint32_t> mSizes;
};

}  // namespace util
