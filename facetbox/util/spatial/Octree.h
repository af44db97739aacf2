#pragma once

#include <array>
#include <cstdint>
#include <memory>

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

/// The cells of an octree of fixed depth, in one flat array, whose pages are allocated when they are first written to:
/// a tree of one item takes some kilobytes, not the whole array.
///
/// The root is cell 0; the children of cell i are 8 i + 1 + code, where bit 0 of the code stands for the upper half in
/// x, bit 1 in y, bit 2 in z. The deepest cells are 585 to 4680. A cell is created when it is first written to.
template <class Node>
class Octree {
 public:
  static constexpr int kDepth = 5;  ///< levels, the root's included
  static constexpr std::uint32_t kCellCount = 4681;

  virtual ~Octree() = default;

  static constexpr std::uint32_t childOf(std::uint32_t cell, unsigned code) { return 8 * cell + 1 + code; }

 protected:
  /// The cell, created if there is none yet.
  Node& touch(std::uint32_t cell) {
    std::unique_ptr<Page>& page = mPages[pageOf(cell)];
    if (!page) page = std::make_unique<Page>();
    std::unique_ptr<Node>& node = (*page)[placeOf(cell)];
    if (!node) node = std::make_unique<Node>();
    return *node;
  }
  /// The cell, or null.
  Node* find(std::uint32_t cell) {
    const std::unique_ptr<Page>& page = mPages[pageOf(cell)];
    return page ? (*page)[placeOf(cell)].get() : nullptr;
  }
  const Node* find(std::uint32_t cell) const { return const_cast<Octree*>(this)->find(cell); }

 private:
  static constexpr std::uint32_t kPageSize = 64;
  using Page = std::array<std::unique_ptr<Node>, kPageSize>;

  // Moved on by 7, the eight children of a cell start at a multiple of 8 and share a page.
  static constexpr std::uint32_t pageOf(std::uint32_t cell) { return (cell + 7) / kPageSize; }
  static constexpr std::uint32_t placeOf(std::uint32_t cell) { return (cell + 7) % kPageSize; }

  std::array<std::unique_ptr<Page>, (kCellCount + 6) / kPageSize + 1> mPages;
};

}  // namespace util
