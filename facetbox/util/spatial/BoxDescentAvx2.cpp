// Compiled for AVX2 where the target is x86-64; the caller asks the processor first.
#if defined(__AVX2__)

#include <immintrin.h>

#include <facetbox/util/spatial/BoxDescent.h>

namespace util {
namespace {

struct Avx2 : BoxLanes<8> {
  static unsigned bits(Ints mask) { return static_cast<unsigned>(_mm256_movemask_ps(reinterpret_cast<__m256>(mask))); }
};

}  // namespace

void descendBoxesAvx2(const BoxDescent& descent, std::size_t level) { descendBoxes<Avx2>(descent, level); }

}  // namespace util

#endif
