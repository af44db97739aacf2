#pragma once

#include <cstddef>
#include <cstdint>

// The descent of a view volume through the bounds of many boxes. Written once and compiled once per instruction set;
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

/// What is asked of which blocks, and where the answers go.
struct BoxDescent {
  struct Plane {
    float x, y, z;    // of the normal
    float low, high;  // below low is inside, above high nothing
    std::int32_t bit;
    // Rows of the bounds that are the farthest inside and outside, as numbers of floats from the first.
    std::size_t inner[3], outer[3];
  };

  const BoxBlock* blocks;
  const std::size_t* levels;   // where each begins in the blocks, that of the boxes first
  const std::uint32_t* order;  // numbers of the boxes, in the order of the lowest level
  std::size_t count;           // of boxes; at most 5e8
  Plane planes[6];
  double size;  // of the volume; infinite where no conclusions must be drawn from the planes
  bool isHull;
  std::uint64_t *inside, *firm, *doubtful;  // bits
  std::uint32_t* room[2];                   // each for as many as the lowest level has blocks, and one block more
};

/// Goes down from the only block of a level. For processors with AVX2, and for any.
void descendBoxesAvx2(const BoxDescent& descent, std::size_t level);
void descendBoxesBase(const BoxDescent& descent, std::size_t level);

// Rounding: a coordinate of a normal, of at most 1, is off by 2^-25 and a product and a sum by half an ulp each; so
// the sum of three is off by less than 3 (2^-25 + 3 2^-24) M, M being the largest coordinate there is, and the bound
// of a plane by 2^-24 sqrt(3) M: less than 8e-7 M. With the volume's own margin of 4.8e-7 M a box is beyond a plane.
//
// A box is inside, or a point in the sense of ViewVolume::isHull(), when it is below a plane by more: 4.8e-7 M, by
// which the faces of a hull may bend, a firm margin of 1.44e-6 M and that times sqrt(3) for the rims that a box or one
// around it has to do without, and 2e-7 M, by which a corner was rounded outward, make 5.4e-6 M.
inline constexpr double kBoxMargin = 6e-6;
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
  static Floats heights(const BoxDescent::Plane& plane, const float* bounds, const std::size_t rows[3]) {
    return plane.x * load(bounds + rows[0]) + plane.y * load(bounds + rows[1]) + plane.z * load(bounds + rows[2]);
  }
};

/// What is found out about the boxes of a block.
struct BlockSides {
  unsigned met = 0;                     // bits of the boxes that are not beyond a plane
  unsigned firm = 0;                    // and of those of them that certainly meet the volume firmly
  std::int32_t open[kBoxBlockWidth]{};  // bits of the planes that a box is not known to be inside of
};

/// @tparam Lanes  BoxLanes, and  static unsigned bits(Ints), one per lane of a comparison's result
/// @param open  bits of the planes that the block is not known to be inside of
template <class Lanes>
BlockSides sidesOf(const BoxDescent& descent, const BoxBlock& block, unsigned open, bool isLowest) {
  using Floats = typename Lanes::Floats;
  using Ints = typename Lanes::Ints;
  constexpr unsigned kAll = (1u << Lanes::kCount) - 1;
  const double size = descent.size + static_cast<double>(block.size);
  const Floats margin =
      Floats{} +
      (size >= kSmallestSize && size <= kLargestSize ? static_cast<float>(kBoxMargin * size) : __builtin_inff());
  BlockSides sides;
  for (std::size_t from = 0; from < kBoxBlockWidth; from += Lanes::kCount) {
    const float* bounds = block.bounds[0] + from;
    Ints apart{};
    for (const BoxDescent::Plane& plane : descent.planes)
      apart |= Lanes::heights(plane, bounds, plane.inner) > plane.high + margin;
    const unsigned met = ~Lanes::bits(apart) & ((1u << block.count) - 1) >> from & kAll;
    if (met == 0) continue;
    sides.met |= met << from;

    Ints opened{}, shallow{}, isBeyond{}, isCentreOut{};
    for (unsigned rest = open; rest != 0; rest &= rest - 1) {
      const BoxDescent::Plane& plane = descent.planes[__builtin_ctz(rest)];
      const Floats bound = plane.low - margin, highest = Lanes::heights(plane, bounds, plane.outer);
      opened |= ~(highest < bound) & plane.bit;
      if (!isLowest) continue;
      const Floats lowest = Lanes::heights(plane, bounds, plane.inner);
      shallow |= ~(lowest < bound) & plane.bit;
      isBeyond |= highest > plane.high + margin;
      isCentreOut |= ~(0.5f * (lowest + highest) < bound);
    }
    __builtin_memcpy(sides.open + from, &opened, sizeof opened);
    if (!isLowest || !descent.isHull) continue;
    // Inside all planes is the centre, or the corner that is the farthest inside the only plane that is open.
    const Ints isCornerOut = ((opened & (opened - 1)) != 0) | ((opened & shallow) != 0);
    Ints isUnfirm = ~isBeyond | (isCentreOut & isCornerOut);
    for (std::size_t row = 0; row < 3; ++row)
      isUnfirm |=
          ~(Lanes::load(bounds + (row + 3) * kBoxBlockWidth) - Lanes::load(bounds + row * kBoxBlockWidth) > margin);
    sides.firm |= (~Lanes::bits(isUnfirm) & kAll) << from;
  }
  return sides;
}

/// Level by level: what is to be done for the blocks of one level does not depend on one another, and the processor
/// may work on several.
template <class Lanes>
void descendBoxes(const BoxDescent& descent, std::size_t level) {
  // Numbers of blocks, times 64 and with their open planes.
  std::uint32_t *list = descent.room[0], *next = descent.room[1];
  std::size_t listed = 1;
  for (list[0] = 63; listed != 0; --level) {
    std::size_t following = 0;
    for (std::size_t i = 0; i < listed; ++i) {
      const std::size_t number = list[i] / 64;
      const BlockSides sides =
          sidesOf<Lanes>(descent, descent.blocks[descent.levels[level] + number], list[i] % 64, level == 0);
      for (unsigned rest = sides.met; rest != 0; rest &= rest - 1) {
        const auto lane = static_cast<unsigned>(__builtin_ctz(rest));
        const std::size_t place = kBoxBlockWidth * number + lane;
        const auto open = static_cast<std::uint32_t>(sides.open[lane]);
        if (level != 0 && open != 0) {
          next[following++] = static_cast<std::uint32_t>(64 * place) + open;
          continue;
        }
        // All boxes within are inside, and so have their inner spheres there; or it is one box.
        std::uint64_t* bits = open == 0                       ? descent.inside
                              : (sides.firm >> lane & 1) != 0 ? descent.firm
                                                              : descent.doubtful;
        const std::size_t first = place << (3 * level), past = (place + 1) << (3 * level);
        for (std::size_t k = first; k < past && k < descent.count; ++k)
          bits[descent.order[k] / 64] |= std::uint64_t{1} << (descent.order[k] % 64);
      }
    }
    std::uint32_t* done = list;
    list = next;
    next = done;
    listed = following;
  }
}

}  // namespace

}  // namespace util
