#pragma once

#include <cstddef>
#include <cstdint>

// Frustum culling in a bounding volume hierarchy: the traversal of its nodes by the planes of a view volume, eight
// boxes at a time, in floats.
//
// Written once and compiled once per instruction set. Nothing in here may call an inline function of a library: the
// linker could keep the copy that an older processor cannot run.

namespace util {

inline constexpr std::size_t kBoxBlockWidth = 8;

/// A node: the bounds of its eight children, which are nodes of the level below, or boxes.
struct alignas(32) BoxBlock {
  float bounds[6][kBoxBlockWidth];  // minima in x, y, z, then maxima
  float magnitude;                  // the largest coordinate by absolute value
  std::uint32_t count;              // of children
};

/// A hierarchy as it lies in memory: level by level, each complete but for its end.
struct BoxBlocks {
  const BoxBlock* blocks;
  const std::uint32_t* levels;  // where each begins in the blocks; the level of the boxes first
  const std::uint32_t* order;   // numbers of the boxes, below BoxTraversal::kMaxBoxes, in the order of the lowest level
  std::size_t count;            // of boxes
};

/// The planes of a volume, and room for the traversal.
struct BoxTraversal {
  struct Plane {
    float x, y, z;    // of the normal
    float low, high;  // a box is inside where all of it is below low, and outside where all of it is above high
    std::int32_t bit;
    // The corner of a box that lies lowest along the normal, and the one that lies highest: for each axis, the offset
    // of its row in BoxBlock::bounds, in floats.
    std::size_t lowest[3], highest[3];
  };

  static constexpr std::uint32_t kAllPlanes = 63;
  /// In place of the bits of open planes: the surface certainly passes through the box.
  static constexpr std::uint32_t kCrossed = kAllPlanes + 1;
  static constexpr std::uint32_t kPlaneRange = 2 * kCrossed;
  /// Numbers from here on do not fit 32 bits with the bits of the planes.
  static constexpr std::uint32_t kMaxBoxes = 0xFFFFFFFFu / kPlaneRange;

