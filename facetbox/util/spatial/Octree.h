#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace util {

/// Told of the cells that a descent passes.
template <class Node>
class IOctreeVisitor {
 public:
  virtual ~IOctreeVisitor() = default;
  /// For every cell on the way down.
  virtual void visitPath(std::uint32_t cell, Node& node) = 0;
  /// For the cell where the descent ends.
  virtual void visitTarget(std::uint32_t cell, Node& node) = 0;
};

/// The cells of an octree of fixed depth, in one flat array.
///
/// The root is cell 0; the children of cell i are 8 i + 1 + code, where bit 0 of the code stands for the upper half in
/// x, bit 1 in y, bit 2 in z. The deepest cells are 585 to 4680. A cell is created when it is first written to.
template <class Node>
class Octree {
 public:
  static constexpr int kDepth = 5;  ///< levels, the root's included
  static constexpr std::uint32_t kCellCount = 4681;

  Octree() : mCells(kCellCount) {}
  virtual ~Octree() = default;

  static constexpr std::uint32_t childOf(std::uint32_t cell, unsigned code) { return 8 * cell + 1 + code; }

 protected:
  /// The cell, created if there is none yet.
  Node& touch(std::uint32_t cell) {
    if (!mCells[cell]) mCells[cell] = std::make_unique<Node>();
    return *mCells[cell];
  }
  /// The cell, or null.
  Node* find(std::uint32_t cell) { return mCells[cell].get(); }
  const Node* find(std::uint32_t cell) const { return mCells[cell].get(); }

 private:
  std::vector<std::unique_ptr<Node>> mCells;
};

}  // namespace util
