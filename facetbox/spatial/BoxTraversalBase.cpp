#include <facetbox/math/Lanes.h>
#include <facetbox/spatial/BoxTraversal.h>

namespace util {
namespace {

struct Base : BoxLanes<4> {
  static unsigned bits(Ints mask) { return bitsOf(mask); }
};

}  // namespace

std::size_t traverseBoxesBase(const BoxTraversal& traversal, const BoxBlocks& tree, std::size_t level,
                              std::uint32_t open, std::uint32_t* found) {
  return traverseBoxes<Base>(traversal, tree, level, open, found);
}

}  // namespace util
