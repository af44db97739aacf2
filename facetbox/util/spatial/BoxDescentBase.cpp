#include <facetbox/util/math/FourLanes.h>
#include <facetbox/util/spatial/BoxDescent.h>

namespace util {
namespace {

struct Base : BoxLanes<4> {
  static unsigned bits(Ints mask) { return bitsOf(mask); }
};

}  // namespace

void descendBoxesBase(const BoxDescent& descent, std::size_t level) { descendBoxes<Base>(descent, level); }

}  // namespace util
