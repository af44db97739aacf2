#pragma once

#include <cstddef>
#include <cstdint>

// The traversal of a view volume through the bounds of many boxes. Written once and compiled once per instruction set;
// nothing in here may call an inline function of a library, since the linker would be free to keep the copy that an
// older processor cannot run.

namespace util {

inline constexpr std::size_t kBoxBlockWidth = 8;

/// The bounds of eight neighbours of the level below, or of eight boxes.
struct alignas(32) BoxBlock {
  float bounds[6][kBoxBlockWidth];  // minima in x, y, z, then maxima
  float size;                       // the largest coordinate by absolute value; at least that of all boxes within
  std::uint32_t count;
};

/// A tree of blocks as it lies in memory: level by level, complete but for the end of each.
struct BoxBlocks {
  const BoxBlock* blocks;
  const std::uint32_t* levels;  // where each begins in the blocks, that of the boxes first
  const std::uint32_t* order;   // numbers of the boxes, in the order of the lowest level; at most 6e7
  std::size_t count;            // of boxes
};

/// The planes of a volume, and room for the traversal.
struct BoxTraversal {
  struct Plane {
    float x, y, z;    // of the normal
    float low, high;  // below low is inside, above high nothing
    std::int32_t bit;
    // Rows of the bounds that are the farthest inside and outside, as numbers of floats from the first.
    std::size_t inner[3], outer[3];
  };

  static constexpr std::uint32_t kAllPlanes = 63;
  static constexpr std::uint32_t kPlaneRange = kAllPlanes + 1;

  Plane planes[6];
  double size;             // of the volume; infinite where no conclusions must be drawn from the planes
  std::uint32_t* room[2];  // each for as many as the lowest level has blocks, and one block more
};

/// Goes down from the only block of a level.
/// @param open   bits of the planes that the block is not known to be inside of
/// @param found  gets the numbers of the boxes that are not beyond a plane, times kPlaneRange and with the bits of the
///               planes that they are not well inside of; has room for all
/// @return how many
/// For processors with AVX2, and for any.
std::size_t traverseBoxesAvx2(const BoxTraversal& traversal, const BoxBlocks& tree, std::size_t level,
                              std::uint32_t open, std::uint32_t* found);
std::size_t traverseBoxesBase(const BoxTraversal& traversal, const BoxBlocks& tree, std::size_t level,
                              std::uint32_t open, std::uint32_t* found);

// Rounding: a coordinate of a normal, of at most 1, is off by 2^-25 and a product and a sum by half an ulp each; so
// the sum of three is off by less than 3 (2^-25 + 3 2^-24) M, M being the largest coordinate there is, and the bound
// of a plane by 2^-24 sqrt(3) M, twice where it meets its margin: less than 8.4e-7 M. With the volume's own margin of
// 4.8e-7 M that makes less than 1.4e-6 M, and with the 7.7e-6 M that a box clear of a plane lies below it, less than
// 1e-5.
inline constexpr double kBoxMargin = 1e-5;
// Keeps margins clear of underflow, and squares of overflow.
inline constexpr double kSmallestSize = 1e-25, kLargestSize = 1e25;

namespace {

/// Vector operations of some lanes at a time, in the compiler's vector types.
template <std::size_t kLanes>
struct BoxLanes {
  static constexpr std::size_t kCount = kLanes;
  typedef float Floats __attribute__((vector_size(4 * kLanes)));
  typedef std::int32_t Ints __attribute__((vector_size(4 * kLanes)));

  static Floats load(const float* values) {
    Floats loaded;
    __builtin_memcpy(&loaded, values, sizeof loaded);
    return loaded;
  }
  /// Of the corners of some boxes that the rows name: how high they are above a plane through the origin.
  static Floats heights(const BoxTraversal::Plane& plane, const float* bounds, const std::size_t rows[3]) {
    return plane.x * load(bounds + rows[0]) + plane.y * load(bounds + rows[1]) + plane.z * load(bounds + rows[2]);
  }
};

/// What is found out about the boxes of a block.
struct BlockSides {
  unsigned met = 0;                     // bits of the boxes that are not beyond a plane
  std::int32_t open[kBoxBlockWidth]{};  // bits of the planes that a box is not known to be inside of
};

/// @tparam Lanes  BoxLanes, and  static unsigned bits(Ints), one per lane of a comparison's result
/// @param open  bits of the planes that the block is not known to be inside of
template <class Lanes>
BlockSides sidesOf(const BoxTraversal& traversal, const BoxBlock& block, unsigned open) {
  using Floats = typename Lanes::Floats;
  using Ints = typename Lanes::Ints;
  constexpr unsigned kAll = (1u << Lanes::kCount) - 1;
  const double size = traversal.size + static_cast<double>(block.size);
  const Floats margin =
      Floats{} +
      (size >= kSmallestSize && size <= kLargestSize ? static_cast<float>(kBoxMargin * size) : __builtin_inff());
  BlockSides sides;
  for (std::size_t from = 0; from < kBoxBlockWidth; from += Lanes::kCount) {
    const float* bounds = block.bounds[0] + from;
    Ints apart{};
    for (const BoxTraversal::Plane& plane : traversal.planes)
      apart |= Lanes::heights(plane, bounds, plane.inner) > plane.high + margin;
    const unsigned met = ~Lanes::bits(apart) & ((1u << block.count) - 1) >> from & kAll;
    if (met == 0) continue;
    sides.met |= met << from;

    Ints opened{};
    for (unsigned rest = open; rest != 0; rest &= rest - 1) {
      const BoxTraversal::Plane& plane = traversal.planes[__builtin_ctz(rest)];
      opened |= ~(Lanes::heights(plane, bounds, plane.outer) < plane.low - margin) & plane.bit;
    }
    __builtin_memcpy(sides.open + from, &opened, sizeof opened);
  }
  return sides;
}

/// Level by level: what is to be done for the blocks of one level does not depend on one another, and the processor
/// may work on several.
template <class Lanes>
std::size_t traverseBoxes(const BoxTraversal& traversal, const BoxBlocks& tree, std::size_t level, std::uint32_t open,
                          std::uint32_t* const found) {
  constexpr std::uint32_t kRange = BoxTraversal::kPlaneRange;
  std::uint32_t* end = found;
  // Numbers of blocks, times kRange and with their open planes.
  std::uint32_t *list = traversal.room[0], *next = traversal.room[1];
  std::size_t listed = 1;
  for (list[0] = open; listed != 0; --level) {
    std::size_t following = 0;
    for (std::size_t i = 0; i < listed; ++i) {
      const std::size_t number = list[i] / kRange;
      const BlockSides sides = sidesOf<Lanes>(traversal, tree.blocks[tree.levels[level] + number], list[i] % kRange);
      for (unsigned rest = sides.met; rest != 0; rest &= rest - 1) {
        const auto lane = static_cast<unsigned>(__builtin_ctz(rest));
        const std::size_t place = kBoxBlockWidth * number + lane;
        const auto opened = static_cast<std::uint32_t>(sides.open[lane]);
        if (level == 0) {
          *end++ = kRange * tree.order[place] + opened;
        } else if (opened != 0) {
          next[following++] = static_cast<std::uint32_t>(kRange * place) + opened;
        } else {
          // All boxes within are inside.
          const std::size_t first = place << (3 * level), past = (place + 1) << (3 * level);
          for (std::size_t k = first; k < past && k < tree.count; ++k) *end++ = kRange * tree.order[k];
        }
      }
    }
    std::uint32_t* done = list;
    list = next;
    next = done;
    listed = following;
  }
  return static_cast<std::size_t>(end - found);
}

}  // namespace

}  // namespace util
