#include <facetbox/math/FourLanes.h>
#include <facetbox/spatial/BoxDescent.h>

namespace util {
namespace {

struct Base : BoxLanes<4> {
  static unsigned bits(Ints mask) { return bitsOf(mask); }
};

}  // namespace

std::size_t descendBoxesBase(const BoxDescent& descent, const BoxBlocks& tree, std::size_t level, std::uint32_t open,
                             std::uint32_t* found) {
  return descendBoxes<Base>(descent, tree, level, open, found);
}

}  // namespace util