  Plane planes[6];
  double magnitude;        // of the volume, as Frustum has it
  bool findsCrossed;       // whether to look for boxes that the surface certainly passes through
  std::uint32_t* room[2];  // each for as many as the lowest level has blocks, and one block more
};

/// Traverses the hierarchy from the only block of a level. A plane is open for a box that is not known to lie inside
/// it.
/// @param open   bits of the planes that are open for the block
/// @param found  receives the numbers of the boxes that are not outside a plane, times kPlaneRange, plus the bits of
///               their open planes or kCrossed; has room for all boxes
/// @return the number of boxes found
/// The first needs a processor with AVX2.
std::size_t traverseBoxesAvx2(const BoxTraversal& traversal, const BoxBlocks& tree, std::size_t level,
                              std::uint32_t open, std::uint32_t* found);
std::size_t traverseBoxesBase(const BoxTraversal& traversal, const BoxBlocks& tree, std::size_t level,
                              std::uint32_t open, std::uint32_t* found);

// Rounding to floats, relative to the largest coordinate M of volume and boxes. A coordinate of a normal, at most 1, is
// off by 2^-25, and a product and a sum by half an ulp each, so that the sum of three is off by 3 (2^-25 + 3 2^-24) M.
// The height of a plane is off by 2^-24 sqrt(3) M, and again where its margin is added.
inline constexpr double kBoxRounding = 3 * (0x1p-25 + 3 * 0x1p-24) + 2 * 0x1p-24 * 1.7321;
// Bounds are rounded outward by up to 2^-23 sqrt(3) M.
inline constexpr double kBoxOutward = 0x1p-23 * 1.7321;
// Besides, a point is only below or above a plane if Frustum says so with its own margins. BoxIndex.cpp checks the sum.
inline constexpr double kBoxMargin = 1e-5;
static_assert(kBoxMargin > kBoxRounding + kBoxOutward);
// Between these magnitudes, no margin is denormal and no sum overflows, in floats.
inline constexpr double kSmallestBoxMagnitude = 1e-25, kLargestBoxMagnitude = 1e25;

namespace {

/// Operations on vectors of a few lanes, in the compiler's vector types.
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
  /// The heights of one corner of some boxes along a plane's normal.
  static Floats heights(const BoxTraversal::Plane& plane, const float* bounds, const std::size_t rows[3]) {
    return plane.x * load(bounds + rows[0]) + plane.y * load(bounds + rows[1]) + plane.z * load(bounds + rows[2]);
  }
};

/// The sides of the planes on which the boxes of a block lie.
struct BlockSides {
  unsigned met = 0;                     // bits of the boxes that are not outside a plane
  unsigned crossed = 0;                 // bits of the boxes that the surface certainly passes through
  std::int32_t open[kBoxBlockWidth]{};  // per box: bits of its open planes
};

/// @tparam Lanes  BoxLanes, and  static unsigned bits(Ints), one per lane of a comparison's result
/// @param open          bits of the planes that are open for the block
/// @param findsCrossed  whether to look for boxes that the surface passes through
template <class Lanes>
BlockSides sidesOf(const BoxTraversal& traversal, const BoxBlock& block, unsigned open, bool findsCrossed) {
  using Floats = typename Lanes::Floats;
  using Ints = typename Lanes::Ints;
  constexpr unsigned kAll = (1u << Lanes::kCount) - 1;
  const double magnitude = traversal.magnitude + static_cast<double>(block.magnitude);
  const bool isInRange = magnitude >= kSmallestBoxMagnitude && magnitude <= kLargestBoxMagnitude;
  const Floats margin = Floats{} + (isInRange ? static_cast<float>(kBoxMargin * magnitude) : __builtin_inff());
  BlockSides sides;
  for (std::size_t from = 0; from < kBoxBlockWidth; from += Lanes::kCount) {
    const float* bounds = block.bounds[0] + from;
    Ints apart{};
    for (const BoxTraversal::Plane& plane : traversal.planes)
      apart |= Lanes::heights(plane, bounds, plane.lowest) > plane.high + margin;
    const unsigned met = ~Lanes::bits(apart) & ((1u << block.count) - 1) >> from & kAll;
    if (met == 0) continue;
    sides.met |= met << from;

    Ints opened{}, isAbove{}, isLowestOut{}, isCenterOut{};
    for (unsigned rest = open; rest != 0; rest &= rest - 1) {
      const BoxTraversal::Plane& plane = traversal.planes[__builtin_ctz(rest)];
      const Floats highest = Lanes::heights(plane, bounds, plane.highest), below = plane.low - margin;
      opened |= ~(highest < below) & plane.bit;
      if (!findsCrossed) continue;
      const Floats lowest = Lanes::heights(plane, bounds, plane.lowest);
      isAbove |= highest > plane.low + margin;
      isLowestOut |= ~(lowest < below);
      isCenterOut |= ~(0.5f * (lowest + highest) < below);
    }
    __builtin_memcpy(sides.open + from, &opened, sizeof opened);
    if (!findsCrossed) continue;
    // The center is below all planes, or the lowest corner is below the only open one.
    Ints isCrossed = isAbove & (~isCenterOut | (((opened & (opened - 1)) == 0) & ~isLowestOut));
    for (std::size_t min = 0, max = 3 * kBoxBlockWidth; max < 6 * kBoxBlockWidth;
         min += kBoxBlockWidth, max += kBoxBlockWidth)
      isCrossed &= Lanes::load(bounds + max) - Lanes::load(bounds + min) > margin;
    sides.crossed |= (Lanes::bits(isCrossed) & kAll) << from;
  }
  return sides;
}

/// Breadth-first: the blocks of one level do not depend on each other, so that the processor works on several at once.
template <class Lanes>
std::size_t traverseBoxes(const BoxTraversal& traversal, const BoxBlocks& tree, std::size_t level, std::uint32_t open,
                          std::uint32_t* const found) {
  constexpr std::uint32_t kRange = BoxTraversal::kPlaneRange;
  std::uint32_t* end = found;
  // Numbers of blocks within their level, times kRange, plus the bits of their open planes.
  std::uint32_t *list = traversal.room[0], *next = traversal.room[1];
  std::size_t listed = 1;
  for (list[0] = open; listed != 0; --level) {
    std::size_t following = 0;
    for (std::size_t i = 0; i < listed; ++i) {
      const std::size_t number = list[i] / kRange;
      const BlockSides sides = sidesOf<Lanes>(traversal, tree.blocks[tree.levels[level] + number], list[i] % kRange,
                                              level == 0 && traversal.findsCrossed);
      for (unsigned rest = sides.met; rest != 0; rest &= rest - 1) {
        const auto lane = static_cast<unsigned>(__builtin_ctz(rest));
        const std::size_t place = kBoxBlockWidth * number + lane;
        const auto opened = static_cast<std::uint32_t>(sides.open[lane]);
        if (level == 0) {
          const bool isCrossed = (sides.crossed >> lane & 1) != 0;
          *end++ = kRange * tree.order[place] + (isCrossed ? BoxTraversal::kCrossed : opened);
        } else if (opened != 0) {
          next[following++] = static_cast<std::uint32_t>(kRange * place) + opened;
        } else {
          // All boxes below are inside.
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
