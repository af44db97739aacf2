#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>

namespace util {

struct TriangleBox;
struct TriangleRange;

/// A bounding volume hierarchy: a tree of boxes over the triangles of one mesh, eight children a node.
///
/// It only proposes: whoever traverses it may pass over a subtree only where its box, widened by a bound of all
/// rounding on the way, proves that the plain loop over all triangles would reject every triangle in it. What is left
/// is tested by the arithmetic of the plain loop, on corners in doubles that are kept in the order of the leaves.
///
/// About 140 to 148 bytes a triangle. Immutable once built; safe to read from several threads.
class TriangleBvh {
 public:
  static constexpr int kWidth = 8;  ///< children of a node, and triangles of a block
  /// Longest chain of nodes.
  static constexpr int kMaxDepth = 56;
  /// What a depth-first traversal has on its stack at most: of each node on the way all children but the one that it is
  /// in, and all of the last one.
  static constexpr int kStackSize = (kWidth - 1) * kMaxDepth + kWidth;

  /// Names a node or a block by its place in the arena, in units; kLeaf tells blocks.
  using Reference = std::uint32_t;
  static constexpr Reference kLeaf = 0x80000000u;

  static constexpr std::size_t kFewestTriangles = 9;

  /// In bytes: what a processor keeps close while it traverses.
  static constexpr std::size_t kNearCache = 1 << 19;

  /// What the arena consists of.
  struct alignas(32) Unit {
    std::byte bytes[32];
  };
  /// Boxes of the children in unit coordinates, rounded outward; an unused child has the empty box. The unit coordinate
  /// of x is (x - center()) * scale(): all corners lie between -1 and 1, so that floats neither overflow nor vanish.
  struct alignas(32) Node {
    float bounds[6][kWidth];  ///< min x, min y, min z, max x, max y, max z
    Reference child[kWidth];
    std::uint32_t number;  ///< of the node among all, for what is kept apart
  };
  /// For each child of a node a box around the cross products of its triangles' edges, edge1 x edge2 in unit
  /// coordinates, and the largest reach of one of them.
  struct alignas(32) Normals {
    float bounds[6][kWidth];  ///< laid out like the boxes
    float reach[kWidth];
  };
  /// A leaf: triangles side by side in unit coordinates, rounded, to see which are worth the exact test. Their Exact
  /// records follow, in the order of the lanes.
  struct alignas(32) Block {
    float corner[3][kWidth];  ///< the first corner
    float edge1[3][kWidth];   ///< from it to the second
    float edge2[3][kWidth];   ///< from it to the third
    float reach[kWidth];      ///< largest absolute coordinate of the edges, rounded up; -1 in a lane without triangle
  };
  /// A triangle as the mesh has it.
  struct alignas(16) Exact {
    double corner[9];        ///< x, y, z of its corners
    std::uint32_t triangle;  ///< its number in the mesh
  };

  /// @param vertexCoordinates  three per vertex
  /// @param indices            three vertex numbers per triangle
  /// @param fewest             below so many triangles it is not made: the plain loop is as fast
  /// Triangles with a NaN corner are left out: no test accepts one. O(triangles log triangles).
  TriangleBvh(std::span<const double> vertexCoordinates, std::span<const std::uint32_t> indices,
              std::size_t fewest = kFewestTriangles);

  /// Whether a traversal may stand in for the loop: there are enough triangles for it to pay, and no coordinate is so
  /// large that a product of some of them could overflow.
  bool isUsable() const noexcept { return !mArena.empty(); }

  /// What a traversal needs. Valid as long as the hierarchy.
  struct View {
    // Inlined without fail: these are called by code for newer processors, of which no copy may be kept for others.
    const Unit* arena;
    const Normals* normals;  ///< by a node's number
    Reference root;
    bool isLarge;  ///< beyond what stays in a near cache: fetching ahead pays

    __attribute__((always_inline)) const Node& node(Reference reference) const {
      return *reinterpret_cast<const Node*>(arena + reference);
    }
    __attribute__((always_inline)) const Block& block(Reference reference) const {
      return *reinterpret_cast<const Block*>(arena + (reference & ~kLeaf));
    }
    __attribute__((always_inline)) static const Exact* exact(const Block& block) {
      return reinterpret_cast<const Exact*>(&block + 1);
    }
  };
  View view() const noexcept { return {mArena.data(), mNormals.data(), mRoot, bytes() > kNearCache}; }
  std::size_t bytes() const noexcept { return mArena.size() * sizeof(Unit) + mNormals.size() * sizeof(Normals); }

  /// Whether every triangle is in it: none has a NaN corner.
  bool isComplete() const noexcept { return mIsComplete; }
  /// The vertices that no triangle in it uses, ascending.
  std::span<const std::uint32_t> looseVertices() const noexcept { return mLooseVertices; }
  std::size_t triangleCount() const noexcept { return mTriangleCount; }
  /// The box of a child in the mesh's coordinates, widened by what its computation may be off.
  Box childBox(const Node& node, int child) const noexcept;

  const Vec3& center() const noexcept { return mCenter; }
  /// A power of two.
  double scale() const noexcept { return mScale; }
  /// Largest absolute coordinate of a corner.
  double magnitude() const noexcept { return mMagnitude; }
  /// Largest absolute coordinate of an edge vector from a triangle's first corner.
  double longestEdge() const noexcept { return mLongestEdge; }

 private:
  struct Triangles;
  bool measure(const Triangles& triangles);
  std::vector<TriangleBox> boxTriangles(const Triangles& triangles, TriangleRange& range);

  bool mIsComplete = true;
  std::size_t mTriangleCount = 0;
  std::vector<std::uint32_t> mLooseVertices;
  Reference mRoot = 0;
  Vec3 mCenter{0, 0, 0};
  double mScale = 1;
  double mMagnitude = 0;
  double mLongestEdge = 0;
  Buffer<Normals> mNormals;
  Buffer<Unit> mArena;  ///< depth first: a node, then what its children lead to
};

}  // namespace util
