// Compiled for AVX2 where the target is x86-64; the caller asks the processor first.
#if defined(__AVX2__)

#include <immintrin.h>

#include <facetbox/spatial/BoxTraversal.h>

namespace util {
namespace {

struct Avx2 : BoxLanes<8> {
  static unsigned bits(Ints mask) { return static_cast<unsigned>(_mm256_movemask_ps(reinterpret_cast<__m256>(mask))); }
};

}  // namespace

std::size_t traverseBoxesAvx2(const BoxTraversal& traversal, const BoxBlocks& tree, std::size_t level,
                              std::uint32_t open, std::uint32_t* found) {
  return traverseBoxes<Avx2>(traversal, tree, level, open, found);
}

}  // namespace util

#endif
