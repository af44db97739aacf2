#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/mesh/EdgeTwins.h>

namespace util {

/// Lets edge twins follow the corners of faces that are merged, so that merging can go on without pairing all edges
/// anew. Merging makes no edge clean that was not clean before: where inner edges vanish, all their uses do.
class MovingTwins {
 public:
  explicit MovingTwins(EdgeTwins& twins) : mTwins(twins) {}

  /// Before a loop of corners is copied elsewhere.
  void lift(std::span<const std::uint32_t> loop);
  /// After that: its corners are those of a face now, from a position on.
  void lay(std::uint32_t face, std::size_t begin);
  /// Likewise for a face that has no twins from now on, nor have its neighbors there.
  void layApart(std::uint32_t face, std::size_t begin);

  /// The faces whose corners or twins have gone elsewhere since the last call, or gone: ascending, some more than once.
  std::vector<std::uint32_t> takeChanged();

 private:
  EdgeTwins& mTwins;
  std::vector<EdgeTwins::Corner> mLifted;
  std::vector<std::uint32_t> mChanged;
};

}  // namespace util
