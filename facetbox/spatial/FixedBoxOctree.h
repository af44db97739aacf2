#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include <facetbox/math/Box.h>
#include <facetbox/spatial/OctreeRoot.h>

namespace util {

/// An octree of five levels and a fixed root (OctreeRoot). Each item is stored once, with its box, in the box's cell.
///
/// The array of cells is made page by page, as they are first written to: an octree of one item takes a few kilobytes,
/// not the whole array.
template <class T>
class FixedBoxOctree {
 public:
  struct Record {
    Box box;
    T item;
  };

  explicit FixedBoxOctree(const OctreeRoot& root) : mRoot(root) {}

  /// any() may miss a box that the root does not hold.
  void insert(const Box& box, T item) {
    const std::uint32_t cell = mRoot.cellOf(box);
    std::uint32_t at = 0;
    for (std::size_t level = 1; at != cell; ++level) {
      touch(at);
      const std::uint32_t cells = OctreeRoot::kCells[level];
      at += 1 + (cell - at - 1) / cells * cells;
    }
    touch(cell).push_back({box, std::move(item)});
  }

  /// Calls `use(record)` until it returns true, for all records of the cells whose cubes share a point with `box`, as
  /// do those of all cells above: cells depth-first, the records of a cell in order of insertion. Their own boxes are
  /// not compared. Cubes are rounded: widen the box a little if touching must count.
  /// @return whether it did
  template <class Use>
  bool any(const Box& box, Use use) const {
    return anyIn(0, {mRoot.center, mRoot.halfSize}, 1, box, use);
  }

 private:
  using Records = std::vector<Record>;

  Records& touch(std::uint32_t cell) {
    std::unique_ptr<Page>& page = mPages[cell / kPageSize];
    if (!page) page = std::make_unique<Page>();
    std::unique_ptr<Records>& records = (*page)[cell % kPageSize];
    if (!records) records = std::make_unique<Records>();
    return *records;
  }
  /// Null if neither the cell nor one below it holds anything.
  const Records* find(std::uint32_t cell) const {
    const std::unique_ptr<Page>& page = mPages[cell / kPageSize];
    return page ? (*page)[cell % kPageSize].get() : nullptr;
  }

  template <class Use>
  bool anyIn(std::uint32_t cell, const OctreeRoot::Cube& cube, std::size_t level, const Box& box, Use& use) const {
    const Records* records = find(cell);
    if (!records || !cube.meets(box)) return false;
    for (const Record& record : *records)
      if (use(record)) return true;
    for (unsigned code = 0; level < OctreeRoot::kLevels && code < 8; ++code)
      if (anyIn(cell + 1 + code * OctreeRoot::kCells[level], cube.child(code), level + 1, box, use)) return true;
    return false;
  }

  static constexpr std::uint32_t kPageSize = OctreeRoot::kCells[2];
  using Page = std::array<std::unique_ptr<Records>, kPageSize>;

  OctreeRoot mRoot;
  std::array<std::unique_ptr<Page>, OctreeRoot::kCells[0] / kPageSize + 1> mPages;
};

}  // namespace util
