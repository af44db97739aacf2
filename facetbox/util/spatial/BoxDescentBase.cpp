#include <facetbox/util/spatial/BoxDescent.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace util {
namespace {

struct Base : BoxLanes<4> {
  static unsigned bits(Ints mask) {
#if defined(__SSE2__)
    return static_cast<unsigned>(_mm_movemask_ps(reinterpret_cast<__m128>(mask)));
#else
    return (mask[0] & 1U) | (mask[1] & 2U) | (mask[2] & 4U) | (mask[3] & 8U);
#endif
  }
};

}  // namespace

void descendBoxesBase(const BoxDescent& descent, std::size_t level) { visitBoxes<Base, 4>(descent, level, 0, 63); }

}  // namespace util
