#include <facetbox/mesh/EdgeTwins.h>

namespace util {

EdgeTwins findEdgeTwins(const PrimitiveList& faces, std::size_t vertexCount, Monitor* monitor) {
  return findEdgeTwins(
      faces, vertexCount, monitor, [](const EdgeTwins&, std::uint32_t, const DirectedUse&, const DirectedUse&) {},
      [](const EdgeTwins&, std::uint32_t, std::span<const DirectedUse>) {});
}

}  // namespace util
